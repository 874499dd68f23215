// Which files `tarnwick-md index` reads, in which order, and under which names.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace tarnwick::cli {

struct SourceFile {
  std::filesystem::path location;  // where to read it
  std::string path;                // relative to its argument, with "/" separators
  std::string prefix;              // the FQN prefix of its symbols
};

// A file or argument that could not be read, and why.
struct ReadError {
  std::string what;
  std::string reason;
};

struct Selection {
  std::vector<SourceFile> files;
  std::vector<ReadError> errors;
};

// The files of the arguments: a file argument is taken as it is; a directory is walked
// without following links, skipping hidden entries and node_modules, for Markdown files.
// Within an argument files come in byte order of their paths; arguments in the order given.
Selection select_files(const std::vector<std::string>& arguments,
                       const std::optional<std::string>& prefix);

// The bytes of a file, or none with `reason` set to why it could not be read.
std::optional<std::string> read_file(const std::filesystem::path& location, std::string& reason);

}  // namespace tarnwick::cli
