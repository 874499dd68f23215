// A thin hold on SQLite for the store: a connection and prepared statements that close
// themselves. A failed call throws sqlite::Error, which never leaves the store: each of the
// store's calls turns it into a failure value.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

namespace tarnwick::store::sqlite {

// A failed SQLite call: its primary result code and SQLite's message.
class Error : public std::runtime_error {
 public:
  Error(int code, const std::string& message) : std::runtime_error(message), code_(code) {}
  int code() const { return code_ & 0xFF; }

 private:
  int code_;
};

// A prepared statement of a connection; owns it, and finalises it when destroyed. Parameters
// and columns count from 1 and 0, as in SQLite.
class Statement {
 public:
  Statement(sqlite3* connection, std::string_view sql);
  Statement(Statement&& other) noexcept : statement_(std::exchange(other.statement_, nullptr)) {}
  Statement& operator=(Statement&&) = delete;
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;
  ~Statement() { sqlite3_finalize(statement_); }

  Statement& bind(int parameter, std::int64_t value);
  Statement& bind(int parameter, std::string_view text);
  Statement& bind(int parameter, const std::string& text) {
    return bind(parameter, std::string_view(text));
  }
  Statement& bind(int parameter, const std::optional<std::string>& text);
  Statement& bind_blob(int parameter, const void* bytes, std::size_t size);
  Statement& bind_null(int parameter);

  // Steps once: true when a row is there to read, false when the statement is done.
  bool step();
  // Runs a statement that gives no rows, then makes it ready to run again.
  void run();
  // Makes it ready to run again, with no parameters bound.
  void reset();

  bool is_null(int column) const;
  std::int64_t integer(int column) const;
  std::string_view text(int column) const;
  std::optional<std::string> optional_text(int column) const;
  std::string_view blob(int column) const;

 private:
  sqlite3_stmt* statement_ = nullptr;
};

// A connection to a database file; closes it when destroyed.
class Connection {
 public:
  // Opens a file with sqlite3_open_v2's flags; throws Error when it cannot.
  Connection(const std::filesystem::path& file, int flags);
  Connection(Connection&& other) noexcept
      : connection_(std::exchange(other.connection_, nullptr)) {}
  Connection& operator=(Connection&&) = delete;
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  ~Connection() { sqlite3_close_v2(connection_); }

  sqlite3* get() const { return connection_; }
  // Runs one or more statements that give no rows.
  void execute(std::string_view sql);
  // The integer the first column of the first row of a query holds.
  std::int64_t integer(std::string_view sql);
  Statement prepare(std::string_view sql) { return Statement(connection_, sql); }

 private:
  sqlite3* connection_ = nullptr;
};

// Throws Error for a result code that is a failure.
void check(sqlite3* connection, int code);

// What a failure means for the store in `file`, as one line for a person.
std::string describe(const Error& error, const std::string& file);

// A transaction that reads one snapshot of the database, whatever commits meanwhile; ended when
// destroyed.
class ReadTransaction {
 public:
  explicit ReadTransaction(Connection& connection);
  ReadTransaction(const ReadTransaction&) = delete;
  ReadTransaction& operator=(const ReadTransaction&) = delete;
  ~ReadTransaction();

 private:
  Connection& connection_;
};

// A transaction that writes, begun at once so that it waits for any other writer first; rolled
// back when destroyed before commit().
class WriteTransaction {
 public:
  explicit WriteTransaction(Connection& connection);
  WriteTransaction(const WriteTransaction&) = delete;
  WriteTransaction& operator=(const WriteTransaction&) = delete;
  ~WriteTransaction();
  void commit();

 private:
  Connection& connection_;
  bool done_ = false;
};

// Puts the database in write-ahead log mode, unless it is already.
void use_write_ahead_log(Connection& connection);

}  // namespace tarnwick::store::sqlite
