#include "tarnwick/tree.hpp"

#include <cstdint>
#include <limits>
#include <stdexcept>

namespace tarnwick {

namespace {

// tree-sitter addresses text with 32-bit offsets.
void require_addressable(std::string_view text) {
  if (text.size() >= std::numeric_limits<std::uint32_t>::max()) {
    throw std::length_error("a Markdown document of 4 GiB or more cannot be parsed");
  }
}

}  // namespace

MarkdownParser::MarkdownParser() : parser_(ts_parser_new(), ts_parser_delete) {
  if (!ts_parser_set_language(parser_.get(), tarnwick_tree_sitter_markdown())) {
    throw std::runtime_error("the Markdown grammar does not fit this tree-sitter runtime");
  }
}

TSTree* MarkdownParser::parse(std::string_view text) {
  require_addressable(text);
  return ts_parser_parse_string(parser_.get(), nullptr, text.data(),
                                static_cast<std::uint32_t>(text.size()));
}

Document::Document(MarkdownParser& parser, std::string text)
    : text_(std::move(text)), tree_(parser.parse(text_), ts_tree_delete) {}

engines::markdown::Node Document::root() const {
  return {ts_tree_root_node(tree_.get()), text_};
}

std::string normalize_line_endings(std::string bytes) {
  std::size_t kept = bytes.find('\r');
  if (kept == std::string::npos) return bytes;
  for (std::size_t i = kept; i < bytes.size(); ++i) {
    if (bytes[i] != '\r') {
      bytes[kept++] = bytes[i];
    } else {
      bytes[kept++] = '\n';
      if (i + 1 < bytes.size() && bytes[i + 1] == '\n') ++i;
    }
  }
  bytes.resize(kept);
  return bytes;
}

}  // namespace tarnwick
