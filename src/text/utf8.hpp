// UTF-8 text: decoding bytes with replacement, and counting and cutting by code point.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tarnwick::text {

inline constexpr char32_t REPLACEMENT_CHARACTER = 0xFFFD;

// The length of the well-formed UTF-8 sequence at `pos`, or of its maximal ill-formed subpart
// (negated) when it is not well-formed.
int sequence_length(std::string_view bytes, std::size_t pos);

// The bytes as well-formed UTF-8: each maximal ill-formed subpart becomes one U+FFFD.
std::string decode_utf8(std::string_view bytes);

// Appends the UTF-8 encoding of a code point (a surrogate is written as U+FFFD).
void append_utf8(std::string& out, char32_t code_point);

// next_code_point for a lead byte of 0x80 or above.
char32_t next_multibyte_code_point(std::string_view text, std::size_t& pos);

// Reads the code point at `pos` of well-formed UTF-8 and moves `pos` past it.
inline char32_t next_code_point(std::string_view text, std::size_t& pos) {
  const auto lead = static_cast<unsigned char>(text[pos]);
  if (lead < 0x80) {
    ++pos;
    return lead;
  }
  return next_multibyte_code_point(text, pos);
}

// Reads the code point that ends at `pos` of well-formed UTF-8 and moves `pos` to its start.
char32_t previous_code_point(std::string_view text, std::size_t& pos);

// How many code points well-formed UTF-8 holds.
std::size_t code_point_count(std::string_view text);

// The first `count` code points of well-formed UTF-8 (all of it when it has fewer).
std::string_view first_code_points(std::string_view text, std::size_t count);

// Well-formed UTF-8 of more than `max_length` code points cut to fit that length with a final
// "..."; shorter texts unchanged.
std::string shortened(std::string_view text, std::size_t max_length);

}  // namespace tarnwick::text
