// The command line's output: a write that fails is never silent.
#pragma once

#include <iosfwd>

namespace tarnwick::cli {

// Flushes `out`; when it or an earlier write to it failed, writes
// "tarnwick-md: write error: <reason>" to `err` and returns false.
bool flushed(std::ostream& out, std::ostream& err);

}  // namespace tarnwick::cli
