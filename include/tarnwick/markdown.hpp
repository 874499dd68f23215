// tarnwick's Markdown engine: the one header a host includes.
//
// For each Markdown file the engine gives its outline, one `section` symbol per heading, and
// its links to other files of the repository, as references. The text-in call:
//
//     tarnwick::IndexedDocument d = tarnwick::index_markdown(bytes, "docs/tour.md");
//
// gives what `tarnwick-md index` writes for that file at that repository path. The tree-in
// calls (tarnwick/engines/markdown.hpp) read a tree the host parsed itself.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tarnwick/engines/markdown.hpp"
#include "tarnwick/engines/references.hpp"
#include "tarnwick/export.hpp"
#include "tarnwick/models.hpp"
#include "tarnwick/rules.hpp"
#include "tarnwick/tree.hpp"
#include "tarnwick/version.hpp"

namespace tarnwick {

// The library's version, "X.Y.Z", as built (the headers' TARNWICK_MARKDOWN_VERSION is the one
// compiled against).
TARNWICK_MARKDOWN_API const char* markdown_version();

// What the engine finds in one document: its sections, then its references, each in document
// order. Plain values owned by the caller.
struct IndexedDocument {
  std::vector<Symbol> symbols;
  std::vector<engines::references::ReferenceInfo> references;
};

// Receives the engine's debug lines (front matter too long or not YAML), with the logger's name.
using DebugLog = std::function<void(std::string_view logger, std::string_view message)>;

struct IndexOptions {
  // The FQN prefix of the document's sections; by default made from the path (fqn_prefix).
  std::optional<std::string> prefix;
  // The file_id of every symbol; the index store's own number for the file, 0 when it has none.
  std::int64_t file_id = 0;
  // Where the engine's debug lines go; none are made when empty.
  DebugLog debug_log;
};

// The records of a file: `bytes` are its contents (any line endings: CRLF and lone CR are read
// as LF), `path` its path in the repository with "/" separators. The default indexer rules,
// file_id 0 unless the options say otherwise. Any number of threads may call it at once (each
// thread parses with a parser of its own), also from static initialisers. Throws
// std::length_error for a document of 4 GiB or more; any other input gives records.
TARNWICK_MARKDOWN_API IndexedDocument index_markdown(std::string_view bytes, std::string_view path,
                                                     const IndexOptions& options = {});

// The records of a document already parsed, under `prefix`, with the default indexer rules.
TARNWICK_MARKDOWN_API IndexedDocument index_document(const Document& document,
                                                     std::string_view prefix,
                                                     std::int64_t file_id = 0,
                                                     const DebugLog& debug_log = {});

// The FQN prefix of a repository path: its final extension removed and every "/" replaced by
// "." ("docs/setup.md" -> "docs.setup").
TARNWICK_MARKDOWN_API std::string fqn_prefix(std::string_view path);

}  // namespace tarnwick
