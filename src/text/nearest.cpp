#include "text/nearest.hpp"

#include <algorithm>
#include <vector>

namespace tarnwick::text {

namespace {

// Edits between two words: insertions, deletions, substitutions and swaps of neighbours. Three
// rows of the table are all it needs.
std::size_t distance(std::string_view a, std::string_view b) {
  std::vector<std::size_t> before(b.size() + 1), previous(b.size() + 1), row(b.size() + 1);
  for (std::size_t j = 0; j <= b.size(); ++j) previous[j] = j;
  for (std::size_t i = 1; i <= a.size(); ++i) {
    row[0] = i;
    for (std::size_t j = 1; j <= b.size(); ++j) {
      row[j] = std::min(
          {previous[j] + 1, row[j - 1] + 1, previous[j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1)});
      if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
        row[j] = std::min(row[j], before[j - 2] + 1);
      }
    }
    std::swap(before, previous);
    std::swap(previous, row);
  }
  return previous[b.size()];
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
    // Words that differ in length by the best distance found are at least that far apart.
    const std::size_t a = letters(word).size(), b = letters(candidate).size();
    if ((a > b ? a - b : b - a) >= best_distance) continue;
    const std::size_t d = distance(letters(word), letters(candidate));
    if (d < best_distance) {
      best = candidate;
      best_distance = d;
    }
  }
  return best;
}

}  // namespace tarnwick::text
