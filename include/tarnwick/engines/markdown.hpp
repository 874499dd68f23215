// The Markdown engine: a document's outline as section symbols, and its links to other
// files as references, read from the tree-sitter-markdown block tree.
#pragma once

#include <tree_sitter/api.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tarnwick/engines/references.hpp"
#include "tarnwick/export.hpp"
#include "tarnwick/models.hpp"

namespace tarnwick::engines::markdown {

// How many code points of inline Markdown are read for plain text.
inline constexpr std::size_t MAX_INLINE_LENGTH = 4000;
// The largest front matter body, in code points, that is read.
inline constexpr std::size_t MAX_FRONT_MATTER_LENGTH = 65536;
// Heading paths (signatures): separator, marker of dropped names, and the longest path.
inline constexpr std::string_view PATH_SEPARATOR = " > ";
inline constexpr std::string_view ELLIPSIS = "...";
inline constexpr std::size_t MAX_PATH_LENGTH = 200;
// The name of the engine's logger.
inline constexpr std::string_view LOGGER_NAME = "tarnwick.engines.markdown";

// A node of a document's block tree, paired with the bytes the tree was parsed from. Both are
// borrowed: the caller keeps the tree and the bytes alive while the node is in use.
struct Node {
  TSNode node;
  std::string_view source;
};

// What the indexer lends the engine for one document: the two rules it shares among its
// engines, and its logging facility. A member left empty stands for the default: the rules of
// tarnwick/rules.hpp (a fresh UniqueFqns per call) and no logging. So `IndexerRules{}` is the
// indexer's default rules without logging.
struct IndexerRules {
  // Returns the candidate FQN, or a numbered variant that keeps it unique within the file.
  std::function<std::string(const std::string& candidate)> unique_fqn;
  // Cuts a docstring to the length at which the indexer stores docstrings.
  std::function<std::string(const std::string& text)> cap_docstring;
  // Receives the engine's debug lines, with the logger's name.
  std::function<void(std::string_view logger, std::string_view message)> debug_log;
};

// The sections of a document, one per named heading, in document order. `root` is the root of
// a tree parsed from `source`, the document's text with LF line endings. Pure apart from the
// rules' calls; any number of threads may call it at once on their own trees.
TARNWICK_MARKDOWN_API std::vector<Symbol> extract_sections(Node root, std::string_view source,
                                                           std::string_view prefix,
                                                           std::int64_t file_id,
                                                           const IndexerRules& rules);

// The links of a document to files of the repository, in document order; `sections` is what
// extract_sections returned for the same tree.
TARNWICK_MARKDOWN_API std::vector<references::ReferenceInfo> extract_links(
    Node root, std::span<const Symbol> sections);

}  // namespace tarnwick::engines::markdown
