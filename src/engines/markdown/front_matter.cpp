#include "engines/markdown/front_matter.hpp"

namespace tarnwick::engines::markdown::detail {

FrontMatter front_matter(Node, std::string_view, const Logger&) { return {}; }

}  // namespace tarnwick::engines::markdown::detail
