// The incremental update: stat every selected file, read those whose status changed, and run
// the engine only on content the store does not hold.
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <deque>
#include <thread>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "repo/links.hpp"
#include "store/records.hpp"
#include "store/schema.hpp"
#include "store/store.hpp"

namespace tarnwick::store {

namespace {

using repo::ContentHash;

// A file's status as stat gives it; a file whose status is as stored is not read again. The
// change time moves with every write, but also when the file's permissions change or its
// modification time is set back, which the modification time alone would not tell.
struct FileStatus {
  std::int64_t size = 0;
  std::int64_t mtime_ns = 0;
  std::int64_t ctime_ns = 0;
  std::int64_t inode = 0;
  bool operator==(const FileStatus&) const = default;
};

std::int64_t nanoseconds(const timespec& time) {
  return static_cast<std::int64_t>(time.tv_sec) * 1'000'000'000 + time.tv_nsec;
}

std::optional<FileStatus> status_of(const std::filesystem::path& location) {
  struct stat status {};
  if (::stat(location.c_str(), &status) != 0) return std::nullopt;
  return FileStatus{static_cast<std::int64_t>(status.st_size), nanoseconds(status.st_mtim),
                    nanoseconds(status.st_ctim), static_cast<std::int64_t>(status.st_ino)};
}

// The status of each file, taken on up to `jobs` threads: looking a path up is most of what a
// warm update of a large tree does, and it keeps a core busy.
std::vector<std::optional<FileStatus>> statuses_of(const std::vector<repo::SourceFile>& files,
                                                   unsigned jobs) {
  constexpr std::size_t FILES_PER_THREAD = 512;
  std::vector<std::optional<FileStatus>> statuses(files.size());
  const std::size_t threads =
      std::clamp<std::size_t>(files.size() / FILES_PER_THREAD, 1, std::max(jobs, 1U));
  const auto take = [&](std::size_t part) {
    const std::size_t end = files.size() * (part + 1) / threads;
    for (std::size_t index = files.size() * part / threads; index < end; ++index) {
      statuses[index] = status_of(files[index].location);
    }
  };
  std::vector<std::jthread> helpers;
  for (std::size_t part = 1; part < threads; ++part) helpers.emplace_back(take, part);
  take(0);
  helpers.clear();  // joins them
  return statuses;
}

std::int64_t now_ns() {
  timespec now{};
  ::clock_gettime(CLOCK_REALTIME, &now);
  return nanoseconds(now);
}

// A file written or changed this close to the start of an update, or after it, may change
// again within the same times (file systems keep coarse times, some to two seconds): its status
// is not trusted, and the next update reads it again.
constexpr std::int64_t RACY_NS = 3'000'000'000;

struct HashOfContent {
  std::size_t operator()(const ContentHash& hash) const { return hash.low; }
};

// The hash as stored: 16 bytes, the high half first, each big-endian.
std::string hash_bytes(const ContentHash& hash) {
  std::string bytes(16, '\0');
  for (int i = 0; i < 8; ++i) {
    bytes[i] = static_cast<char>(hash.high >> (56 - 8 * i));
    bytes[8 + i] = static_cast<char>(hash.low >> (56 - 8 * i));
  }
  return bytes;
}

std::optional<ContentHash> hash_of(std::string_view bytes) {
  if (bytes.size() != 16) return std::nullopt;
  ContentHash hash;
  for (int i = 0; i < 8; ++i) {
    hash.high = hash.high << 8 | static_cast<unsigned char>(bytes[i]);
    hash.low = hash.low << 8 | static_cast<unsigned char>(bytes[8 + i]);
  }
  return hash;
}

// A file as the store held it when the update began.
struct StoredRow {
  std::int64_t key = 0;
  std::int64_t position = 0;
  FileNames names;
  std::optional<FileStatus> status;
  bool trusted = false;
  std::optional<ContentHash> hash;  // none when it could not be read
};

std::vector<StoredRow> stored_rows(sqlite::Connection& connection) {
  std::vector<StoredRow> rows;
  auto query = connection.prepare(
      "SELECT id, position, path, prefix, root, size, mtime_ns, ctime_ns, inode, trusted, hash "
      "FROM files");
  while (query.step()) {
    StoredRow& row = rows.emplace_back();
    row.key = query.integer(0);
    row.position = query.integer(1);
    row.names = {std::string(query.text(2)), std::string(query.text(3)),
                 std::string(query.text(4))};
    if (!query.is_null(5)) {
      row.status =
          FileStatus{query.integer(5), query.integer(6), query.integer(7), query.integer(8)};
    }
    row.trusted = query.integer(9) != 0;
    if (!query.is_null(10)) row.hash = hash_of(query.blob(10));
  }
  // In file order (sorted here rather than read through the index of positions: faster).
  std::sort(rows.begin(), rows.end(), [](const StoredRow& a, const StoredRow& b) {
    return std::pair(a.position, a.key) < std::pair(b.position, b.key);
  });
  return rows;
}

// The selection's switches, stored as "1" or "0" under these names.
constexpr std::array<std::pair<std::string_view, bool repo::SelectionOptions::*>, 5> SWITCHES = {{
    {"hidden", &repo::SelectionOptions::hidden},
    {"follow", &repo::SelectionOptions::follow},
    {"git_ignores", &repo::SelectionOptions::git_ignores},
    {"ignore_files", &repo::SelectionOptions::ignore_files},
    {"paths_from_cwd", &repo::SelectionOptions::paths_from_cwd},
}};

// The sources of the last update; none before the first.
std::optional<Sources> stored_sources(sqlite::Connection& connection) {
  auto rows = connection.prepare("SELECT name, value FROM sources ORDER BY ordinal");
  std::optional<Sources> sources;
  while (rows.step()) {
    if (!sources) sources.emplace();
    const std::string_view name = rows.text(0);
    std::string value(rows.text(1));
    repo::SelectionOptions& selection = sources->selection;
    if (name == "path") {
      sources->paths.push_back(std::move(value));
    } else if (name == "exclude") {
      selection.excludes.push_back(std::move(value));
    } else if (name == "prefix") {
      selection.prefix = std::move(value);
    } else {
      for (const auto& [switch_name, member] : SWITCHES) {
        if (name == switch_name) selection.*member = value == "1";
      }
    }
  }
  return sources;
}

// Stores the sources of an update and what of them could not be read, unless the store holds
// them already: an update that changes nothing writes nothing.
void store_sources(sqlite::Connection& connection, const Sources& sources,
                   const std::vector<repo::ReadError>& problems) {
  std::vector<std::pair<std::string, std::string>> rows;
  const repo::SelectionOptions& selection = sources.selection;
  for (const std::string& path : sources.paths) rows.emplace_back("path", path);
  for (const std::string& glob : selection.excludes) rows.emplace_back("exclude", glob);
  if (selection.prefix) rows.emplace_back("prefix", *selection.prefix);
  for (const auto& [name, member] : SWITCHES) {
    rows.emplace_back(name, selection.*member ? "1" : "0");
  }
  for (const repo::ReadError& error : problems) rows.emplace_back(error.what, error.reason);

  std::vector<std::pair<std::string, std::string>> stored;
  auto query = connection.prepare(
      "SELECT name, value FROM (SELECT 0, ordinal, name, value FROM sources UNION ALL "
      "SELECT 1, ordinal, what, reason FROM problems ORDER BY 1, 2)");
  while (query.step()) stored.emplace_back(query.text(0), query.text(1));
  if (stored == rows) return;

  connection.execute("DELETE FROM sources; DELETE FROM problems");
  auto insert_source = connection.prepare("INSERT INTO sources(name, value) VALUES (?, ?)");
  auto insert_problem = connection.prepare("INSERT INTO problems(what, reason) VALUES (?, ?)");
  const std::size_t source_rows = rows.size() - problems.size();
  for (std::size_t row = 0; row < rows.size(); ++row) {
    (row < source_rows ? insert_source : insert_problem)
        .bind(1, rows[row].first)
        .bind(2, rows[row].second)
        .run();
  }
}

// The files whose symbols a new store puts into its search index at once: in batches as files
// are read, while the other threads parse, rather than all at the end, when they would idle.
constexpr std::size_t FILES_PER_TEXT_BATCH = 256;

// One update, inside its transaction.
class Update {
 public:
  Update(sqlite::Connection& connection, const UpdateOptions& options)
      : connection_(connection),
        options_(options),
        rows_(stored_rows(connection)),
        fresh_(rows_.empty()),
        reader_(connection),
        writer_(connection, fresh_ ? TextIndexing::batched : TextIndexing::per_file),
        insert_file_(connection.prepare(
            "INSERT INTO files(position, path, prefix, root, wiki_name, location, size, "
            "mtime_ns, ctime_ns, inode, trusted, hash, error) "
            "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?) RETURNING id")),
        update_file_(connection.prepare(
            "UPDATE files SET position = ?, path = ?, prefix = ?, root = ?, wiki_name = ?, "
            "location = ?, size = ?, mtime_ns = ?, ctime_ns = ?, inode = ?, trusted = ?, "
            "hash = ?, error = ? WHERE id = ?")),
        move_file_(connection.prepare("UPDATE files SET position = ? WHERE id = ?")),
        delete_file_(connection.prepare("DELETE FROM files WHERE id = ?")) {
    for (const StoredRow& row : rows_) {
      if (!row.hash) continue;
      known_.insert(*row.hash);
      holders_[*row.hash].push_back(row.key);
      content_of_.emplace(row.key, *row.hash);
    }
  }

