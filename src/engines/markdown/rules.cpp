#include "tarnwick/rules.hpp"

#include "text/utf8.hpp"

namespace tarnwick {

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

std::string cap_docstring(const std::string& text) {
  return text::shortened(text, MAX_DOCSTRING_LENGTH);
}

}  // namespace tarnwick
