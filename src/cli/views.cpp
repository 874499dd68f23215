#include "cli/views.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <ostream>
#include <unordered_map>
#include <vector>

#include "cli/index.hpp"
#include "text/utf8.hpp"

namespace tarnwick::cli {

namespace {

constexpr std::size_t DOCSTRING_WIDTH = 72;

// Text as a terminal may show it: control characters (C0, DEL and C1), which could move the
// cursor or retitle the window, are written as escapes (\x1b, \u{9b}).
std::string printable(std::string_view text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    if (byte < 0x20 || byte == 0x7F) {
      out += fmt::format("\\x{:02x}", byte);
    } else if (byte == 0xC2 && i + 1 < text.size() &&
               static_cast<unsigned char>(text[i + 1]) >= 0x80 &&
               static_cast<unsigned char>(text[i + 1]) <= 0x9F) {
      out += fmt::format("\\u{{{:x}}}", static_cast<unsigned char>(text[++i]));
    } else {
      out += text[i];
    }
  }
  return out;
}

// What the engine found in the single file at `path`; problems are written to `err`.
std::optional<Extracted> extract_one(const std::string& path, std::ostream& err) {
  const Selection selection = select_files({path});
  for (const auto& error : selection.errors) {
    err << "tarnwick-md: cannot read " << error.what << ": " << error.reason << "\n";
  }
  if (selection.files.size() != 1) {
    if (selection.errors.empty()) err << "tarnwick-md: " << path << " is not a single file\n";
    return std::nullopt;
  }
  Extracted found = extract_file(selection.files[0], 1, false);
  if (found.error) {
    err << "tarnwick-md: cannot read " << found.error->what << ": " << found.error->reason << "\n";
    return std::nullopt;
  }
  return found;
}

}  // namespace

int run_outline(const std::string& path, std::ostream& out, std::ostream& err) {
  const auto found = extract_one(path, err);
  if (!found) return 1;
  if (found->found.symbols.empty()) err << "tarnwick-md: " << path << " has no headings\n";
  // Sections nest by their line ranges: a section lies within each section that holds it.
  std::vector<const Symbol*> holders;
  for (const Symbol& section : found->found.symbols) {
    while (!holders.empty() && holders.back()->end_line < section.end_line) holders.pop_back();
    out << fmt::format("{:{}}{}  [{}-{}]", "", 2 * holders.size(), printable(section.name),
                       section.start_line, section.end_line);
    if (section.docstring) {
      out << "  " << printable(text::shortened(*section.docstring, DOCSTRING_WIDTH));
    }
    out << "\n";
    holders.push_back(&section);
  }
  return 0;
}

int run_links(const std::string& path, std::ostream& out, std::ostream& err) {
  const auto found = extract_one(path, err);
  if (!found) return 1;
  if (found->found.references.empty()) {
    err << "tarnwick-md: " << path << " has no links to other files\n";
  }
  // The section that holds a link, by its heading path: the FQN repeats the file's prefix.
  std::unordered_map<std::string_view, std::string_view> paths;
  for (const Symbol& section : found->found.symbols) paths.emplace(section.fqn, section.signature);
  const auto heading_path = [&](const std::optional<std::string>& fqn) -> std::string {
    if (!fqn) return "-";
    const auto found_path = paths.find(*fqn);
    return std::string(found_path == paths.end() ? std::string_view(*fqn) : found_path->second);
  };
  std::vector<std::string> targets;
  std::size_t width = 0;
  for (const auto& reference : found->found.references) {
    targets.push_back(
        printable(reference.name + (reference.qualifier ? "#" + *reference.qualifier : "")));
    width = std::max(width, targets.back().size());
  }
  for (std::size_t i = 0; i < targets.size(); ++i) {
    const auto& reference = found->found.references[i];
    out << fmt::format("{:>5}  {:<9}  {:<{}}  {}\n", reference.line,
                       engines::references::to_string(reference.kind), targets[i], width,
                       printable(heading_path(reference.source_fqn)));
  }
  return 0;
}

}  // namespace tarnwick::cli
