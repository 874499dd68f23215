#include "cli/usage.hpp"

#include <algorithm>
#include <vector>

namespace tarnwick::cli {

namespace {

// Edits between two words: insertions, deletions, substitutions and swaps of neighbours.
std::size_t distance(std::string_view a, std::string_view b) {
  std::vector<std::vector<std::size_t>> d(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
  for (std::size_t i = 0; i <= a.size(); ++i) d[i][0] = i;
  for (std::size_t j = 0; j <= b.size(); ++j) d[0][j] = j;
  for (std::size_t i = 1; i <= a.size(); ++i) {
    for (std::size_t j = 1; j <= b.size(); ++j) {
      d[i][j] = std::min(
          {d[i - 1][j] + 1, d[i][j - 1] + 1, d[i - 1][j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1)});
      if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
        d[i][j] = std::min(d[i][j], d[i - 2][j - 2] + 1);
      }
    }
  }
  return d[a.size()][b.size()];
}

}  // namespace

std::optional<std::string> nearest(std::string_view word, std::span<const std::string> candidates) {
  // Options are compared without their dashes; a word of one or two letters is too short to
  // guess from.
  const auto letters = [](std::string_view w) {
    return w.substr(std::min(w.find_first_not_of('-'), w.size()));
  };
  if (letters(word).size() < 3) return std::nullopt;
  std::optional<std::string> best;
  std::size_t best_distance = letters(word).size() / 3 + 1;
  for (const std::string& candidate : candidates) {
    const std::size_t d = distance(letters(word), letters(candidate));
    if (d < best_distance) {
      best = candidate;
      best_distance = d;
    }
  }
  return best;
}

}  // namespace tarnwick::cli
