// How a document's sections nest: each lies within the sections before it that end no earlier.
#pragma once

#include <cstddef>
#include <span>
#include <vector>

#include "tarnwick/models.hpp"

namespace tarnwick::repo {

inline constexpr std::size_t NO_PARENT = static_cast<std::size_t>(-1);

// For each section (in document order, as the engine gives them), the index of the section
// that holds it most closely, or NO_PARENT.
std::vector<std::size_t> section_parents(std::span<const Symbol> sections);

}  // namespace tarnwick::repo
