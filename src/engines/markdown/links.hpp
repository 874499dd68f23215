// Links: the targets of a document's links, found in its block tree and inline text, and the
// sections that hold them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "engines/markdown/node.hpp"
#include "tarnwick/engines/markdown.hpp"

namespace tarnwick::engines::markdown::detail {

// Nodes whose text is inline Markdown to scan for links.
inline constexpr auto INLINE_NODES = node_types("pipe_table_cell", "inline");
// Nodes the link walk enters: the block walk's CONTAINERS and the blocks that hold inline
// text or table cells.
inline constexpr auto LINK_CONTAINERS =
    node_types("document", "ERROR", "section", "block_quote", "list", "list_item", "paragraph",
               ATX_HEADING, SETEXT_HEADING, "pipe_table", "pipe_table_header", "pipe_table_row");
inline constexpr std::string_view REFERENCE_DEFINITION = "link_reference_definition";
inline constexpr std::string_view DESTINATION_NODE = "link_destination";

// One link as written: its kind, its target (never empty, stripped) and its 1-based line.
struct LinkTarget {
  references::RefKind kind;
  std::string target;
  std::int64_t line;

  bool operator==(const LinkTarget&) const = default;
};

// A code span's bytes: from its opening backtick to past its closing one.
struct ByteRange {
  std::size_t begin;
  std::size_t end;

  bool operator==(const ByteRange&) const = default;
};

// The repository target of an ordinary link's destination; none when it is empty or on the web.
std::optional<std::string> destination(std::string_view written);

// The target of a wiki link, Page#Anchor, Page or #Anchor; none when it names neither.
std::optional<std::string> wiki_target(std::string_view page,
                                       std::optional<std::string_view> anchor);

// The code spans of inline Markdown, left to right: the matches of CODE_SPAN, found in time
// linear in the text.
std::vector<ByteRange> code_spans(std::string_view markdown);

// The inline and wiki links of one piece of inline Markdown that begins on `first_line`, in
// the order in which they stand; links inside code spans are not read.
std::vector<LinkTarget> inline_targets(std::string_view markdown, std::int64_t first_line);

// Whether the link walk passes over the subtrees whose bytes hold no link mark, or reads every
// node. The targets are the same either way; only the time differs.
enum class Subtrees { SKIP_LINK_FREE, READ_ALL };

// Every link target of the block tree below `root`, in document order.
std::vector<LinkTarget> link_targets(Node root, Subtrees subtrees = Subtrees::SKIP_LINK_FREE);

// Percent-decoding: each run of ASCII characters is decoded by itself and read as UTF-8, each
// maximal ill-formed subpart becoming one U+FFFD.
std::string unquote(std::string_view text);

// The sections of a document, prepared to find the innermost one that holds a line.
struct SectionIndex {
  std::span<const Symbol> sections;
  // Running maximum of start_line: where the scan in document order stops for a line.
  std::vector<std::int64_t> start_maxima;
  // end_maxima[k][i]: the largest end_line of the sections i to i + 2^k - 1.
  std::vector<std::vector<std::int64_t>> end_maxima;
};

SectionIndex section_index(std::span<const Symbol> sections);

// The FQN of the last section, before the first that starts below the line, that still holds
// it; none when no such section exists. O(log n) in the number of sections.
std::optional<std::string> section_at(const SectionIndex& index, std::int64_t line);

}  // namespace tarnwick::engines::markdown::detail
