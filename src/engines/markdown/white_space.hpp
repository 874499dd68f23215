// The engine's white space: exactly 29 characters, used wherever text is stripped, split
// into words, tested for blankness, or a pattern says \s.
#pragma once

#include <string>
#include <string_view>

namespace tarnwick::engines::markdown::detail {

// The white-space characters as the body of a PCRE2 character class.
inline constexpr std::string_view WHITE_SPACE_CLASS =
    "\\t-\\r\\x{1c}-\\x{20}\\x{85}\\x{a0}\\x{1680}\\x{2000}-\\x{200a}\\x{2028}\\x{2029}"
    "\\x{202f}\\x{205f}\\x{3000}";

bool is_white_space(char32_t c);

// The text without white space at either end (well-formed UTF-8 in and out).
std::string_view strip(std::string_view text);

// True when the line holds nothing but white space; an ill-formed byte counts as text.
bool is_blank(std::string_view line);

// The words of the text joined by single spaces: runs of white space, line feeds included,
// become one space, and none is left at either end.
std::string collapse_white_space(std::string_view text);

}  // namespace tarnwick::engines::markdown::detail
