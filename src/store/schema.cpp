#include "store/schema.hpp"

#include <string_view>
#include <vector>

namespace tarnwick::store::schema {

namespace {

// docs/store.md describes each table and column; keep the two together.
constexpr std::string_view TABLES = R"sql(
CREATE TABLE files (
  id INTEGER PRIMARY KEY,
  position INTEGER NOT NULL,
  path TEXT NOT NULL,
  prefix TEXT NOT NULL,
  root TEXT NOT NULL,
  wiki_name TEXT,
  location TEXT NOT NULL,
  size INTEGER,
  mtime_ns INTEGER,
  ctime_ns INTEGER,
  inode INTEGER,
  trusted INTEGER NOT NULL,
  hash BLOB,
  error TEXT
);
CREATE INDEX files_by_position ON files(position);
CREATE INDEX files_by_wiki_name ON files(wiki_name) WHERE wiki_name IS NOT NULL;

CREATE TABLE symbols (
  id INTEGER PRIMARY KEY,
  file INTEGER NOT NULL REFERENCES files(id),
  ordinal INTEGER NOT NULL,
  name TEXT NOT NULL,
  kind TEXT NOT NULL,
  local_fqn TEXT NOT NULL,
  start_line INTEGER NOT NULL,
  end_line INTEGER NOT NULL,
  signature TEXT NOT NULL,
  is_export INTEGER NOT NULL,
  docstring TEXT,
  anchor TEXT
);
CREATE INDEX symbols_by_file ON symbols(file, ordinal);

CREATE TABLE refs (
  id INTEGER PRIMARY KEY,
  file INTEGER NOT NULL REFERENCES files(id),
  name TEXT NOT NULL,
  qualifier TEXT,
  kind TEXT NOT NULL,
  line INTEGER NOT NULL,
  local_source_fqn TEXT,
  target TEXT,
  wiki_name TEXT
);
CREATE INDEX refs_by_file ON refs(file);
CREATE INDEX refs_by_target ON refs(target) WHERE target IS NOT NULL;
CREATE INDEX refs_by_wiki_name ON refs(wiki_name) WHERE wiki_name IS NOT NULL;

CREATE VIRTUAL TABLE symbol_text USING fts5(
  name, signature, docstring,
  content = 'symbols', content_rowid = 'id', tokenize = 'unicode61 remove_diacritics 2');

CREATE TABLE sources (
  ordinal INTEGER PRIMARY KEY,
  name TEXT NOT NULL,
  value TEXT NOT NULL
);

CREATE TABLE problems (
  ordinal INTEGER PRIMARY KEY,
  what TEXT NOT NULL,
  reason TEXT NOT NULL
);

CREATE VIEW symbol_records AS
  SELECT s.id, s.file, f.position AS file_id, f.path, s.name, s.kind,
         f.prefix || '.' || s.local_fqn AS fqn, s.start_line, s.end_line, s.signature,
         s.is_export, s.docstring, s.anchor
  FROM symbols s JOIN files f ON f.id = s.file;

CREATE VIEW reference_records AS
  SELECT r.id, r.file, f.position AS file_id, f.path, r.name, r.qualifier, r.kind, r.line,
         f.prefix || '.' || r.local_source_fqn AS source_fqn, r.target
  FROM refs r JOIN files f ON f.id = r.file;
)sql";

}  // namespace

Found inspect(sqlite::Connection& connection) {
  const std::int64_t id = connection.integer("PRAGMA application_id");
  const std::int64_t version = connection.integer("PRAGMA user_version");
  if (id == APPLICATION_ID) {
    return {version == VERSION ? Kind::store : Kind::other_version, version};
  }
  const bool empty = id == 0 && connection.integer("SELECT count(*) FROM sqlite_schema") == 0;
  return {empty ? Kind::empty : Kind::other, version};
}

void create(sqlite::Connection& connection) {
  connection.execute(TABLES);
  connection.execute("PRAGMA application_id = " + std::to_string(APPLICATION_ID) +
                     "; PRAGMA user_version = " + std::to_string(VERSION));
}

void drop_all(sqlite::Connection& connection) {
  // Views first, then virtual tables, which drop their own tables with them.
  std::vector<std::string> drops;
  auto objects = connection.prepare(
      "SELECT type, name FROM sqlite_schema WHERE type IN ('view', 'table') AND name NOT LIKE "
      "'sqlite\\_%' ESCAPE '\\' ORDER BY type = 'table', sql NOT LIKE 'CREATE VIRTUAL%'");
  while (objects.step()) {
    std::string name(objects.text(1));
    std::string quoted = "\"";
    for (const char c : name) quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
    quoted += '"';
    drops.push_back("DROP " + std::string(objects.text(0)) + " IF EXISTS " + quoted);
  }
  for (const std::string& drop : drops) connection.execute(drop);
  connection.execute("PRAGMA application_id = 0; PRAGMA user_version = 0");
}

std::optional<std::string> refusal(const Found& found, const std::string& file) {
  switch (found.kind) {
    case Kind::empty:
    case Kind::store:
      return std::nullopt;
    case Kind::other_version:
      return found.version > VERSION
                 ? file + " is a store of schema " + std::to_string(found.version) +
                       ", newer than this tarnwick-md's " + std::to_string(VERSION) +
                       ": use a newer tarnwick-md, or --rebuild to start over"
                 : file + " is a store of schema " + std::to_string(found.version) +
                       ", older than this tarnwick-md's " + std::to_string(VERSION) +
                       ": --rebuild starts over";
    case Kind::other:
      return file + " is not a tarnwick-md store";
  }
  return std::nullopt;
}

}  // namespace tarnwick::store::schema
