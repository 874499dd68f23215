#include "support.hpp"

#include "tarnwick/markdown.hpp"

namespace tarnwick::testing {

Indexed index_text(const std::string& text, const std::string& prefix) {
  Indexed result;
  IndexedDocument found =
      index_markdown(text, "",
                     {.prefix = prefix,
                      .file_id = 1,
                      .debug_log = [&](std::string_view, std::string_view message) {
                        result.debug_lines.emplace_back(message);
                      }});
  result.symbols = std::move(found.symbols);
  result.references = std::move(found.references);
  return result;
}

}  // namespace tarnwick::testing
