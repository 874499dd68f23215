// `tarnwick-md index`: every Markdown file of the arguments as JSON Lines records.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "repo/selection.hpp"
#include "tarnwick/markdown.hpp"

namespace tarnwick::cli {

struct IndexOptions {
  std::vector<std::string> paths;
  repo::SelectionOptions selection;
  bool list_files = false;  // print the selected files instead of their records
  bool verbose = false;
  bool quiet = false;  // no progress line
  unsigned jobs = 1;   // files indexed at once, each on its own thread
};

// Writes the records to `out` and problems to `err`; returns the exit status.
int run_index(const IndexOptions& options, std::ostream& out, std::ostream& err);

}  // namespace tarnwick::cli
