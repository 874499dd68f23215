#include "store/sqlite.hpp"

namespace tarnwick::store::sqlite {

void check(sqlite3* connection, int code) {
  if (code == SQLITE_OK || code == SQLITE_ROW || code == SQLITE_DONE) return;
  const char* message = connection ? sqlite3_errmsg(connection) : sqlite3_errstr(code);
  throw Error(code, message);
}

Statement::Statement(sqlite3* connection, std::string_view sql) {
  check(connection, sqlite3_prepare_v3(connection, sql.data(), static_cast<int>(sql.size()),
                                       SQLITE_PREPARE_PERSISTENT, &statement_, nullptr));
}

Statement& Statement::bind(int parameter, std::int64_t value) {
  check(sqlite3_db_handle(statement_), sqlite3_bind_int64(statement_, parameter, value));
  return *this;
}

Statement& Statement::bind(int parameter, std::string_view text) {
  // The text stays where it is until the statement runs: it is bound without a copy.
  check(sqlite3_db_handle(statement_),
        sqlite3_bind_text64(statement_, parameter, text.data(), text.size(), SQLITE_STATIC,
                            SQLITE_UTF8));
  return *this;
}

Statement& Statement::bind(int parameter, const std::optional<std::string>& text) {
  return text ? bind(parameter, std::string_view(*text)) : bind_null(parameter);
}

Statement& Statement::bind_blob(int parameter, const void* bytes, std::size_t size) {
  check(sqlite3_db_handle(statement_),
        sqlite3_bind_blob64(statement_, parameter, bytes, size, SQLITE_STATIC));
  return *this;
}

Statement& Statement::bind_null(int parameter) {
  check(sqlite3_db_handle(statement_), sqlite3_bind_null(statement_, parameter));
  return *this;
}

bool Statement::step() {
  const int code = sqlite3_step(statement_);
  if (code == SQLITE_ROW) return true;
  if (code == SQLITE_DONE) return false;
  // The statement's own error, before a reset could replace it.
  const Error error(code, sqlite3_errmsg(sqlite3_db_handle(statement_)));
  sqlite3_reset(statement_);
  throw error;
}

void Statement::run() {
  while (step()) {
  }
  reset();
}

void Statement::reset() {
  sqlite3_reset(statement_);
  sqlite3_clear_bindings(statement_);
}

bool Statement::is_null(int column) const {
  return sqlite3_column_type(statement_, column) == SQLITE_NULL;
}

std::int64_t Statement::integer(int column) const {
  return sqlite3_column_int64(statement_, column);
}

std::string_view Statement::text(int column) const {
  const auto* bytes = reinterpret_cast<const char*>(sqlite3_column_text(statement_, column));
  return {bytes ? bytes : "", static_cast<std::size_t>(sqlite3_column_bytes(statement_, column))};
}

std::optional<std::string> Statement::optional_text(int column) const {
  if (is_null(column)) return std::nullopt;
  return std::string(text(column));
}

std::string_view Statement::blob(int column) const {
  const auto* bytes = static_cast<const char*>(sqlite3_column_blob(statement_, column));
  return {bytes ? bytes : "", static_cast<std::size_t>(sqlite3_column_bytes(statement_, column))};
}

Connection::Connection(const std::filesystem::path& file, int flags) {
  const int code = sqlite3_open_v2(file.c_str(), &connection_, flags, nullptr);
  if (code != SQLITE_OK) {
    const Error error(code, connection_ ? sqlite3_errmsg(connection_) : sqlite3_errstr(code));
    sqlite3_close_v2(std::exchange(connection_, nullptr));
    throw error;
  }
  sqlite3_extended_result_codes(connection_, 1);
}

void Connection::execute(std::string_view sql) {
  check(connection_,
        sqlite3_exec(connection_, std::string(sql).c_str(), nullptr, nullptr, nullptr));
}

std::int64_t Connection::integer(std::string_view sql) {
  Statement statement(connection_, sql);
  return statement.step() ? statement.integer(0) : 0;
}

std::string describe(const Error& error, const std::string& file) {
  switch (error.code()) {
    case SQLITE_NOTADB:
      return file + " is not a tarnwick-md store: not an SQLite database";
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
      return file + " is busy: another process is updating it (" + error.what() + ")";
    case SQLITE_READONLY:
      return "cannot write " + file + ": it is read-only (" + error.what() + ")";
    case SQLITE_CANTOPEN:
      return "cannot open " + file + ": " + error.what();
    case SQLITE_CORRUPT:
      return file + " is damaged (" + error.what() + "): --rebuild starts over";
    case SQLITE_FULL:
      return "cannot write " + file + ": the disk is full";
    default:
      return file + ": " + error.what();
  }
}

ReadTransaction::ReadTransaction(Connection& connection) : connection_(connection) {
  // A deferred transaction takes its snapshot at the first read.
  connection_.execute("BEGIN");
}

ReadTransaction::~ReadTransaction() {
  sqlite3_exec(connection_.get(), "COMMIT", nullptr, nullptr, nullptr);
}

WriteTransaction::WriteTransaction(Connection& connection) : connection_(connection) {
  connection_.execute("BEGIN IMMEDIATE");
}

WriteTransaction::~WriteTransaction() {
  if (!done_) sqlite3_exec(connection_.get(), "ROLLBACK", nullptr, nullptr, nullptr);
}

void WriteTransaction::commit() {
  connection_.execute("COMMIT");
  done_ = true;
}

void use_write_ahead_log(Connection& connection) {
  bool wal = false;
  {
    auto mode = connection.prepare("PRAGMA journal_mode");
    wal = mode.step() && mode.text(0) == "wal";
  }  // finalised: a statement still running is a transaction still open
  if (!wal) connection.execute("PRAGMA journal_mode = WAL");
}

}  // namespace tarnwick::store::sqlite
