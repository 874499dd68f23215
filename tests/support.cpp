#include "support.hpp"

#include "cli/rules.hpp"
#include "tarnwick/tree.hpp"

namespace tarnwick::testing {

Indexed index_text(const std::string& text, const std::string& prefix) {
  static const MarkdownParser parser;
  const Document document(parser, text);
  Indexed result;
  cli::UniqueFqns unique_fqn;
  const engines::markdown::IndexerRules rules{
      .unique_fqn = std::ref(unique_fqn),
      .cap_docstring = cli::cap_docstring,
      .debug_log = [&](std::string_view, std::string_view message) {
        result.debug_lines.emplace_back(message);
      }};
  result.symbols =
      engines::markdown::extract_sections(document.root(), document.text(), prefix, 1, rules);
  result.references = engines::markdown::extract_links(document.root(), result.symbols);
  return result;
}

}  // namespace tarnwick::testing
