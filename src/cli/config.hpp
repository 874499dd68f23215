// Which configuration file a command runs with, and how the command line's flags take
// precedence over it.
#pragma once

#include <optional>
#include <string>

#include "check/find.hpp"
#include "repo/config.hpp"
#include "repo/selection.hpp"

namespace tarnwick::cli {

// --config FILE and --no-config.
struct ConfigChoice {
  std::optional<std::string> file;
  bool none = false;
};

// Each reads the configuration (the file --config names, else .tarnwick-md.toml in the current
// directory when there is one; none with --no-config) and puts its settings under the flags':
// lists add up, and a flag given overrides the file's value. Returns the one line that says
// what is wrong with the file or the choice, if anything.
std::optional<std::string> configure_index(const ConfigChoice& choice,
                                           repo::SelectionOptions& selection);
// `wiki_given`: whether --wiki or --no-wiki was given.
std::optional<std::string> configure_check(const ConfigChoice& choice, check::CheckOptions& options,
                                           bool wiki_given);

}  // namespace tarnwick::cli
