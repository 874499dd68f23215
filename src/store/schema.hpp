// The store's tables, and what tells a store from any other file.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "store/sqlite.hpp"

namespace tarnwick::store::schema {

// Written in the database header: "TWMD" marks a store, user_version its schema.
inline constexpr std::int64_t APPLICATION_ID = 0x54574D44;
inline constexpr std::int64_t VERSION = 1;

// What a database file holds, as its header and schema say.
enum class Kind {
  empty,  // nothing yet: a store is created in it
  store,  // a store of this schema version
  other_version,
  other,  // a database of something else
};
struct Found {
  Kind kind = Kind::empty;
  std::int64_t version = 0;
};
Found inspect(sqlite::Connection& connection);

// Creates the tables in an empty database, inside the caller's transaction.
void create(sqlite::Connection& connection);

// Drops every table, index and view of the database, inside the caller's transaction.
void drop_all(sqlite::Connection& connection);

// Why a database cannot be used as a store of this version, or none when it can; `file` names it.
std::optional<std::string> refusal(const Found& found, const std::string& file);

}  // namespace tarnwick::store::schema
