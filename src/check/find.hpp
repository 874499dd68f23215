// Every link of a repository's Markdown files checked as github.com renders them.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "check/check.hpp"
#include "check/report.hpp"
#include "repo/selection.hpp"

namespace tarnwick::check {

struct CheckOptions {
  std::vector<std::string> paths;     // files and directories; a directory is a repository root
  std::optional<std::string> root;    // the one root of all the paths instead
  repo::SelectionOptions selection;   // which Markdown files have their links checked
  std::vector<Code> ignored;          // problems not reported
  std::vector<std::string> accepted;  // globs of targets, as written, known to be fine
  Format format = Format::text;
  bool wiki = false;                        // check [[wiki links]] too
  bool report_unused_suppressions = false;  // a tarnwick-md-ignore comment that silences nothing
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

}  // namespace tarnwick::check
