// The text-in call: a file's bytes to its records, with the indexer's default rules.
#include <algorithm>

#include "tarnwick/markdown.hpp"

namespace tarnwick {

const char* markdown_version() {
  return TARNWICK_MARKDOWN_VERSION;
}

IndexedDocument index_document(const Document& document, std::string_view prefix,
                               std::int64_t file_id, const DebugLog& debug_log) {
  const engines::markdown::IndexerRules rules{
      .unique_fqn = {}, .cap_docstring = {}, .debug_log = debug_log};
  IndexedDocument indexed;
  indexed.symbols =
      engines::markdown::extract_sections(document.root(), document.text(), prefix, file_id, rules);
  indexed.references = engines::markdown::extract_links(document.root(), indexed.symbols);
  return indexed;
}

IndexedDocument index_markdown(std::string_view bytes, std::string_view path,
                               const IndexOptions& options) {
  // A parser of each thread's own, made on its first call.
  thread_local MarkdownParser parser;
  const Document document(parser, normalize_line_endings(std::string(bytes)));
  return index_document(document, options.prefix ? *options.prefix : fqn_prefix(path),
                        options.file_id, options.debug_log);
}

std::string fqn_prefix(std::string_view path) {
  std::string prefix(path);
  const auto slash = prefix.rfind('/');
  const auto dot = prefix.rfind('.');
  if (dot != std::string::npos && (slash == std::string::npos || dot > slash)) prefix.erase(dot);
  std::replace(prefix.begin(), prefix.end(), '/', '.');
  return prefix;
}

}  // namespace tarnwick