  UpdateSummary run(const repo::Selection& selection) {
    const std::int64_t started = now_ns();
    const std::vector<repo::SourceFile>& files = selection.files;
    summary_.files = files.size();
    summary_.errors = selection.errors;
    match(files);

    // The files whose status is as stored keep their records unread.
    std::vector<repo::SourceFile> to_read;
    std::vector<std::size_t> read_index, unread_index;
    const std::vector<std::optional<FileStatus>> statuses = statuses_of(files, options_.jobs);
    keys_.assign(files.size(), 0);
    for (std::size_t index = 0; index < files.size(); ++index) {
      const auto row = row_of_[index];
      if (row && is_unchanged(rows_[*row], files[index], statuses[index])) {
        keys_[index] = rows_[*row].key;
        unread_index.push_back(index);
        ++summary_.unchanged;
      } else {
        to_read.push_back(files[index]);
        read_index.push_back(index);
      }
    }
    summary_.read = to_read.size();
    if (options_.reading) options_.reading(to_read.size());

    std::size_t next = 0;
    repo::extract_in_order(
        to_read, 1, options_.jobs, options_.verbose,
        [&](const repo::SourceFile& file, const repo::Extracted& extracted) {
          const std::size_t index = read_index[next++];
          if (options_.read) options_.read(file, extracted);
          take(index, file, statuses[index], started, extracted);
          if (fresh_ && next % FILES_PER_TEXT_BATCH == 0) writer_.index_new_text();
          return true;
        },
        [this](const ContentHash& hash) { return !known_.contains(hash); });

    for (std::size_t row = 0; row < rows_.size(); ++row) {
      if (selected_[row]) continue;
      writer_.remove(rows_[row].key);
      delete_file_.bind(1, rows_[row].key).run();
      ++summary_.removed;
    }
    // Records number files by their place in the selection, which files read have been given.
    for (const std::size_t index : unread_index) {
      const auto position = static_cast<std::int64_t>(index + 1);
      if (rows_[*row_of_[index]].position != position) {
        move_file_.bind(1, position).bind(2, keys_[index]).run();
      }
    }
    // The search index of a new store is then merged into one segment: left in several, the
    // following small updates merged them again now and then, rewriting up to half of it.
    if (fresh_) {
      writer_.index_new_text();
      connection_.execute("INSERT INTO symbol_text(symbol_text) VALUES ('optimize')");
    }
    return std::move(summary_);
  }

