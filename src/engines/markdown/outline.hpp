// The outline: headings, where their sections end, their heading paths, and the title
// section that front matter names.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "engines/markdown/front_matter.hpp"
#include "engines/markdown/regex.hpp"
#include "tarnwick/engines/markdown.hpp"

namespace tarnwick::engines::markdown::detail {

// A heading of the outline, with what the section it heads takes from it.
struct Heading {
  std::string name;  // plain text; empty for a heading that opens no section
  int level;         // 1 to 6
  std::int64_t first_row;
  std::optional<std::string> summary;  // plain text of the paragraph right below

  bool operator==(const Heading&) const = default;
};

inline constexpr std::pair<std::string_view, int> LEVEL_MARKERS[] = {
    {"atx_h1_marker", 1},       {"atx_h2_marker", 2},       {"atx_h3_marker", 3},
    {"atx_h4_marker", 4},       {"atx_h5_marker", 5},       {"atx_h6_marker", 6},
    {"setext_h1_underline", 1}, {"setext_h2_underline", 2},
};
extern const Regex CLOSING_SEQUENCE;

// Reads a heading block; `following` is the block after it.
Heading heading(Node node, std::optional<Node> following);

// The plain text of a paragraph block, or none for anything else or an empty text.
std::optional<std::string> summary(std::optional<Node> block);

// The last row holding text at or above `row`, but not above `floor`.
std::int64_t last_text_row(std::span<const std::string_view> lines, std::int64_t floor,
                           std::int64_t row);

// The last row holding text of each heading's section, 0-based, in the order of `headings`.
std::vector<std::int64_t> section_ends(std::span<const Heading> headings,
                                       std::span<const std::string_view> lines);

// A section's signature: the names joined by PATH_SEPARATOR, shortened from the front to fit
// MAX_PATH_LENGTH code points.
std::string heading_path(std::span<const std::string> names);

// The headings with the front matter's title and description applied: the description goes to
// the first H1, or the title heads a section of its own when there is no H1.
std::vector<Heading> with_front_matter(std::vector<Heading> headings, const FrontMatter& front,
                                       std::optional<Node> following);

}  // namespace tarnwick::engines::markdown::detail
