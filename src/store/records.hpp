// A file's records in the store's tables: written under the file's key, read back exactly as
// the engine gave them.
//
// FQNs are stored without the file's prefix and the dot after it: every FQN the engine makes
// starts with them, and a file that moves keeps its records under its new prefix.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>

#include "store/sqlite.hpp"
#include "tarnwick/markdown.hpp"

namespace tarnwick::store {

// The names a file's records depend on.
struct FileNames {
  std::string path;    // as the records write it
  std::string prefix;  // of its FQNs
  std::string root;    // where a link's leading "/" starts
};

// The records of stored files, read with statements prepared once.
class RecordReader {
 public:
  explicit RecordReader(sqlite::Connection& connection);
  IndexedDocument read(std::int64_t file, std::string_view prefix, std::int64_t file_id);
  // Whether a file's first section is named by its front matter's title.
  bool titled_by_front_matter(std::int64_t file);

 private:
  sqlite::Statement symbols_;
  sqlite::Statement references_;
  sqlite::Statement title_;
};

// How a writer keeps the search index of the symbols' text: with each file it writes, or in
// batches the caller asks for, which only suits a new store, whose symbols are only ever added.
enum class TextIndexing { per_file, batched };

// Replaces and removes the records of stored files, with statements prepared once, and keeps
// the search index of the symbols' text as `TextIndexing` says.
class RecordWriter {
 public:
  RecordWriter(sqlite::Connection& connection, TextIndexing text_indexing);

  // Replaces a file's records; each heading gets the id GitHub gives it (`titled`: the first
  // section is the front matter's title, no heading). A section keeps its key when the file
  // had one of the same FQN.
  void replace(std::int64_t file, const FileNames& names, const IndexedDocument& document,
               bool titled);
  // Removes a file's records.
  void remove(std::int64_t file);
  // With TextIndexing::batched: puts the symbols written since the last call into the index.
  void index_new_text();

 private:
  // Removes the records, and gives the keys of the symbols by their FQN without the prefix.
  std::unordered_map<std::string, std::int64_t> take_out(std::int64_t file);

  TextIndexing text_indexing_;
  std::int64_t indexed_through_ = 0;  // the last symbol in the index, when batched
  sqlite::Statement old_symbols_;
  sqlite::Statement unindex_text_;
  sqlite::Statement delete_symbols_;
  sqlite::Statement delete_references_;
  sqlite::Statement insert_symbol_;
  sqlite::Statement index_text_;
  sqlite::Statement last_symbol_;
  sqlite::Statement index_text_between_;
  sqlite::Statement insert_reference_;
};

// The FQN without the file's prefix and its dot; throws sqlite::Error when the engine gave one
// outside the prefix, which would not read back.
std::string_view local_fqn(std::string_view fqn, std::string_view prefix);

}  // namespace tarnwick::store
