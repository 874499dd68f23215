// `tarnwick-md index`: every Markdown file of the arguments as JSON Lines records.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include "cli/files.hpp"
#include "tarnwick/markdown.hpp"

namespace tarnwick::cli {

struct IndexOptions {
  std::vector<std::string> paths;
  SelectionOptions selection;
  bool list_files = false;  // print the selected files instead of their records
  bool verbose = false;
  bool quiet = false;  // no progress line
  unsigned jobs = 1;   // files indexed at once, each on its own thread
};

// One file read and indexed: what the engine found, or why the file could not be read.
struct Extracted {
  std::int64_t file_id = 0;
  std::size_t bytes = 0;  // the size of the file read
  IndexedDocument found;
  std::vector<std::string> debug_lines;
  std::optional<ReadError> error;
};

// Reads a file and runs the engine on it with the indexer's default rules. Never throws: a
// failure becomes the file's error.
Extracted extract_file(const SourceFile& file, std::int64_t file_id, bool verbose);

// Extracts the files on `jobs` threads and hands each result to `emit` in file order, on the
// calling thread; the files' file_ids count from `first_file_id`. When `emit` returns false,
// no further file is extracted or emitted.
void extract_in_order(const std::vector<SourceFile>& files, std::int64_t first_file_id,
                      unsigned jobs, bool verbose,
                      const std::function<bool(const SourceFile&, const Extracted&)>& emit);

// Writes the records to `out` and problems to `err`; returns the exit status.
int run_index(const IndexOptions& options, std::ostream& out, std::ostream& err);

}  // namespace tarnwick::cli
