// Parsing Markdown into the block tree that the engine reads.
#pragma once

#include <tree_sitter/api.h>

#include <memory>
#include <string>
#include <string_view>

#include "tarnwick/engines/markdown.hpp"
#include "tarnwick/export.hpp"

// The block grammar this library is built with: tree-sitter-markdown with its scanner guarded
// against deep nesting and long delimiter runs. It has a name of its own, so that a host's own
// copy of the grammar (`tree_sitter_markdown`) neither replaces it nor is replaced by it.
// The language is static data: never freed.
extern "C" TARNWICK_MARKDOWN_API const TSLanguage* tarnwick_tree_sitter_markdown(void);

namespace tarnwick {

// A parser for the Markdown block grammar. Parsing changes its state: one parser per thread.
class TARNWICK_MARKDOWN_API MarkdownParser {
 public:
  // Throws std::runtime_error when the grammar does not fit the tree-sitter runtime linked.
  MarkdownParser();
  // The tree of `text`, owned by the caller (free it with ts_tree_delete). The tree does not
  // keep the text: nodes read with it need the same bytes. Throws std::length_error for a text
  // of 4 GiB or more, which tree-sitter cannot address.
  TSTree* parse(std::string_view text);

 private:
  std::unique_ptr<TSParser, void (*)(TSParser*)> parser_;
};

// A parsed document: it owns its text (LF line endings) and the block tree parsed from it.
// Neither copied nor moved, so the nodes it hands out stay valid for its whole life.
class TARNWICK_MARKDOWN_API Document {
 public:
  // Throws std::length_error for a text of 4 GiB or more.
  Document(MarkdownParser& parser, std::string text);
  Document(const Document&) = delete;
  Document& operator=(const Document&) = delete;

  const std::string& text() const { return text_; }
  // The root of the tree; valid as long as the document.
  engines::markdown::Node root() const;

 private:
  std::string text_;
  std::unique_ptr<TSTree, void (*)(TSTree*)> tree_;
};

// The text of a file's bytes as the indexer reads it: every CRLF and lone CR becomes LF. The
// bytes are rewritten in place; text without a CR comes back as it went in.
TARNWICK_MARKDOWN_API std::string normalize_line_endings(std::string bytes);

}  // namespace tarnwick
