// The index store: the records of a selection of Markdown files kept in a SQLite database,
// brought up to date by reading only what changed, written out exactly as `index` writes
// them, and asked which references lead to a file and which sections match some words. The
// schema is described in docs/store.md.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "repo/extraction.hpp"
#include "repo/selection.hpp"
#include "store/sqlite.hpp"
#include "tarnwick/markdown.hpp"

namespace tarnwick::store {

// Why a store could not be opened, updated or read: one line for a person, naming the store.
struct Failure {
  std::string message;
};

// A value, or the failure that left none.
template <typename T>
class Result {
 public:
  Result(T value) : value_(std::move(value)) {}
  Result(Failure failure) : value_(std::move(failure)) {}

  bool ok() const { return std::holds_alternative<T>(value_); }
  T& operator*() { return std::get<T>(value_); }
  T* operator->() { return &std::get<T>(value_); }
  const Failure& failure() const { return std::get<Failure>(value_); }

 private:
  std::variant<T, Failure> value_;
};

// How a store is opened.
enum class Access {
  read,     // for queries and export: the file must be a store already
  update,   // creates the store when the file does not exist or is empty
  rebuild,  // as update, but the update starts over: what the store held (whatever its schema
            // version) is dropped, in the update's own transaction
};

// What an update indexes: the arguments and file selection of `tarnwick-md index`.
struct Sources {
  std::vector<std::string> paths;
  repo::SelectionOptions selection;
};

struct UpdateOptions {
  unsigned jobs = 1;     // files read at once, each on its own thread
  bool verbose = false;  // keep the engine's debug lines of the files it parses
  // Told the number of files to read once it is known, then given each file read, in file
  // order, on the calling thread.
  std::function<void(std::size_t files)> reading;
  std::function<void(const repo::SourceFile&, const repo::Extracted&)> read;
};

// What an update did, file by file of the selection.
struct UpdateSummary {
  std::size_t files = 0;      // selected
  std::size_t read = 0;       // of them, read: their status was not as stored
  std::size_t parsed = 0;     // read and run through the engine
  std::size_t reused = 0;     // read, and given the records of a stored file of the same
                              // content: moved, copied or renamed
  std::size_t unchanged = 0;  // their records kept: not read (size, time and inode as stored), or
                              // read and found with the same content
  std::size_t unreadable = 0;
  std::size_t removed = 0;              // stored files no longer selected
  std::vector<repo::ReadError> errors;  // arguments, entries and files not read, in order
};

// A file of the store as the records name it.
struct StoredFile {
  std::int64_t key = 0;      // the store's own, kept while the file stays (also when renamed)
  std::int64_t file_id = 0;  // its place in the selection, as the records number it
  std::string path;
};

struct FoundReference {
  StoredFile file;
  engines::references::ReferenceInfo reference;
};

struct FoundSymbol {
  StoredFile file;
  std::int64_t key = 0;  // the store's own, kept while the file keeps a section of that FQN
  Symbol symbol;         // as `index` writes it: `id` stays none
};

// One connection to a store; owns it. A store is used from one thread at a time; any number of
// processes may read it while one updates it, and see it as it was before or after the update.
class Store {
 public:
  // Opens a store, waiting up to `busy_timeout` for another process's update to end when the
  // store must be written first.
  static Result<Store> open(const std::filesystem::path& file, Access access,
                            std::chrono::milliseconds busy_timeout);

  // Brings the store up to date with the files of `sources` (none: the last update's, or the
  // current directory for a new store), in one transaction: reads only the files whose size,
  // modification time or inode changed since they were stored, and runs the engine only on
  // those whose content the store does not hold. Files no longer selected are removed. A file
  // that cannot be read is named in the summary and kept without records, as `index` gives
  // none; what cannot be written to the store is a failure, and leaves the store as it was.
  Result<UpdateSummary> update(const std::optional<Sources>& sources, const UpdateOptions& options);

  // Hands each file's path, file_id and records to `emit` in file order, exactly as `index`
  // would give them for the sources of the last update; stops when `emit` returns false. Gives
  // what the last update could not read, as `index` reports it.
  Result<std::vector<repo::ReadError>> export_records(
      const std::function<bool(const StoredFile&, const IndexedDocument&)>& emit);

  // The references that lead to `target` (a path as the records write it, "#fragment" after
  // it naming an anchor), in file order; see docs/store.md for how links resolve.
  Result<std::vector<FoundReference>> references_to(std::string_view target);

  // The sections whose names, heading paths or docstrings hold every word of `query` (a word
  // ending in "*" is a prefix), best match first, at most `limit` of them.
  Result<std::vector<FoundSymbol>> symbols_matching(std::string_view query, std::size_t limit);

 private:
  Store(sqlite::Connection connection, std::string name, Access access)
      : connection_(std::move(connection)), name_(std::move(name)), access_(access) {}

  sqlite::Connection connection_;
  std::string name_;  // the file as given, for messages
  Access access_;
};

}  // namespace tarnwick::store
