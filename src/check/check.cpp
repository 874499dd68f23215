#include "check/check.hpp"

#include <algorithm>
#include <initializer_list>
#include <set>
#include <utility>

#include "gfm/slug.hpp"
#include "repo/links.hpp"
#include "text/nearest.hpp"

namespace tarnwick::check {

namespace {

using gfm::Link;
using gfm::LinkedDocument;
using gfm::LinkSyntax;
using gfm::lowercase;
using repo::name_of;
using repo::parent_of;
using repo::stem_of;

// "L10", "L10C2", "L10-L20", "L10C2-L20C5": the lines of a file's source view.
bool is_line_fragment(std::string_view fragment) {
  const auto line = [&](std::size_t& pos) {
    if (pos >= fragment.size() || fragment[pos] != 'L') return false;
    const auto digits = [&] {
      const std::size_t start = ++pos;
      while (pos < fragment.size() && fragment[pos] >= '0' && fragment[pos] <= '9') ++pos;
      return pos > start;
    };
    if (!digits()) return false;
    if (pos < fragment.size() && fragment[pos] == 'C' && !digits()) return false;
    return true;
  };
  std::size_t pos = 0;
  if (!line(pos)) return false;
  if (pos < fragment.size() && fragment[pos] == '-' && !line(++pos)) return false;
  return pos == fragment.size();
}

// "{{...}}" (Hugo's shortcodes, Go templates) or "{%...%}" (Liquid's tags): text that a site
// generator replaces before the link means anything.
bool holds_template(std::string_view target) {
  for (const auto& [open, close] : {std::pair{"{{", "}}"}, std::pair{"{%", "%}"}}) {
    const std::size_t at = target.find(open);
    if (at != std::string_view::npos && target.find(close, at + 2) != std::string_view::npos) {
      return true;
    }
  }
  return false;
}

Problem located(const std::string& path, const Link& link) {
  Problem problem;
  problem.path = path;
  problem.file = path;
  problem.line = link.line;
  problem.column = link.column;
  problem.target = link.written;
  problem.span = link.span;
  problem.target_span = link.written_span;
  return problem;
}

// The rules, for the links of one workspace.
class Checker {
 public:
  explicit Checker(const repo::Workspace& workspace) : workspace_(workspace) {}

  std::optional<Problem> check_link(const std::string& path, const Link& link) const {
    Problem problem = located(path, link);
    const auto report = [&](Code code, std::string message) {
      problem.code = code;
      problem.message = std::move(message);
      return std::optional(std::move(problem));
    };

    // First, whatever else is wrong with such a target: it is not the link GitHub shows.
    if (holds_template(link.written)) {
      return report(Code::template_syntax,
                    "the target holds a site generator's template syntax, which GitHub shows "
                    "as written");
    }
    using Status = repo::Destination::Status;
    const repo::Destination destination = repo::resolve_destination(path, link.destination);
    if (destination.status == Status::malformed) {
      return report(Code::malformed_link, "a \"%\" that starts no %XX escape");
    }
    problem.fragment = destination.fragment.value_or("");
    if (destination.status == Status::outside) {
      return report(Code::outside_repository, "leads outside the repository");
    }
    const std::string& target = destination.path;
    problem.resolved = target;

    const bool is_file = workspace_.has_file(target);
    if (!is_file && !workspace_.has_directory(target)) {
      if (const std::string* other_case = workspace_.in_any_case(target)) {
        problem.suggestion = repo::rewritten(link.written, path, *other_case);
        return report(Code::case_mismatch,
                      "no " + in_quotes(target) + ", only " + in_quotes(*other_case));
      }
      const std::string_view name = name_of(target);
      const std::size_t dot = name.rfind('.');
      if (dot != std::string_view::npos && lowercase(name.substr(dot)) == ".html") {
        const std::string markdown = target.substr(0, target.size() - (name.size() - dot)) + ".md";
        if (workspace_.has_file(markdown)) {
          problem.suggestion = repo::rewritten(link.written, path, markdown);
          return report(Code::html_for_markdown,
                        "no " + in_quotes(target) + ", but " + in_quotes(markdown) + " is there");
        }
      }
      if (destination.from_root || dot == std::string_view::npos) {
        return report(Code::site_path,
                      "no file or folder " + in_quotes(target) + " (a site generator's path?)");
      }
      return report(Code::missing_file, "no file " + in_quotes(target));
    }
    if (!destination.fragment || destination.fragment->empty()) return std::nullopt;
    if (!is_file) {
      const std::optional<std::string> readme = workspace_.readme_of(target);
      if (!readme) {
        return report(Code::missing_anchor_other_file,
                      "folder " + in_quotes(target.empty() ? "/" : target) + " has no README for " +
                          in_quotes("#" + problem.fragment));
      }
      return check_fragment(path, *readme, problem.fragment, true, link);
    }
    const bool rendered = repo::is_markdown(name_of(target)) &&
                          destination.query.find("plain=1") == std::string_view::npos;
    return check_fragment(path, target, problem.fragment, rendered, link);
  }

  std::optional<Problem> check_wiki_link(const std::string& path, const Link& link) const {
    std::string_view page = link.destination;
    std::string_view heading;
    if (const std::size_t hash = page.find('#'); hash != std::string_view::npos) {
      heading = page.substr(hash + 1);
      page = page.substr(0, hash);
    }
    Problem problem = located(path, link);
    if (page.empty()) {
      problem.resolved = path;
      return heading.empty() ? std::nullopt
                             : check_fragment(path, path, std::string(heading), true, link);
    }
    const std::vector<std::string> matches = workspace_.pages_named(page);
    if (repo::is_markdown(page)) page = stem_of(page);
    problem.resolved = std::string(page);
    if (matches.empty()) {
      problem.code = Code::missing_page;
      problem.message = "no Markdown file named " + in_quotes(page);
      return problem;
    }
    if (matches.size() > 1) {
      problem.code = Code::ambiguous_page;
      problem.message = in_quotes(page) + " names " + std::to_string(matches.size()) +
                        " files: " + in_quotes(matches[0]) + ", " + in_quotes(matches[1]) +
                        (matches.size() > 2 ? ", ..." : "");
      return problem;
    }
    if (heading.empty()) return std::nullopt;
    return check_fragment(path, matches[0], std::string(heading), true, link);
  }

