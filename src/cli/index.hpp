// `tarnwick-md index`: every Markdown file of the arguments as JSON Lines records.
#pragma once

#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include "cli/files.hpp"
#include "tarnwick/tree.hpp"

namespace tarnwick::cli {

struct IndexOptions {
  std::vector<std::string> paths;
  std::optional<std::string> prefix;
  bool verbose = false;
  unsigned jobs = 1;  // files indexed at once, each on its own thread with its own parser
};

// What the engine found in one file, or why the file could not be read.
struct Extracted {
  std::size_t bytes = 0;  // the size of the file read
  std::vector<Symbol> symbols;
  std::vector<engines::references::ReferenceInfo> references;
  std::vector<std::string> debug_lines;
  std::optional<ReadError> error;
};

// Runs both engine calls on a parsed document with the indexer's default rules.
Extracted extract_document(const Document& document, const std::string& prefix,
                           std::int64_t file_id, bool verbose);

// Reads, parses and extracts a file as extract_document does.
Extracted extract_file(const SourceFile& file, std::int64_t file_id, const MarkdownParser& parser,
                       bool verbose);

// What indexing one file gave: its records, the engine's debug lines, or why it failed.
struct FileOutput {
  std::size_t bytes = 0;  // the size of the file read
  std::string records;
  std::vector<std::string> debug_lines;
  std::optional<ReadError> error;
};

FileOutput index_file(const SourceFile& file, std::int64_t file_id, const MarkdownParser& parser,
                      bool verbose);

// Writes the records to `out` and problems to `err`; returns the exit status.
int run_index(const IndexOptions& options, std::ostream& out, std::ostream& err);

}  // namespace tarnwick::cli
