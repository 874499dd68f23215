// `tarnwick-md check`: the problems of a repository's links, written in the format asked for.
#pragma once

#include <iosfwd>

#include "check/find.hpp"

namespace tarnwick::cli {

// Writes the problems to `out`, a summary and errors to `err`. Returns 0 when there is no
// problem, 1 when there are, 2 when an input could not be read or the output written.
int run_check(const check::CheckOptions& options, std::ostream& out, std::ostream& err);

}  // namespace tarnwick::cli
