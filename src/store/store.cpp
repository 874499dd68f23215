// Opening a store, and writing out its records.
#include "store/store.hpp"

#include <system_error>

#include "store/records.hpp"
#include "store/schema.hpp"

namespace tarnwick::store {

namespace fs = std::filesystem;

Result<Store> Store::open(const fs::path& file, Access access,
                          std::chrono::milliseconds busy_timeout) {
  const std::string name = file.string();
  try {
    std::error_code error;
    if (access == Access::read && !fs::exists(file, error)) return Failure{"no store at " + name};
    if (fs::is_directory(file, error)) return Failure{name + " is a directory, not a store"};
    const int flags =
        SQLITE_OPEN_NOMUTEX | (access == Access::read ? SQLITE_OPEN_READONLY
                                                      : SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
    sqlite::Connection connection(file, flags);
    sqlite3_busy_timeout(connection.get(), static_cast<int>(busy_timeout.count()));
    const schema::Found found = schema::inspect(connection);
    // SQLite takes a file shorter than its header for an empty database: it is someone's file.
    if (found.kind == schema::Kind::empty && fs::file_size(file, error) > 0 &&
        connection.integer("PRAGMA page_count") == 0) {
      return Failure{name + " is not a tarnwick-md store"};
    }
    if (found.kind == schema::Kind::other ||
        (found.kind == schema::Kind::other_version && access != Access::rebuild)) {
      return Failure{*schema::refusal(found, name)};
    }
    if (access == Access::read && found.kind == schema::Kind::empty) {
      return Failure{name + " is not a tarnwick-md store: it is empty"};
    }
    if (access != Access::read) {
      // Readers see the store as it was before an update until the update commits, and
      // are never blocked by it. A new store is written first with a rollback journal, which
      // holds nothing of pages the file never had: its records go to the file once, not to
      // the log and then again into the file (Store::update turns the log on after them).
      if (found.kind != schema::Kind::empty) sqlite::use_write_ahead_log(connection);
      // Pages wait in a cache of up to 32 MiB rather than spill into the log in the middle of
      // an update; the log, once copied into the store, shrinks to 4 MiB even while readers
      // keep it open.
      connection.execute(
          "PRAGMA synchronous = NORMAL; PRAGMA cache_size = -32768; "
          "PRAGMA journal_size_limit = 4194304");
    }
    return Store(std::move(connection), name, access);
  } catch (const sqlite::Error& error) {
    return Failure{sqlite::describe(error, name)};
  }
}

Result<std::vector<repo::ReadError>> Store::export_records(
    const std::function<bool(const StoredFile&, const IndexedDocument&)>& emit) {
  try {
    const sqlite::ReadTransaction transaction(connection_);
    std::vector<repo::ReadError> errors;
    auto problems = connection_.prepare("SELECT what, reason FROM problems ORDER BY ordinal");
    while (problems.step()) {
      errors.push_back({std::string(problems.text(0)), std::string(problems.text(1))});
    }
    auto unreadable = connection_.prepare(
        "SELECT location, error FROM files WHERE error IS NOT NULL ORDER BY position, id");
    while (unreadable.step()) {
      errors.push_back({std::string(unreadable.text(0)), std::string(unreadable.text(1))});
    }
    RecordReader reader(connection_);
    auto files = connection_.prepare(
        "SELECT id, position, path, prefix FROM files WHERE error IS NULL ORDER BY position, id");
    while (files.step()) {
      const StoredFile file{files.integer(0), files.integer(1), std::string(files.text(2))};
      if (!emit(file, reader.read(file.key, files.text(3), file.file_id))) break;
    }
    return errors;
  } catch (const sqlite::Error& error) {
    return Failure{sqlite::describe(error, name_)};
  }
}

}  // namespace tarnwick::store