 private:
  // Pairs each selected file with the stored file of the same path, in order (a path may be
  // selected twice, from two arguments).
  void match(const std::vector<repo::SourceFile>& files) {
    constexpr std::size_t NONE = SIZE_MAX;
    // The first stored row of each path not paired yet, and after each row the next one of its
    // path.
    std::unordered_map<std::string_view, std::size_t> first;
    std::vector<std::size_t> next_of_path(rows_.size(), NONE);
    for (std::size_t row = rows_.size(); row-- > 0;) {
      const auto [found, added] = first.try_emplace(rows_[row].names.path, row);
      if (!added) next_of_path[row] = std::exchange(found->second, row);
    }
    selected_.assign(rows_.size(), false);
    row_of_.assign(files.size(), std::nullopt);
    for (std::size_t index = 0; index < files.size(); ++index) {
      const auto found = first.find(files[index].path);
      if (found == first.end() || found->second == NONE) continue;
      row_of_[index] = found->second;
      selected_[found->second] = true;
      found->second = next_of_path[found->second];
    }
    for (std::size_t row = 0; row < rows_.size(); ++row) {
      if (!selected_[row] && rows_[row].hash) vanished_[*rows_[row].hash].push_back(row);
    }
  }

  static bool is_unchanged(const StoredRow& row, const repo::SourceFile& file,
                           const std::optional<FileStatus>& status) {
    return row.hash && row.trusted && status && row.status == status &&
           row.names.prefix == file.prefix && row.names.root == file.root;
  }

