#include "cli/views.hpp"

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <ostream>
#include <unordered_map>
#include <vector>

#include "cli/output.hpp"
#include "repo/extraction.hpp"
#include "repo/outline.hpp"
#include "repo/records.hpp"
#include "text/utf8.hpp"

namespace tarnwick::cli {

namespace {

constexpr std::size_t DOCSTRING_WIDTH = 72;

// Lines cut to the terminal's width when stdout is a terminal; whole otherwise.
class Screen {
 public:
  explicit Screen(std::ostream& out) : out_(out) {
    struct winsize size {};
    if (::isatty(STDOUT_FILENO) == 1 && ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0) {
      width_ = size.ws_col;
    }
  }
  void line(const std::string& text) {
    if (width_ > 0 && text::code_point_count(text) > width_) {
      out_ << text::shortened(text, width_) << "\n";
    } else {
      out_ << text << "\n";
    }
  }

 private:
  std::ostream& out_;
  std::size_t width_ = 0;
};

void outline(const repo::Extracted& extracted, Screen& screen) {
  const std::vector<Symbol>& sections = extracted.found.symbols;
  const std::vector<std::size_t> parents = repo::section_parents(sections);
  std::vector<std::size_t> depths;
  for (std::size_t i = 0; i < sections.size(); ++i) {
    const Symbol& section = sections[i];
    depths.push_back(parents[i] == repo::NO_PARENT ? 0 : depths[parents[i]] + 1);
    std::string line = fmt::format("{:{}}{}  [{}-{}]", "", 2 * depths.back(),
                                   printable(section.name), section.start_line, section.end_line);
    if (section.docstring) {
      line += "  " + printable(text::shortened(*section.docstring, DOCSTRING_WIDTH));
    }
    screen.line(line);
  }
}

void links(const repo::Extracted& extracted, Screen& screen) {
  // The section that holds a link, by its heading path: the FQN repeats the file's prefix.
  std::unordered_map<std::string_view, std::string_view> paths;
  for (const Symbol& section : extracted.found.symbols)
    paths.emplace(section.fqn, section.signature);
  const auto heading_path = [&](const std::optional<std::string>& fqn) -> std::string {
    if (!fqn) return "-";
    const auto found_path = paths.find(*fqn);
    return std::string(found_path == paths.end() ? std::string_view(*fqn) : found_path->second);
  };
  std::vector<std::string> targets;
  std::size_t width = 0;
  for (const auto& reference : extracted.found.references) {
    targets.push_back(
        printable(reference.name + (reference.qualifier ? "#" + *reference.qualifier : "")));
    width = std::max(width, targets.back().size());
  }
  for (std::size_t i = 0; i < targets.size(); ++i) {
    const auto& reference = extracted.found.references[i];
    screen.line(fmt::format("{:>5}  {:<9}  {:<{}}  {}", reference.line,
                            engines::references::to_string(reference.kind), targets[i], width,
                            printable(heading_path(reference.source_fqn))));
  }
}

enum class View { OUTLINE, LINKS };

// Shows one view of every file of the paths; a header names each file when there are several.
int show(View view, const ViewOptions& options, std::ostream& out, std::ostream& err) {
  const repo::Selection selection = repo::select_files(options.paths);
  bool failed = false;
  for (const auto& error : selection.errors) {
    err << "tarnwick-md: " << repo::describe(error) << "\n";
    failed = true;
  }
  Screen screen(out);
  const bool headers = selection.files.size() > 1 && !options.json;
  std::string records;
  repo::extract_in_order(
      selection.files, 1, 1, false, [&](const repo::SourceFile& file, const repo::Extracted& e) {
        const std::string name = file.location.string();
        if (e.error) {
          err << "tarnwick-md: " << repo::describe(*e.error) << "\n";
          failed = true;
          return true;
        }
        const bool empty =
            view == View::OUTLINE ? e.found.symbols.empty() : e.found.references.empty();
        if (empty) {
          err << "tarnwick-md: " << name
              << (view == View::OUTLINE ? " has no headings\n" : " has no links to other files\n");
        }
        if (options.json) {
          records.clear();
          if (view == View::OUTLINE) {
            for (const Symbol& s : e.found.symbols)
              repo::append_symbol_record(records, file.path, s);
          } else {
            for (const auto& r : e.found.references) {
              repo::append_reference_record(records, file.path, e.file_id, r);
            }
          }
          out << records;
          return static_cast<bool>(out);
        }
        if (headers && !empty) screen.line(printable(name) + ":");
        view == View::OUTLINE ? outline(e, screen) : links(e, screen);
        return static_cast<bool>(out);
      });
  return failed ? 1 : 0;
}

}  // namespace

int run_outline(const ViewOptions& options, std::ostream& out, std::ostream& err) {
  return show(View::OUTLINE, options, out, err);
}

int run_links(const ViewOptions& options, std::ostream& out, std::ostream& err) {
  return show(View::LINKS, options, out, err);
}

}  // namespace tarnwick::cli
