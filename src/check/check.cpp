#include "check/check.hpp"

#include <algorithm>
#include <atomic>
#include <thread>
#include <utility>

#include "gfm/slug.hpp"
#include "text/nearest.hpp"

namespace tarnwick::check {

namespace fs = std::filesystem;
using gfm::Link;
using gfm::LinkedDocument;
using gfm::LinkSyntax;
using gfm::lowercase;
using gfm::read_links;
using gfm::slug;

namespace {

int hex_value(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// The text with its %XX escapes decoded; none when a "%" starts no escape.
std::optional<std::string> percent_decode(std::string_view text) {
  std::string decoded;
  decoded.reserve(text.size());
  for (std::size_t pos = 0; pos < text.size(); ++pos) {
    if (text[pos] != '%') {
      decoded += text[pos];
      continue;
    }
    if (pos + 2 >= text.size() || hex_value(text[pos + 1]) < 0 || hex_value(text[pos + 2]) < 0) {
      return std::nullopt;
    }
    decoded += static_cast<char>(hex_value(text[pos + 1]) * 16 + hex_value(text[pos + 2]));
    pos += 2;
  }
  return decoded;
}

std::string_view parent_of(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string_view::npos ? std::string_view() : path.substr(0, slash);
}

std::string_view name_of(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

// A path from the root: "/x" from the root, "x" from `folder`; none when ".." climbs above
// the root.
std::optional<std::string> resolve(std::string_view folder, std::string_view path) {
  std::vector<std::string_view> segments;
  const auto add = [&](std::string_view text) {
    for (std::size_t start = 0; start <= text.size();) {
      const std::size_t slash = std::min(text.find('/', start), text.size());
      const std::string_view segment = text.substr(start, slash - start);
      if (segment == "..") {
        if (segments.empty()) return false;
        segments.pop_back();
      } else if (!segment.empty() && segment != ".") {
        segments.push_back(segment);
      }
      start = slash + 1;
    }
    return true;
  };
  if (!path.starts_with('/') && !add(folder)) return std::nullopt;
  if (!add(path)) return std::nullopt;
  std::string resolved;
  for (const std::string_view segment : segments) {
    if (!resolved.empty()) resolved += '/';
    resolved += segment;
  }
  return resolved;
}

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

// A name or path without its last extension.
std::string_view stem_of(std::string_view name) {
  return name.substr(0, name.rfind('.'));
}

bool is_readme(std::string_view name) {
  return repo::is_markdown(name) && lowercase(stem_of(name)) == "readme";
}

// A link from the file at `from` to `to` written as `written` was: from the root when it
// started with "/", else from the file's folder; with its query and fragment as written.
std::string rewritten(std::string_view written, std::string_view from, std::string_view to) {
  const std::size_t rest = std::min(written.find_first_of("?#"), written.size());
  if (written.starts_with('/')) return "/" + std::string(to) + std::string(written.substr(rest));
  const std::string_view folder = parent_of(from);
  const std::string relative =
      folder.empty()
          ? std::string(to)
          : fs::path(std::string(to)).lexically_relative(std::string(folder)).generic_string();
  return (relative.empty() ? std::string(".") : relative) + std::string(written.substr(rest));
}

Problem located(const std::string& path, const Link& link) {
  Problem problem;
  problem.path = path;
  problem.line = link.line;
  problem.column = link.column;
  problem.target = link.written;
  return problem;
}

std::string in_quotes(std::string_view text) {
  std::string quoted(1, '"');
  quoted.append(text);
  quoted += '"';
  return quoted;
}

}  // namespace

std::optional<Code> code_named(std::string_view name) {
  for (const CodeInfo& code : CODES) {
    if (code.name == name) return code.code;
  }
  return std::nullopt;
}

Repository::Repository(const fs::path& root, const repo::Tree& tree,
                       const std::vector<std::string>& sources, bool wiki, unsigned jobs) {
  directories_.insert("");
  for (const std::string& directory : tree.directories) {
    directories_.insert(directory);
    by_lowercase_.emplace(lowercase(directory), directory);
    children_[std::string(parent_of(directory))].emplace_back(name_of(directory));
  }
  std::vector<const std::string*> markdown;
  for (const std::string& file : tree.files) {
    files_.insert(file);
    by_lowercase_.emplace(lowercase(file), file);
    children_[std::string(parent_of(file))].emplace_back(name_of(file));
    if (repo::is_markdown(name_of(file))) {
      markdown.push_back(&file);
      pages_[lowercase(stem_of(name_of(file)))].push_back(file);
    }
  }

  for (const std::string& source : sources) {
    if (!repo::is_markdown(name_of(source)) || !files_.contains(source))
      markdown.push_back(&source);
  }

  std::vector<LinkedDocument> read(markdown.size());
  std::vector<std::optional<repo::ReadError>> failed(markdown.size());
  std::atomic<std::size_t> next{0};
  const auto work = [&] {
    for (std::size_t index; (index = next++) < markdown.size();) {
      std::string reason;
      const fs::path location = root / *markdown[index];
      if (const auto bytes = repo::read_file(location, reason)) {
        read[index] = read_links(*bytes, wiki);
      } else {
        failed[index] = repo::ReadError{location.string(), reason};
      }
    }
  };
  std::vector<std::jthread> threads;
  for (unsigned i = 1; i < std::min<std::size_t>(jobs, markdown.size()); ++i)
    threads.emplace_back(work);
  work();
  threads.clear();
  for (std::size_t index = 0; index < markdown.size(); ++index) {
    if (failed[index]) {
      errors_.push_back(std::move(*failed[index]));
    } else {
      documents_.try_emplace(*markdown[index], std::move(read[index]));
    }
  }
}

const LinkedDocument* Repository::document(const std::string& path) const {
  const auto found = documents_.find(path);
  return found == documents_.end() ? nullptr : &found->second;
}

std::vector<Problem> Repository::check_file(const std::string& path, std::size_t& links) const {
  std::vector<Problem> problems;
  const LinkedDocument* checked = document(path);
  if (!checked) return problems;
  links += checked->links.size();
  for (const Link& link : checked->links) {
    auto problem =
        link.syntax == LinkSyntax::wiki ? check_wiki_link(path, link) : check_link(path, link);
    if (problem) problems.push_back(std::move(*problem));
  }
  std::stable_sort(problems.begin(), problems.end(), [](const Problem& a, const Problem& b) {
    return std::pair(a.line, a.column) < std::pair(b.line, b.column);
  });
  return problems;
}

std::optional<Problem> Repository::check_link(const std::string& path, const Link& link) const {
  Problem problem = located(path, link);
  const auto report = [&](Code code, std::string message) {
    problem.code = code;
    problem.message = std::move(message);
    return std::optional(std::move(problem));
  };

  std::string_view destination = link.destination;
  std::optional<std::string_view> fragment_as_written;
  if (const std::size_t hash = destination.find('#'); hash != std::string_view::npos) {
    fragment_as_written = destination.substr(hash + 1);
    destination = destination.substr(0, hash);
  }
  std::string_view query;
  if (const std::size_t mark = destination.find('?'); mark != std::string_view::npos) {
    query = destination.substr(mark + 1);
    destination = destination.substr(0, mark);
  }
  const auto decoded = percent_decode(destination);
  const auto fragment = percent_decode(fragment_as_written.value_or(""));
  if (!decoded || !fragment) {
    return report(Code::malformed_link, "a \"%\" that starts no %XX escape");
  }
  problem.fragment = *fragment;

  std::string target = path;
  if (!decoded->empty()) {
    const auto resolved = resolve(parent_of(path), *decoded);
    if (!resolved) return report(Code::outside_repository, "leads outside the repository");
    target = *resolved;
  }
  problem.resolved = target;

  const bool is_file = files_.contains(target);
  if (!is_file && !directories_.contains(target)) {
    const auto other_case = by_lowercase_.find(lowercase(target));
    if (other_case != by_lowercase_.end()) {
      problem.suggestion = rewritten(link.written, path, other_case->second);
      return report(Code::case_mismatch,
                    "no " + in_quotes(target) + ", only " + in_quotes(other_case->second));
    }
    const std::string_view name = name_of(target);
    const std::size_t dot = name.rfind('.');
    if (dot != std::string_view::npos && lowercase(name.substr(dot)) == ".html") {
      const std::string markdown = target.substr(0, target.size() - (name.size() - dot)) + ".md";
      if (files_.contains(markdown)) {
        problem.suggestion = rewritten(link.written, path, markdown);
        return report(Code::html_for_markdown,
                      "no " + in_quotes(target) + ", but " + in_quotes(markdown) + " is there");
      }
    }
    if (decoded->starts_with('/') || dot == std::string_view::npos) {
      return report(Code::site_path,
                    "no file or folder " + in_quotes(target) + " (a site generator's path?)");
    }
    return report(Code::missing_file, "no file " + in_quotes(target));
  }
  if (!fragment_as_written || fragment->empty()) return std::nullopt;
  if (!is_file) {
    std::optional<std::string> readme;
    if (const auto names = children_.find(target); names != children_.end()) {
      for (const std::string& name : names->second) {
        std::string candidate = target.empty() ? name : target + "/" + name;
        if (is_readme(name) && files_.contains(candidate) && (!readme || candidate < *readme)) {
          readme = std::move(candidate);
        }
      }
    }
    if (!readme) {
      return report(Code::missing_anchor_other_file,
                    "folder " + in_quotes(target.empty() ? "/" : target) + " has no README for " +
                        in_quotes("#" + *fragment));
    }
    return check_fragment(path, *readme, *fragment, true, link);
  }
  const bool rendered =
      repo::is_markdown(name_of(target)) && query.find("plain=1") == std::string_view::npos;
  return check_fragment(path, target, *fragment, rendered, link);
}

std::optional<Problem> Repository::check_fragment(const std::string& path,
                                                  const std::string& target,
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
  const LinkedDocument* linked = document(target);
  if (!linked) return std::nullopt;  // unreadable, and named as such
  const std::string lowered = lowercase(fragment);
  if (linked->anchors.contains(fragment) || linked->anchors.contains(lowered)) return std::nullopt;
  if (link.syntax == LinkSyntax::wiki && linked->anchors.contains(slug(fragment)))
    return std::nullopt;
  if (const auto custom = linked->custom_ids.find(lowered); custom != linked->custom_ids.end()) {
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

std::optional<Problem> Repository::check_wiki_link(const std::string& path,
                                                   const Link& link) const {
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
  if (repo::is_markdown(page)) page = stem_of(page);
  const std::string lowered = lowercase(page);
  std::vector<std::string> matches;
  if (const auto found = pages_.find(lowercase(name_of(page))); found != pages_.end()) {
    for (const std::string& candidate : found->second) {
      const std::string stem = lowercase(stem_of(candidate));
      if (stem == lowered || stem.ends_with("/" + lowered)) matches.push_back(candidate);
    }
  }
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

void Repository::suggest(Problem& problem) const {
  if (problem.suggestion) return;
  const std::string_view written = problem.target;
  const std::string_view written_path = written.substr(0, written.find_first_of("?#"));
  switch (problem.code) {
    case Code::missing_file:
    case Code::site_path: {
      const auto names = children_.find(std::string(parent_of(problem.resolved)));
      if (names == children_.end()) return;
      // Names are compared without their extensions, which would make any two short names near.
      std::vector<std::string> stems;
      for (const std::string& name : names->second) stems.emplace_back(stem_of(name));
      const auto near_stem = text::nearest(stem_of(name_of(problem.resolved)), stems);
      if (!near_stem) return;
      const std::string& near = names->second[static_cast<std::size_t>(
          std::find(stems.begin(), stems.end(), *near_stem) - stems.begin())];
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
      const LinkedDocument* linked = document(problem.resolved);
      if (!linked) return;
      std::vector<std::string> anchors(linked->anchors.begin(), linked->anchors.end());
      std::sort(anchors.begin(), anchors.end());
      if (const auto near = text::nearest(lowercase(problem.fragment), anchors)) {
        problem.suggestion = std::string(written.substr(0, written.find('#'))) + "#" + *near;
      }
      return;
    }
    case Code::missing_page: {
      std::vector<std::string> stems;
      for (const auto& [stem, paths] : pages_) {
        for (const std::string& page : paths) stems.emplace_back(stem_of(name_of(page)));
      }
      std::sort(stems.begin(), stems.end());
      problem.suggestion = text::nearest(name_of(problem.resolved), stems);
      return;
    }
    default:
      return;
  }
}

}  // namespace tarnwick::check