  std::optional<std::int64_t> stored_key(std::optional<std::size_t> row) const {
    return row ? std::optional(rows_[*row].key) : std::nullopt;
  }

  // Stores what was read of a selected file: under its stored key, under the key of a file no
  // longer selected when it is that file moved, or under a new key.
  void take(std::size_t index, const repo::SourceFile& file,
            const std::optional<FileStatus>& status, std::int64_t started,
            const repo::Extracted& extracted) {
    const FileNames names{file.path, file.prefix, file.root};
    const auto row = row_of_[index];
    std::optional<std::int64_t> key = stored_key(row);
    if (extracted.error) return put_unreadable(index, key, file, *extracted.error);
    ContentHash hash = extracted.hash;
    const bool trusted = status && std::max(status->mtime_ns, status->ctime_ns) < started - RACY_NS;
    if (row && rows_[*row].hash == hash) {
      put_file(index, key, file, status, trusted, hash);
      if (rows_[*row].names.prefix == names.prefix && rows_[*row].names.root == names.root) {
        ++summary_.unchanged;
      } else {
        copy(*key, *key, names);
        ++summary_.reused;
      }
      return;
    }
    if (!row) key = take_over(hash);
    if (extracted.parsed) {
      key = put_file(index, key, file, status, trusted, hash);
      writer_.replace(*key, names, extracted.found, extracted.titled_by_front_matter);
      ++summary_.parsed;
    } else if (const auto source = holder(hash)) {
      key = put_file(index, key, file, status, trusted, hash);
      copy(*source, *key, names);
      ++summary_.reused;
    } else {
      // The files that held this content when the update began hold other records now.
      const repo::Extracted again = repo::extract_file(file, 0, options_.verbose);
      if (again.error) return put_unreadable(index, key, file, *again.error);
      hash = again.hash;
      key = put_file(index, key, file, std::nullopt, false, hash);
      writer_.replace(*key, names, again.found, again.titled_by_front_matter);
      ++summary_.parsed;
    }
    forget_content(*key);
    holders_[hash].push_back(*key);
    content_of_[*key] = hash;
  }

  // Gives the file `key` the records the file `source` holds (which may be itself, under
  // other names).
  void copy(std::int64_t source, std::int64_t key, const FileNames& names) {
    const bool titled = reader_.titled_by_front_matter(source);
    writer_.replace(key, names, reader_.read(source, names.prefix, 0), titled);
  }

  void put_unreadable(std::size_t index, std::optional<std::int64_t> key,
                      const repo::SourceFile& file, const repo::ReadError& error) {
    ++summary_.unreadable;
    summary_.errors.push_back(error);
    key = put_file(index, key, file, std::nullopt, false, std::nullopt, error.reason);
    forget_content(*key);
    writer_.remove(*key);
  }

  // Writes a selected file's row, under `key` or a new key; gives the key.
  std::int64_t put_file(std::size_t index, std::optional<std::int64_t> key,
                        const repo::SourceFile& file, const std::optional<FileStatus>& status,
                        bool trusted, const std::optional<ContentHash>& hash,
                        const std::optional<std::string>& error = std::nullopt) {
    const std::string location = file.location.string();
    const std::string wiki_name =
        repo::is_markdown(repo::name_of(file.path)) ? repo::wiki_name(file.path) : "";
    const std::string stored_hash = hash ? hash_bytes(*hash) : "";
    sqlite::Statement& statement = key ? update_file_ : insert_file_;
    statement.bind(1, static_cast<std::int64_t>(index + 1))
        .bind(2, file.path)
        .bind(3, file.prefix)
        .bind(4, file.root)
        .bind(6, location)
        .bind(11, std::int64_t{trusted})
        .bind(13, error);
    if (!wiki_name.empty()) statement.bind(5, wiki_name);
    if (status) {
      statement.bind(7, status->size)
          .bind(8, status->mtime_ns)
          .bind(9, status->ctime_ns)
          .bind(10, status->inode);
    }
    if (hash) statement.bind_blob(12, stored_hash.data(), stored_hash.size());
    if (key) {
      statement.bind(14, *key).run();
    } else {
      statement.step();
      key = statement.integer(0);
      statement.reset();
    }
    keys_[index] = *key;
    return *key;
  }

