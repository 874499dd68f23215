// Arbitrary bytes as a Markdown file, through the real parser and both engine calls, and the
// link walk with and without its skipping of link-free subtrees.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

#include "engines/markdown/links.hpp"
#include "invariants.hpp"
#include "tarnwick/markdown.hpp"

using namespace tarnwick;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static MarkdownParser parser;
  const Document document(
      parser, normalize_line_endings(std::string(reinterpret_cast<const char*>(data), size)));
  const engines::markdown::IndexerRules rules{
      .unique_fqn = {},
      .cap_docstring = {},
      .debug_log = [](std::string_view, std::string_view message) {
        fuzz::require(fuzz::is_valid_utf8(message), "debug lines are UTF-8");
      }};
  const auto sections =
      engines::markdown::extract_sections(document.root(), document.text(), "README", 1, rules);
  const auto lines = 1 + std::count(document.text().begin(), document.text().end(), '\n');
  fuzz::check_sections(sections, "README", lines);
  fuzz::check_references(engines::markdown::extract_links(document.root(), sections), lines);
  namespace links = engines::markdown::detail;
  fuzz::require(links::link_targets(document.root(), links::Subtrees::SKIP_LINK_FREE) ==
                    links::link_targets(document.root(), links::Subtrees::READ_ALL),
                "skipping link-free subtrees finds the same links as reading every node");
  return 0;
}
