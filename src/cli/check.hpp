// `tarnwick-md check`: the problems of a repository's links, written in the format asked for.
#pragma once

#include <iosfwd>
#include <optional>
#include <string>

#include "check/find.hpp"

namespace tarnwick::cli {

// Known problems: a baseline file to report only the problems it does not know, or one to
// record the run's problems in instead of reporting them.
struct BaselineFiles {
  std::optional<std::string> compare_with;
  std::optional<std::string> write_to;
};

// Writes the problems to `out` (with a baseline, only the new ones, except in SARIF, which
// marks each new or unchanged), a summary and errors to `err`. Returns 0 when there is no
// (new) problem or a baseline was written, 1 when there are, 2 when an input could not be
// read or the output written.
int run_check(const check::CheckOptions& options, const BaselineFiles& baseline, std::ostream& out,
              std::ostream& err);

}  // namespace tarnwick::cli