 private:
  std::optional<Problem> check_fragment(const std::string& path, const std::string& target,
                                        const std::string& fragment, bool rendered,
                                        const Link& link) const {
    if (!rendered || lowercase(fragment) == "top") return std::nullopt;
    Problem problem = located(path, link);
    problem.resolved = target;
    problem.fragment = fragment;
    if (is_line_fragment(fragment)) {
      problem.code = Code::line_fragment;
      problem.message = in_quotes(target) +
                        " is shown rendered, where lines have no anchors; its source view is " +
                        in_quotes(target + "?plain=1#" + fragment);
      return problem;
    }
    const repo::Document* linked = workspace_.document(target);
    if (!linked) return std::nullopt;  // unreadable, and named as such
    const LinkedDocument& read = linked->read;
    const std::vector<std::string> forms = gfm::anchor_forms(fragment, link.syntax);
    if (std::any_of(forms.begin(), forms.end(),
                    [&](const std::string& form) { return read.anchors.contains(form); })) {
      return std::nullopt;
    }
    const std::string& lowered = forms[1];  // as site generators' ids are compared
    if (const auto custom = read.custom_ids.find(lowered); custom != read.custom_ids.end()) {
      problem.code = Code::custom_anchor;
      problem.message = in_quotes("{#" + fragment + "}") +
                        " is a site generator's heading id; GitHub makes " +
                        in_quotes("#" + custom->second);
      const std::string_view written = link.written;
      problem.suggestion = std::string(written.substr(0, written.find('#'))) + "#" + custom->second;
      return problem;
    }
    const bool same_file = target == path;
    problem.code = same_file ? Code::missing_anchor : Code::missing_anchor_other_file;
    problem.message = "no heading or anchor " + in_quotes("#" + fragment) +
                      (same_file ? " in this file" : " in " + in_quotes(target));
    return problem;
  }

  const repo::Workspace& workspace_;
};

}  // namespace

std::string in_quotes(std::string_view text) {
  std::string quoted(1, '"');
  quoted.append(text);
  quoted += '"';
  return quoted;
}

std::optional<Code> code_named(std::string_view name) {
  for (const CodeInfo& code : CODES) {
    if (code.name == name) return code.code;
  }
  return std::nullopt;
}

const std::vector<std::string>& code_names() {
  // Made on first use and shared read-only from then on.
  static const std::vector<std::string> names = [] {
    std::vector<std::string> made;
    for (const CodeInfo& code : CODES) made.emplace_back(code.name);
    return made;
  }();
  return names;
}

std::vector<Problem> check_document(const repo::Workspace& workspace, const std::string& path,
                                    std::size_t& links) {
  std::vector<Problem> problems;
  const repo::Document* checked = workspace.document(path);
  if (!checked) return problems;
  const Checker checker(workspace);
  for (const Link& link : checked->read.links) {
    if (!link.rendered) continue;
    ++links;
    auto problem = link.syntax == LinkSyntax::wiki ? checker.check_wiki_link(path, link)
                                                   : checker.check_link(path, link);
    if (problem) problems.push_back(std::move(*problem));
  }
  std::stable_sort(problems.begin(), problems.end(), [](const Problem& a, const Problem& b) {
    return std::pair(a.line, a.column) < std::pair(b.line, b.column);
  });
  return problems;
}

void suggest(const repo::Workspace& workspace, Problem& problem) {
  if (problem.suggestion) return;
  const std::string_view written = problem.target;
  const std::string_view written_path = written.substr(0, written.find_first_of("?#"));
  switch (problem.code) {
    case Code::missing_file:
    case Code::site_path: {
      const std::set<std::string>& names = workspace.names_in(parent_of(problem.resolved));
      // Names are compared without their extensions, which would make any two short names near.
      std::vector<std::string> stems;
      for (const std::string& name : names) stems.emplace_back(stem_of(name));
      const auto near_stem = text::nearest(stem_of(name_of(problem.resolved)), stems);
      if (!near_stem) return;
      const std::string& near = *std::next(
          names.begin(), std::find(stems.begin(), stems.end(), *near_stem) - stems.begin());
      const std::size_t slash = written_path.find_last_of(
          '/', written_path.size() - (written_path.ends_with('/') ? 2 : 1));
      const std::string_view kept =
          slash == std::string_view::npos ? std::string_view() : written_path.substr(0, slash + 1);
      problem.suggestion =
          std::string(kept) + near + std::string(written.substr(written_path.size()));
      return;
    }
    case Code::missing_anchor:
    case Code::missing_anchor_other_file: {
      const repo::Document* linked = workspace.document(problem.resolved);
      if (!linked) return;
      std::vector<std::string> anchors(linked->read.anchors.begin(), linked->read.anchors.end());
      std::sort(anchors.begin(), anchors.end());
      if (const auto near = text::nearest(lowercase(problem.fragment), anchors)) {
        problem.suggestion = std::string(written.substr(0, written.find('#'))) + "#" + *near;
      }
      return;
    }
    case Code::missing_page:
      problem.suggestion = text::nearest(name_of(problem.resolved), workspace.page_stems());
      return;
    default:
      return;
  }
}

}  // namespace tarnwick::check
