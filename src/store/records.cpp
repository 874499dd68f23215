#include "store/records.hpp"

#include <optional>

#include "gfm/slug.hpp"
#include "repo/links.hpp"

namespace tarnwick::store {

namespace {

using engines::references::ReferenceInfo;
using engines::references::RefKind;

// Where a reference leads as far as the reference alone tells: the path a document link leads
// to (the file itself for a link with no path; none when it climbs above the root), or the
// name a wiki link's page is found under. Which files a page names depends on the others, so
// a query finds those.
struct Leads {
  std::optional<std::string> target;
  std::optional<std::string> wiki_name;
};

Leads leads(const FileNames& names, const ReferenceInfo& reference) {
  const std::string& written = reference.name;
  if (written.empty()) return {names.path, std::nullopt};
  if (reference.kind == RefKind::wiki_link) return {std::nullopt, repo::wiki_name(written)};
  if (written.starts_with('/')) return {repo::resolve_path("", names.root + written), std::nullopt};
  return {repo::resolve_path(repo::parent_of(names.path), written), std::nullopt};
}

RefKind kind_named(std::string_view name) {
  return name == engines::references::to_string(RefKind::wiki_link) ? RefKind::wiki_link
                                                                    : RefKind::doc_link;
}

std::optional<std::string> with_prefix(std::string_view prefix, std::optional<std::string> local) {
  if (!local) return std::nullopt;
  return std::string(prefix).append(".").append(*local);
}

}  // namespace

std::string_view local_fqn(std::string_view fqn, std::string_view prefix) {
  if (fqn.size() <= prefix.size() || !fqn.starts_with(prefix) || fqn[prefix.size()] != '.') {
    throw sqlite::Error(
        SQLITE_MISMATCH,
        "the FQN " + std::string(fqn) + " lies outside its file's prefix " + std::string(prefix));
  }
  return fqn.substr(prefix.size() + 1);
}

RecordReader::RecordReader(sqlite::Connection& connection)
    : symbols_(connection.prepare(
          "SELECT name, kind, local_fqn, start_line, end_line, signature, is_export, docstring "
          "FROM symbols WHERE file = ? ORDER BY ordinal")),
      references_(connection.prepare(
          "SELECT name, qualifier, kind, line, local_source_fqn FROM refs WHERE file = ? "
          "ORDER BY id")),
      title_(connection.prepare(
          "SELECT anchor IS NULL FROM symbols WHERE file = ? ORDER BY ordinal LIMIT 1")) {}

IndexedDocument RecordReader::read(std::int64_t file, std::string_view prefix,
                                   std::int64_t file_id) {
  IndexedDocument document;
  symbols_.bind(1, file);
  while (symbols_.step()) {
    document.symbols.push_back(Symbol{.id = std::nullopt,
                                      .file_id = file_id,
                                      .name = std::string(symbols_.text(0)),
                                      .kind = std::string(symbols_.text(1)),
                                      .fqn = *with_prefix(prefix, std::string(symbols_.text(2))),
                                      .start_line = symbols_.integer(3),
                                      .end_line = symbols_.integer(4),
                                      .signature = std::string(symbols_.text(5)),
                                      .is_export = symbols_.integer(6) != 0,
                                      .docstring = symbols_.optional_text(7)});
  }
  symbols_.reset();
  references_.bind(1, file);
  while (references_.step()) {
    document.references.push_back(
        ReferenceInfo{.name = std::string(references_.text(0)),
                      .qualifier = references_.optional_text(1),
                      .kind = kind_named(references_.text(2)),
                      .line = references_.integer(3),
                      .source_fqn = with_prefix(prefix, references_.optional_text(4))});
  }
  references_.reset();
  return document;
}

bool RecordReader::titled_by_front_matter(std::int64_t file) {
  title_.bind(1, file);
  const bool titled = title_.step() && title_.integer(0) != 0;
  title_.reset();
  return titled;
}

// The symbols' columns the search index holds, in its order.
#define TARNWICK_TEXT_COLUMNS "name, signature, docstring"

RecordWriter::RecordWriter(sqlite::Connection& connection, TextIndexing text_indexing)
    : text_indexing_(text_indexing),
      old_symbols_(connection.prepare("SELECT id, local_fqn FROM symbols WHERE file = ?")),
      unindex_text_(connection.prepare(
          "INSERT INTO symbol_text(symbol_text, rowid, " TARNWICK_TEXT_COLUMNS ") "
          "SELECT 'delete', id, " TARNWICK_TEXT_COLUMNS " FROM symbols WHERE file = ?")),
      delete_symbols_(connection.prepare("DELETE FROM symbols WHERE file = ?")),
      delete_references_(connection.prepare("DELETE FROM refs WHERE file = ?")),
      insert_symbol_(connection.prepare(
          "INSERT INTO symbols(id, file, ordinal, name, kind, local_fqn, start_line, end_line, "
          "signature, is_export, docstring, anchor) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)")),
      index_text_(connection.prepare("INSERT INTO symbol_text(rowid, " TARNWICK_TEXT_COLUMNS ") "
                                     "SELECT id, " TARNWICK_TEXT_COLUMNS
                                     " FROM symbols WHERE file = ?")),
      last_symbol_(connection.prepare("SELECT max(id) FROM symbols")),
      index_text_between_(connection.prepare(
          "INSERT INTO symbol_text(rowid, " TARNWICK_TEXT_COLUMNS ") "
          "SELECT id, " TARNWICK_TEXT_COLUMNS " FROM symbols WHERE id > ? AND id <= ? "
          "ORDER BY id")),
      insert_reference_(connection.prepare(
          "INSERT INTO refs(file, name, qualifier, kind, line, local_source_fqn, target, "
          "wiki_name) VALUES (?, ?, ?, ?, ?, ?, ?, ?)")) {}

#undef TARNWICK_TEXT_COLUMNS

void RecordWriter::index_new_text() {
  const std::int64_t through =
      last_symbol_.step() && !last_symbol_.is_null(0) ? last_symbol_.integer(0) : 0;
  last_symbol_.reset();
  if (through <= indexed_through_) return;
  index_text_between_.bind(1, indexed_through_).bind(2, through).run();
  indexed_through_ = through;
}

std::unordered_map<std::string, std::int64_t> RecordWriter::take_out(std::int64_t file) {
  std::unordered_map<std::string, std::int64_t> keys;
  old_symbols_.bind(1, file);
  while (old_symbols_.step()) keys.emplace(old_symbols_.text(1), old_symbols_.integer(0));
  old_symbols_.reset();
  if (text_indexing_ == TextIndexing::per_file && !keys.empty()) {
    unindex_text_.bind(1, file).run();
  }
  if (!keys.empty()) delete_symbols_.bind(1, file).run();
  delete_references_.bind(1, file).run();
  return keys;
}

void RecordWriter::replace(std::int64_t file, const FileNames& names,
                           const IndexedDocument& document, bool titled) {
  const auto old_keys = take_out(file);
  gfm::HeadingIds ids;
  std::int64_t ordinal = 0;
  for (const Symbol& symbol : document.symbols) {
    std::optional<std::string> anchor;
    if (!titled || ordinal > 0) anchor = ids.next(symbol.name);
    const std::string_view local = local_fqn(symbol.fqn, names.prefix);
    if (const auto kept = old_keys.find(std::string(local)); kept != old_keys.end()) {
      insert_symbol_.bind(1, kept->second);
    }
    insert_symbol_.bind(2, file)
        .bind(3, ++ordinal)
        .bind(4, symbol.name)
        .bind(5, symbol.kind)
        .bind(6, local)
        .bind(7, symbol.start_line)
        .bind(8, symbol.end_line)
        .bind(9, symbol.signature)
        .bind(10, std::int64_t{symbol.is_export})
        .bind(11, symbol.docstring)
        .bind(12, anchor);
    insert_symbol_.run();
  }
  if (text_indexing_ == TextIndexing::per_file && !document.symbols.empty()) {
    index_text_.bind(1, file).run();
  }
  for (const ReferenceInfo& reference : document.references) {
    const Leads to = leads(names, reference);
    std::optional<std::string> local_source;
    if (reference.source_fqn) local_source = local_fqn(*reference.source_fqn, names.prefix);
    insert_reference_.bind(1, file)
        .bind(2, reference.name)
        .bind(3, reference.qualifier)
        .bind(4, engines::references::to_string(reference.kind))
        .bind(5, reference.line)
        .bind(6, local_source)
        .bind(7, to.target)
        .bind(8, to.wiki_name)
        .run();
  }
}

void RecordWriter::remove(std::int64_t file) {
  take_out(file);
}

}  // namespace tarnwick::store
