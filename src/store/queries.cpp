// The store's questions: which references lead to a file, and which sections match some words.
#include <algorithm>
#include <limits>
#include <set>

#include "gfm/document.hpp"
#include "repo/links.hpp"
#include "store/store.hpp"

namespace tarnwick::store {

namespace {

using engines::references::RefKind;

constexpr std::string_view REFERENCES =
    "SELECT f.id, f.position, f.path, f.prefix, r.name, r.qualifier, r.kind, r.line, "
    "r.local_source_fqn, r.id FROM refs r JOIN files f ON f.id = r.file ";

// A reference found, and its key, which follows document order within its file.
struct Candidate {
  FoundReference found;
  std::int64_t key = 0;
};

void read_references(sqlite::Statement& query, std::vector<Candidate>& into) {
  while (query.step()) {
    const std::string_view prefix = query.text(3);
    std::optional<std::string> source;
    if (!query.is_null(8)) source = std::string(prefix).append(".").append(query.text(8));
    const RefKind kind = query.text(6) == engines::references::to_string(RefKind::wiki_link)
                             ? RefKind::wiki_link
                             : RefKind::doc_link;
    into.push_back({{{query.integer(0), query.integer(1), std::string(query.text(2))},
                     {.name = std::string(query.text(4)),
                      .qualifier = query.optional_text(5),
                      .kind = kind,
                      .line = query.integer(7),
                      .source_fqn = std::move(source)}},
                    query.integer(9)});
  }
  query.reset();
}

// The ids of a file's headings that a fragment names, as a link of that syntax names them.
std::set<std::string> ids_named(const std::set<std::string>& ids, const std::string& fragment,
                                gfm::LinkSyntax syntax) {
  std::set<std::string> named;
  for (const std::string& id : gfm::anchor_forms(fragment, syntax)) {
    if (ids.contains(id)) named.insert(id);
  }
  return named;
}

bool shares_any(const std::set<std::string>& a, const std::set<std::string>& b) {
  return std::any_of(a.begin(), a.end(), [&](const std::string& id) { return b.contains(id); });
}

// An FTS5 query of the words: each a string, so that no character of it is syntax; a word
// ending in "*" matches the words it starts.
std::string search_query(std::string_view words) {
  std::string query;
  for (std::size_t start = 0; start < words.size();) {
    const std::size_t end = std::min(words.find_first_of(" \t\n", start), words.size());
    std::string_view word = words.substr(start, end - start);
    start = end + 1;
    const bool prefix = word.size() > 1 && word.ends_with('*');
    if (prefix) word.remove_suffix(1);
    if (word.empty()) continue;
    if (!query.empty()) query += ' ';
    query += '"';
    for (const char c : word) query += c == '"' ? std::string("\"\"") : std::string(1, c);
    query += prefix ? "\"*" : "\"";
  }
  return query;
}

}  // namespace

Result<std::vector<FoundReference>> Store::references_to(std::string_view written) {
  const std::size_t hash = written.find('#');
  std::optional<std::string> fragment;
  if (hash != std::string_view::npos) fragment = std::string(written.substr(hash + 1));
  const auto target = repo::resolve_path("", written.substr(0, hash));
  std::vector<FoundReference> found;
  if (!target) return found;
  try {
    const sqlite::ReadTransaction transaction(connection_);
    std::vector<Candidate> candidates;
    auto documents = connection_.prepare(std::string(REFERENCES) + "WHERE r.target = ?");
    documents.bind(1, *target);
    read_references(documents, candidates);

    // A wiki link leads to the target when the target is the one Markdown file its page names.
    if (repo::is_markdown(repo::name_of(*target))) {
      const std::string wiki_name = repo::wiki_name(*target);
      std::vector<std::string> pages;
      auto files = connection_.prepare("SELECT path FROM files WHERE wiki_name = ?");
      files.bind(1, wiki_name);
      while (files.step()) pages.emplace_back(files.text(0));
      std::vector<Candidate> wiki;
      auto links = connection_.prepare(std::string(REFERENCES) + "WHERE r.wiki_name = ?");
      links.bind(1, wiki_name);
      read_references(links, wiki);
      for (Candidate& link : wiki) {
        const std::string& page = link.found.reference.name;
        const auto named = std::count_if(pages.begin(), pages.end(), [&](const std::string& path) {
          return repo::names_page(path, page);
        });
        if (named == 1 && repo::names_page(*target, page) &&
            std::find(pages.begin(), pages.end(), *target) != pages.end()) {
          candidates.push_back(std::move(link));
        }
      }
    }
    std::sort(candidates.begin(), candidates.end(), [](const Candidate& a, const Candidate& b) {
      return std::pair(a.found.file.file_id, a.key) < std::pair(b.found.file.file_id, b.key);
    });

    // With a fragment, the references whose anchor is written so, or names the same heading.
    std::set<std::string> ids;
    if (fragment) {
      auto anchors = connection_.prepare(
          "SELECT anchor FROM symbols WHERE anchor IS NOT NULL AND file = (SELECT id FROM files "
          "WHERE path = ? ORDER BY position LIMIT 1)");
      anchors.bind(1, *target);
      while (anchors.step()) ids.emplace(anchors.text(0));
    }
    // The argument's fragment may be an id or a heading's text, as a wiki link's is.
    const std::set<std::string> wanted =
        fragment ? ids_named(ids, *fragment, gfm::LinkSyntax::wiki) : ids;
    for (Candidate& candidate : candidates) {
      const auto& qualifier = candidate.found.reference.qualifier;
      const gfm::LinkSyntax syntax = candidate.found.reference.kind == RefKind::wiki_link
                                         ? gfm::LinkSyntax::wiki
                                         : gfm::LinkSyntax::markdown;
      if (fragment && !(qualifier && (*qualifier == *fragment ||
                                      shares_any(wanted, ids_named(ids, *qualifier, syntax))))) {
        continue;
      }
      found.push_back(std::move(candidate.found));
    }
    return found;
  } catch (const sqlite::Error& error) {
    return Failure{sqlite::describe(error, name_)};
  }
}

Result<std::vector<FoundSymbol>> Store::symbols_matching(std::string_view words,
                                                         std::size_t limit) {
  std::vector<FoundSymbol> found;
  const std::string query = search_query(words);
  if (query.empty() || limit == 0) return found;
  try {
    const sqlite::ReadTransaction transaction(connection_);
    // Names weigh most, heading paths next, docstrings least; ties in file order.
    auto matches = connection_.prepare(
        "SELECT f.id, f.position, f.path, f.prefix, s.id, s.name, s.kind, s.local_fqn, "
        "s.start_line, s.end_line, s.signature, s.is_export, s.docstring "
        "FROM symbol_text JOIN symbols s ON s.id = symbol_text.rowid "
        "JOIN files f ON f.id = s.file WHERE symbol_text MATCH ? "
        "ORDER BY bm25(symbol_text, 10.0, 4.0, 1.0), f.position, s.ordinal LIMIT ?");
    constexpr auto MOST = static_cast<std::size_t>(std::numeric_limits<std::int64_t>::max());
    matches.bind(1, query).bind(2, static_cast<std::int64_t>(std::min(limit, MOST)));
    while (matches.step()) {
      const std::int64_t file_id = matches.integer(1);
      found.push_back(
          {{matches.integer(0), file_id, std::string(matches.text(2))},
           matches.integer(4),
           Symbol{.id = std::nullopt,
                  .file_id = file_id,
                  .name = std::string(matches.text(5)),
                  .kind = std::string(matches.text(6)),
                  .fqn = std::string(matches.text(3)).append(".").append(matches.text(7)),
                  .start_line = matches.integer(8),
                  .end_line = matches.integer(9),
                  .signature = std::string(matches.text(10)),
                  .is_export = matches.integer(11) != 0,
                  .docstring = matches.optional_text(12)}});
    }
    return found;
  } catch (const sqlite::Error& error) {
    return Failure{sqlite::describe(error, name_)};
  }
}

}  // namespace tarnwick::store
