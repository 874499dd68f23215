// Inline Markdown as the plain text that a reader sees, on one line.
#pragma once

#include <string>
#include <string_view>

#include "engines/markdown/regex.hpp"

namespace tarnwick::engines::markdown::detail {

// A code span: group 1 is the backtick run, group 2 the content. Links inside one are not read.
extern const Regex CODE_SPAN;

// The plain text of inline Markdown: code spans keep their content, links and images their
// text; emphasis, HTML, autolink brackets and escapes go; white space collapses to one space.
// Reads the first MAX_INLINE_LENGTH code points. Empty when nothing visible is left.
std::string plain_text(std::string_view markdown);

// The cleaning of a stretch of text outside code spans.
std::string unmarked(std::string_view text);

}  // namespace tarnwick::engines::markdown::detail
