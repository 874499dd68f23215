// Known problems. A baseline records a run's problems, so that a later run reports only the
// new ones: a project turns the check on without first fixing every link it has.
#pragma once

#include <cstddef>
#include <filesystem>
#include <map>
#include <string>
#include <tuple>
#include <variant>
#include <vector>

#include "check/check.hpp"

namespace tarnwick::check {

// A problem as a baseline knows it: by its file (from the root, so that the baseline holds
// wherever the check runs from), code and target, not by its line, so that an edit above it
// does not make it new.
using ProblemKey = std::tuple<std::string, std::string, std::string>;  // path, code, target
ProblemKey key_of(const Problem& problem);

// The problems of a baseline, each with how many times it was recorded.
using Baseline = std::map<ProblemKey, std::size_t>;

// The text of a baseline file: a JSON object whose "problems" are {"path", "code", "target"}
// objects, one a line, sorted, so that a baseline kept in git changes by the lines that do.
std::string baseline_text(const std::vector<Problem>& problems);

// The problems of a baseline file, or the one line that says why it cannot be read.
std::variant<Baseline, std::string> read_baseline(const std::filesystem::path& file);

// Marks each problem new or unchanged, in order: a known problem accounts for as many problems
// as it was recorded for. Returns how many known problems no longer occur: those fixed.
std::size_t compare_with_baseline(std::vector<Problem>& problems, Baseline baseline);

}  // namespace tarnwick::check
