// White space as the indexer reads it: exactly 29 characters, used wherever text is stripped,
// split into words or tested for blankness, and wherever a pattern says \s.
#pragma once

#include <array>
#include <string>
#include <string_view>

namespace tarnwick::text {

// The white-space characters, as ranges of code points. The one definition: the predicate and
// the pattern class below are both made from it.
struct CodePointRange {
  char32_t first;
  char32_t last;
};
inline constexpr std::array<CodePointRange, 10> WHITE_SPACE = {{
    {0x09, 0x0D},
    {0x1C, 0x20},
    {0x85, 0x85},
    {0xA0, 0xA0},
    {0x1680, 0x1680},
    {0x2000, 0x200A},
    {0x2028, 0x2029},
    {0x202F, 0x202F},
    {0x205F, 0x205F},
    {0x3000, 0x3000},
}};

constexpr bool is_white_space(char32_t c) {
  for (const auto [first, last] : WHITE_SPACE) {
    if (c < first) return false;  // the ranges are in ascending order
    if (c <= last) return true;
  }
  return false;
}

// The white-space characters as the body of a PCRE2 character class ("\x{9}-\x{d}...").
std::string white_space_class();

// The text without white space at either end (well-formed UTF-8 in and out).
std::string_view strip(std::string_view text);

// True when the line holds nothing but white space; an ill-formed byte counts as text.
bool is_blank(std::string_view line);

// The words of the text joined by single spaces: runs of white space, line feeds included,
// become one space, and none is left at either end.
std::string collapse_white_space(std::string_view text);

}  // namespace tarnwick::text
