// The indexer's default rules, which it shares among its engines: FQN numbering and the length
// at which docstrings are stored.
#pragma once

#include <cstddef>
#include <string>
#include <unordered_map>
#include <unordered_set>

#include "tarnwick/export.hpp"

namespace tarnwick {

// The longest docstring stored, in code points.
inline constexpr std::size_t MAX_DOCSTRING_LENGTH = 1000;

// Numbers repeated FQNs within one file: the candidate the first time, then candidate#n with the
// smallest n >= 2 not yet returned. One object per file; not for use by several threads at once.
class TARNWICK_MARKDOWN_API UniqueFqns {
 public:
  std::string operator()(const std::string& candidate);

 private:
  std::unordered_set<std::string> returned_;
  std::unordered_map<std::string, unsigned long> next_number_;  // where the search for n resumes
};

// A text of more than MAX_DOCSTRING_LENGTH code points cut to its first 997 followed by "...";
// shorter texts unchanged. The text must be well-formed UTF-8.
TARNWICK_MARKDOWN_API std::string cap_docstring(const std::string& text);

}  // namespace tarnwick
