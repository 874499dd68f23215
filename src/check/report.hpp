// The problems `tarnwick-md check` found, written for people, for programs and for CI.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "check/check.hpp"

namespace tarnwick::check {

enum class Format { text, json, sarif, github };

// A problem's message, and its suggestion when there is one, as people read it.
std::string message_with_suggestion(const Problem& problem);

// Problems whose `path` is as the reader should open it (from the current directory).
// text: "path:line:column: code: message", and the suggestion after it;
// json: JSON Lines, one problem a line;
// sarif: one SARIF 2.1.0 log for code scanning, with each result's baselineState when the
//   problems were compared with a baseline;
// github: workflow commands that annotate the files of a pull request.
std::string format_problems(const std::vector<Problem>& problems, Format format);

}  // namespace tarnwick::check
