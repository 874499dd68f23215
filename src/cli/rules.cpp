#include "cli/rules.hpp"

#include <string_view>

#include "engines/markdown/utf8.hpp"

namespace tarnwick::cli {

namespace {

constexpr std::size_t MAX_DOCSTRING_LENGTH = 1000;
constexpr std::string_view CUT_MARKER = "...";

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
  namespace utf8 = engines::markdown::detail;
  if (utf8::code_point_count(text) <= max_length) return text;
  return std::string(utf8::first_code_points(text, max_length - CUT_MARKER.size())) +
         std::string(CUT_MARKER);
}

std::string cap_docstring(const std::string& text) {
  return shortened(text, MAX_DOCSTRING_LENGTH);
}

}  // namespace tarnwick::cli
