#include "gfm/slug.hpp"

#include <algorithm>
#include <optional>

#include <unicode/locid.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/utf8.h>

namespace tarnwick::gfm {

namespace {

// ASCII text lowercased, which is also how Unicode lowercases and folds it; none for other
// text.
std::optional<std::string> ascii_lowercase(std::string_view text) {
  if (!std::all_of(text.begin(), text.end(),
                   [](char c) { return static_cast<unsigned char>(c) < 0x80; })) {
    return std::nullopt;
  }
  std::string lowered(text);
  for (char& c : lowered) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return lowered;
}

}  // namespace

std::string lowercase(std::string_view text) {
  if (auto lowered = ascii_lowercase(text)) return std::move(*lowered);
  std::string lowered;
  icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<int32_t>(text.size())))
      .toLower(icu::Locale::getRoot())
      .toUTF8String(lowered);
  return lowered;
}

std::string case_fold(std::string_view text) {
  if (auto folded = ascii_lowercase(text)) return std::move(*folded);
  std::string folded;
  icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<int32_t>(text.size())))
      .foldCase()
      .toUTF8String(folded);
  return folded;
}

std::string slug(std::string_view text) {
  const std::string lowered = lowercase(text);
  // The word characters GitHub's rule keeps: alphabetic characters (letters, letter numbers
  // such as "Ⅷ", circled letters), marks, decimal digits and connector punctuation.
  const auto is_word = [](UChar32 c) {
    return u_hasBinaryProperty(c, UCHAR_ALPHABETIC) ||
           (U_GET_GC_MASK(c) & (U_GC_M_MASK | U_GC_ND_MASK | U_GC_PC_MASK)) != 0;
  };
  std::string id;
  id.reserve(lowered.size());
  const auto* bytes = reinterpret_cast<const uint8_t*>(lowered.data());
  const auto length = static_cast<int32_t>(lowered.size());
  for (int32_t pos = 0; pos < length;) {
    const int32_t start = pos;
    UChar32 c = 0;
    U8_NEXT(bytes, pos, length, c);
    if (c == ' ') {
      id += '-';
    } else if (c == '-' || (c >= 0 && is_word(c))) {
      id.append(lowered, static_cast<std::size_t>(start), static_cast<std::size_t>(pos - start));
    }
  }
  return id;
}

std::string HeadingIds::next(std::string_view text) {
  const std::string base = slug(text);
  std::string id = base;
  while (occurrences_.contains(id)) {
    id = base + '-' + std::to_string(++occurrences_[base]);
  }
  occurrences_.emplace(id, 0);
  return id;
}

}  // namespace tarnwick::gfm
