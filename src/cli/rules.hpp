// The indexer's default rules, shared by its engines.
#pragma once

#include <string>
#include <unordered_map>
#include <unordered_set>

namespace tarnwick::cli {

// Numbers repeated FQNs within one file: the candidate the first time, then candidate#n with
// the smallest n >= 2 not yet returned.
class UniqueFqns {
 public:
  std::string operator()(const std::string& candidate);

 private:
  std::unordered_set<std::string> returned_;
  std::unordered_map<std::string, unsigned long> next_number_;  // where the search for n resumes
};

// A text of more than `max_length` code points cut to fit that length with a final "...";
// shorter texts unchanged.
std::string shortened(const std::string& text, std::size_t max_length);

// Cuts a text of more than 1000 code points to its first 997 followed by "...".
std::string cap_docstring(const std::string& text);

}  // namespace tarnwick::cli
