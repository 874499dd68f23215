// Which files of a repository are read, in which order, and under which names.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "repo/links.hpp"

namespace tarnwick::repo {

struct SourceFile {
  std::filesystem::path location;  // where to read it
  std::string path;                // relative to its argument, with "/" separators
  std::string prefix;              // the FQN prefix of its symbols
  // Where a link's leading "/" starts, written as `path` is: its directory argument, or a file
  // argument's folder ("" unless paths are written from the current directory).
  std::string root;
};

// A file or argument that could not be read, and why.
struct ReadError {
  std::string what;
  std::string reason;
};

// The error as every tool says it: "cannot read WHAT: REASON".
std::string describe(const ReadError& error);

struct Selection {
  std::vector<SourceFile> files;
  std::vector<ReadError> errors;
};

// How arguments become files. The defaults select as the record format says.
struct SelectionOptions {
  std::optional<std::string> prefix;      // the FQN prefix of a single file argument
  std::optional<std::string> stdin_path;  // the path under which "-" (stdin) is indexed
  bool hidden = false;                    // walk entries whose name starts with "." too
  bool follow = false;                    // follow symbolic links
  bool git_ignores = true;   // leave out what .gitignore files and git's excludes ignore
  bool ignore_files = true;  // and, with git_ignores, what .ignore files do (a tools' convention)
  bool paths_from_cwd = false;        // paths relative to the current directory, not the argument
  std::vector<std::string> excludes;  // globs: a name (or, with a "/", a path) that matches is out
};

// The files of the arguments: a file argument is taken as it is, "-" is stdin; a directory is
// walked for Markdown files, skipping node_modules and what the options leave out. Within an
// argument files come in byte order of their paths; arguments in the order given. An entry that
// cannot be read is named in the errors, and the walk goes on.
Selection select_files(const std::vector<std::string>& arguments,
                       const SelectionOptions& options = {});

// Every file and directory under a root that the options keep (Markdown or not; a symbolic
// link not followed counts as a file), as sorted paths from the root with "/" separators; the
// same walk as select_files.
struct Tree {
  std::vector<std::string> files;
  std::vector<std::string> directories;
  std::vector<ReadError> errors;
};
Tree list_tree(const std::filesystem::path& root, const SelectionOptions& options);

// The bytes of a file, or none with `reason` set to why it could not be read.
std::optional<std::string> read_file(const std::filesystem::path& location, std::string& reason);

}  // namespace tarnwick::repo
