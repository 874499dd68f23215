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

// The XXH3-128 hash of a file's bytes as read: what tells a store that a file's content is one
// it has seen, at the speed of reading.
struct ContentHash {
  std::uint64_t high = 0;
  std::uint64_t low = 0;
  bool operator==(const ContentHash&) const = default;
};
ContentHash content_hash(std::string_view bytes);

// One file read and indexed: what the engine found, or why the file could not be read.
struct Extracted {
  std::int64_t file_id = 0;
  std::size_t bytes = 0;  // the size of the file read
  ContentHash hash;       // of the bytes read
  bool parsed = false;    // whether the engine ran on them
  IndexedDocument found;
  // Whether the first section is named by the front matter's title: no heading of the
  // document, which GitHub renders as a table.
  bool titled_by_front_matter = false;
  std::vector<std::string> debug_lines;
  std::optional<ReadError> error;
};

// Whether to run the engine on a file once read, given its hash; called on the reading
// thread. A file turned down keeps its size and hash, and no records.
using ParseFilter = std::function<bool(const ContentHash&)>;

// Reads a file and runs the engine on it with the indexer's default rules (unless `parse_if`
// turns it down). Never throws: a failure becomes the file's error.
Extracted extract_file(const SourceFile& file, std::int64_t file_id, bool verbose,
                       const ParseFilter& parse_if = {});

// Extracts the files on `jobs` threads and hands each result to `emit` in file order, on the
// calling thread, which may keep it; the files' file_ids count from `first_file_id`. When
// `emit` returns false, no further file is extracted or emitted.
void extract_in_order(const std::vector<SourceFile>& files, std::int64_t first_file_id,
                      unsigned jobs, bool verbose,
                      const std::function<bool(const SourceFile&, Extracted&&)>& emit,
                      const ParseFilter& parse_if = {});

}  // namespace tarnwick::repo
