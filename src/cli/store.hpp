// The index store on the command line: `index --db`, `export`, `refs` and `symbols`.
#pragma once

#include <cstddef>
#include <iosfwd>
#include <optional>
#include <string>

#include "cli/index.hpp"

namespace tarnwick::cli {

struct UpdateCommand {
  IndexOptions index;  // the paths, selection, jobs, -v and -q of `index`
  std::string db;
  bool rebuild = false;
  bool repeat = false;  // no PATH was given: repeat the last update's paths and selection
};

struct QueryCommand {
  std::string db;
  std::string question;  // the target of refs, the words of symbols
  bool json = false;     // the records of `index` instead, as JSON Lines
  std::optional<std::size_t> limit;
};

// Each writes its output to `out` and problems to `err`, and returns the exit status: 0, 1
// when some input could not be read (an update, an export) or nothing was found (a query), 2
// when the store cannot be used.
int run_update(const UpdateCommand& command, std::ostream& err);
int run_export(const std::string& db, std::ostream& out, std::ostream& err);
int run_refs(const QueryCommand& command, std::ostream& out, std::ostream& err);
int run_symbols(const QueryCommand& command, std::ostream& out, std::ostream& err);

}  // namespace tarnwick::cli
