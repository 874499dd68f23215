// Views of Markdown files for people: their outlines as indented trees, and their links.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace tarnwick::cli {

struct ViewOptions {
  std::vector<std::string> paths;  // files, directories (walked as index walks them) or "-"
  bool json = false;               // the records of `index` instead, as JSON Lines
};

// `tarnwick-md outline PATH...` and `tarnwick-md links PATH...`; return the exit status.
int run_outline(const ViewOptions& options, std::ostream& out, std::ostream& err);
int run_links(const ViewOptions& options, std::ostream& out, std::ostream& err);

}  // namespace tarnwick::cli