  // The key of a file no longer selected that held this content, which a new file of the same
  // content takes over: the file moved.
  std::optional<std::int64_t> take_over(const ContentHash& hash) {
    const auto found = vanished_.find(hash);
    if (found == vanished_.end() || found->second.empty()) return std::nullopt;
    const std::size_t row = found->second.front();
    found->second.pop_front();
    selected_[row] = true;
    return rows_[row].key;
  }

  // A stored file that holds the records of this content now.
  std::optional<std::int64_t> holder(const ContentHash& hash) const {
    const auto found = holders_.find(hash);
    if (found == holders_.end() || found->second.empty()) return std::nullopt;
    return found->second.front();
  }

  // The file `key` no longer holds the content it held.
  void forget_content(std::int64_t key) {
    const auto found = content_of_.find(key);
    if (found == content_of_.end()) return;
    auto& keys = holders_[found->second];
    keys.erase(std::remove(keys.begin(), keys.end(), key), keys.end());
    content_of_.erase(found);
  }

  sqlite::Connection& connection_;
  const UpdateOptions& options_;
  std::vector<StoredRow> rows_;
  bool fresh_;  // nothing stored: the search index is built in batches
  RecordReader reader_;
  RecordWriter writer_;
  sqlite::Statement insert_file_, update_file_, move_file_, delete_file_;

  std::unordered_set<ContentHash, HashOfContent> known_;  // content held when the update began
  // The stored files that hold the records of each content now, and each one's content.
  std::unordered_map<ContentHash, std::vector<std::int64_t>, HashOfContent> holders_;
  std::unordered_map<std::int64_t, ContentHash> content_of_;
  // The stored files not selected, by content, which a new file of that content takes over.
  std::unordered_map<ContentHash, std::deque<std::size_t>, HashOfContent> vanished_;

  std::vector<std::optional<std::size_t>> row_of_;  // each selected file's stored row
  std::vector<bool> selected_;                      // whether each stored row stays
  std::vector<std::int64_t> keys_;                  // each selected file's key
  UpdateSummary summary_;
};

}  // namespace

Result<UpdateSummary> Store::update(const std::optional<Sources>& given,
                                    const UpdateOptions& options) {
  if (access_ == Access::read) return Failure{name_ + " was opened for reading"};
  try {
    sqlite::WriteTransaction transaction(connection_);
    const schema::Found found = schema::inspect(connection_);
    std::optional<Sources> last;
    if (found.kind == schema::Kind::store) last = stored_sources(connection_);
    if (access_ == Access::rebuild && found.kind != schema::Kind::other) {
      schema::drop_all(connection_);
      schema::create(connection_);
    } else if (const auto refused = schema::refusal(found, name_)) {
      return Failure{*refused};
    } else if (found.kind == schema::Kind::empty) {
      schema::create(connection_);
    }
    const Sources sources = given ? *given : last.value_or(Sources{{"."}, {}});
    for (const std::string& path : sources.paths) {
      if (path == "-") return Failure{"a store indexes files it can read again, not '-' (stdin)"};
    }
    const repo::Selection selection = repo::select_files(sources.paths, sources.selection);
    Update update(connection_, options);
    UpdateSummary summary = update.run(selection);
    store_sources(connection_, sources, selection.errors);
    transaction.commit();
    access_ = Access::update;
    // A new store was written with a rollback journal (see Store::open); from now on readers
    // must see it whole during an update. Should another connection hold it at this moment,
    // the next update turns the log on.
    if (found.kind == schema::Kind::empty) {
      try {
        sqlite::use_write_ahead_log(connection_);
      } catch (const sqlite::Error&) {
      }
    }
    return summary;
  } catch (const sqlite::Error& error) {
    return Failure{sqlite::describe(error, name_)};
  }
}

}  // namespace tarnwick::store
