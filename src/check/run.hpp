// `tarnwick-md check`: every link of a repository's Markdown files checked as github.com renders
// them.
#pragma once

#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include "check/check.hpp"
#include "check/report.hpp"
#include "cli/files.hpp"

namespace tarnwick::check {

struct CheckOptions {
  std::vector<std::string> paths;   // files and directories; a directory is a repository root
  std::optional<std::string> root;  // the one root of all the paths instead
  cli::SelectionOptions selection;  // which Markdown files have their links checked
  std::vector<Code> ignored;        // problems not reported
  Format format = Format::text;
  bool wiki = false;  // check [[wiki links]] too
  // Only links from these files and into them: paths from the current directory, or what git
  // says changed since a commit.
  std::vector<std::string> changed;
  std::optional<std::string> changed_since;
  unsigned jobs = 1;  // files read at once
};

struct CheckResult {
  std::vector<Problem> problems;  // in the order of the paths, their paths as given
  std::size_t files = 0;          // checked
  std::size_t links = 0;          // checked
  // Inputs that could not be read, and files not under their root; the rest was checked.
  std::vector<std::string> errors;
  std::optional<std::string> stopped;  // why nothing could be checked (--changed-since)
};

// The problems of the links of the paths' Markdown files, with their suggestions.
CheckResult find_problems(const CheckOptions& options);

// Writes the problems to `out`, a summary and errors to `err`. Returns 0 when there is no
// problem, 1 when there are, 2 when an input could not be read or the output written.
int run_check(const CheckOptions& options, std::ostream& out, std::ostream& err);

}  // namespace tarnwick::check
