#include "cli/rules.hpp"

#include <string_view>

namespace tarnwick::cli {

namespace {

constexpr std::size_t MAX_DOCSTRING_LENGTH = 1000;
constexpr std::string_view CUT_MARKER = "...";

bool starts_code_point(char c) {
  return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
}

}  // namespace

std::string UniqueFqns::operator()(const std::string& candidate) {
  if (returned_.insert(candidate).second) return candidate;
  // Numbers already returned for this candidate stay taken, so the search never goes back.
  unsigned long& n = next_number_.try_emplace(candidate, 2).first->second;
  for (;; ++n) {
    std::string numbered = candidate + "#" + std::to_string(n);
    if (returned_.insert(numbered).second) {
      ++n;
      return numbered;
    }
  }
}

std::string shortened(const std::string& text, std::size_t max_length) {
  std::size_t count = 0;
  std::size_t cut = text.size();
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (!starts_code_point(text[i])) continue;
    if (count == max_length - CUT_MARKER.size()) cut = i;
    if (++count > max_length) return text.substr(0, cut) + std::string(CUT_MARKER);
  }
  return text;
}

std::string cap_docstring(const std::string& text) {
  return shortened(text, MAX_DOCSTRING_LENGTH);
}

}  // namespace tarnwick::cli
