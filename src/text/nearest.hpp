// The word nearest to a mistyped one: "did you mean" for people and for suggestions.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace tarnwick::text {

// The candidate nearest to a mistyped word, when one is near enough to be what was meant: at
// most a third of the word's letters apart (edits, a swap of neighbours counting as one), with
// an option's dashes not counted. Words of fewer than three letters get no suggestion.
std::optional<std::string> nearest(std::string_view word, std::span<const std::string> candidates);

}  // namespace tarnwick::text
