// Running the engine on Markdown text through the real grammar, with the indexer's rules.
#pragma once

#include <string>
#include <vector>

#include "tarnwick/engines/markdown.hpp"

namespace tarnwick::testing {

struct Indexed {
  std::vector<Symbol> symbols;
  std::vector<engines::references::ReferenceInfo> references;
  std::vector<std::string> debug_lines;
};

// Parses `text` and runs both engine calls on it, as `tarnwick-md index` does.
Indexed index_text(const std::string& text, const std::string& prefix = "README");

}  // namespace tarnwick::testing
