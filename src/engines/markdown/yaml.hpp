// YAML front matter, loaded as YAML 1.1 safe loading loads it: plain data, standard tags only.
#pragma once

#include <cstddef>
#include <string_view>

#include "engines/markdown/fields.hpp"
#include "engines/markdown/log.hpp"

namespace tarnwick::engines::markdown::detail {

// Collections nested deeper than this make a body unreadable. Composing is iterative, so the
// limit is not about the stack: it keeps bodies of thousands of nested brackets cheap to refuse.
inline constexpr std::size_t MAX_YAML_DEPTH = 512;

// The "title" and "description" of a body that loads as one mapping, null where the mapping
// lacks them; empty for any other document. A body that does not load gives one debug line
// naming `prefix` and the loader's description of the problem, and no fields.
Fields yaml_fields(std::string_view body, std::string_view prefix, const Logger& log);

}  // namespace tarnwick::engines::markdown::detail
