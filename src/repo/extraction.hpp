// Reading files and running the engine on them, on several threads, in file order.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "repo/selection.hpp"
#include "tarnwick/markdown.hpp"

namespace tarnwick::repo {

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
// calling thread, which may keep it; the files' file_ids count from `first_file_id`. When
// `emit` returns false, no further file is extracted or emitted.
void extract_in_order(const std::vector<SourceFile>& files, std::int64_t first_file_id,
                      unsigned jobs, bool verbose,
                      const std::function<bool(const SourceFile&, Extracted&&)>& emit);

}  // namespace tarnwick::repo
