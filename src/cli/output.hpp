// The command line's output: a write that fails is never silent.
#pragma once

#include <iosfwd>
#include <string>
#include <string_view>

namespace tarnwick::cli {

// Flushes `out`; when it or an earlier write to it failed, writes
// "tarnwick-md: write error: <reason>" to `err` and returns false.
bool flushed(std::ostream& out, std::ostream& err);

// Text as a terminal may show it: control characters (C0, DEL and C1), which could move the
// cursor or retitle the window, are written as escapes (\x1b, \u{9b}).
std::string printable(std::string_view text);

}  // namespace tarnwick::cli
