// Parsing Markdown into the block tree that the engine reads.
#pragma once

#include <tree_sitter/api.h>

#include <memory>
#include <string>
#include <string_view>

#include "tarnwick/engines/markdown.hpp"

extern "C" const TSLanguage* tree_sitter_markdown(void);

namespace tarnwick {

// A parser for the Markdown block grammar; one per thread.
class MarkdownParser {
 public:
  MarkdownParser();
  TSTree* parse(std::string_view text) const;  // owned by the caller

 private:
  std::unique_ptr<TSParser, void (*)(TSParser*)> parser_;
};

// A parsed document: its text (LF line endings) and the block tree parsed from it.
class Document {
 public:
  Document(const MarkdownParser& parser, std::string text);
  const std::string& text() const { return text_; }
  engines::markdown::Node root() const;

 private:
  std::string text_;
  std::unique_ptr<TSTree, void (*)(TSTree*)> tree_;
};

// The text of a file's bytes as the indexer reads it: every CRLF and lone CR becomes LF. The
// bytes are rewritten in place; text without a CR comes back as it went in.
std::string normalize_line_endings(std::string bytes);

}  // namespace tarnwick
