#include "cli/views.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <ostream>
#include <vector>

#include "cli/index.hpp"
#include "text/utf8.hpp"

namespace tarnwick::cli {

namespace {

constexpr std::size_t DOCSTRING_WIDTH = 72;

// What the engine found in the single file at `path`; problems are written to `err`.
std::optional<Extracted> extract_one(const std::string& path, std::ostream& err) {
  const Selection selection = select_files({path}, std::nullopt);
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
  // Sections nest by their line ranges: a section lies within each section that holds it.
  std::vector<const Symbol*> holders;
  for (const Symbol& section : found->found.symbols) {
    while (!holders.empty() && holders.back()->end_line < section.end_line) holders.pop_back();
    out << fmt::format("{:{}}{}  [{}-{}]", "", 2 * holders.size(), section.name, section.start_line,
                       section.end_line);
    if (section.docstring) out << "  " << text::shortened(*section.docstring, DOCSTRING_WIDTH);
    out << "\n";
    holders.push_back(&section);
  }
  return 0;
}

int run_links(const std::string& path, std::ostream& out, std::ostream& err) {
  const auto found = extract_one(path, err);
  if (!found) return 1;
  std::vector<std::string> targets;
  std::size_t width = 0;
  for (const auto& reference : found->found.references) {
    targets.push_back(reference.name + (reference.qualifier ? "#" + *reference.qualifier : ""));
    width = std::max(width, targets.back().size());
  }
  for (std::size_t i = 0; i < targets.size(); ++i) {
    const auto& reference = found->found.references[i];
    out << fmt::format("{:>5}  {:<9}  {:<{}}  {}\n", reference.line,
                       engines::references::to_string(reference.kind), targets[i], width,
                       reference.source_fqn.value_or("-"));
  }
  return 0;
}

}  // namespace tarnwick::cli
