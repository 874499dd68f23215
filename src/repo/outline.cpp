#include "repo/outline.hpp"

namespace tarnwick::repo {

std::vector<std::size_t> section_parents(std::span<const Symbol> sections) {
  std::vector<std::size_t> parents;
  parents.reserve(sections.size());
  std::vector<std::size_t> holders;
  for (std::size_t i = 0; i < sections.size(); ++i) {
    while (!holders.empty() && sections[holders.back()].end_line < sections[i].end_line) {
      holders.pop_back();
    }
    parents.push_back(holders.empty() ? NO_PARENT : holders.back());
    holders.push_back(i);
  }
  return parents;
}

}  // namespace tarnwick::repo
