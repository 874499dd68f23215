#include "lsp/workspace_symbols.hpp"

#include <algorithm>

#include "gfm/slug.hpp"

namespace tarnwick::lsp {

namespace {

// How well a lowered name matches a lowered query; 0 for not at all.
int score(std::string_view name, std::string_view query) {
  if (query.empty()) return 1;
  if (name == query) return 6;
  const std::size_t at = name.find(query);
  if (at == 0) return 5;
  if (at != std::string_view::npos) {
    for (std::size_t found = at; found != std::string_view::npos;
         found = name.find(query, found + 1)) {
      const char before = name[found - 1];
      if (before == ' ' || before == '-' || before == '_' || before == '/' || before == '.') {
        return 4;
      }
    }
    return 3;
  }
  std::size_t next = 0;
  for (const char c : query) {
    next = name.find(c, next);
    if (next == std::string_view::npos) return 0;
    ++next;
  }
  return 2;
}

// A heading's text on one line, as a list shows it.
std::string one_line(std::string_view text) {
  std::string line(text);
  std::replace(line.begin(), line.end(), '\n', ' ');
  return line;
}

}  // namespace

void SymbolIndex::put(const std::string& path, const repo::Document& document) {
  std::vector<Entry>& entries = entries_[path];
  entries.clear();
  std::vector<std::pair<int, std::string>> above;  // level and text of the open headings
  const auto& headings = document.read.headings;
  for (std::size_t index = 0; index < headings.size(); ++index) {
    const gfm::Heading& heading = headings[index];
    while (!above.empty() && above.back().first >= heading.level) above.pop_back();
    std::string container;
    for (const auto& [level, text] : above) {
      if (!container.empty()) container += " > ";
      container += text;
    }
    std::string name = one_line(heading.text);
    entries.push_back({name, gfm::lowercase(name), std::move(container), index});
    above.emplace_back(heading.level, std::move(name));
  }
}

void SymbolIndex::remove(const std::string& path) {
  entries_.erase(path);
}

std::vector<SymbolMatch> SymbolIndex::search(std::string_view query, std::size_t limit) const {
  const std::string lowered = gfm::lowercase(query);
  struct Found {
    int score;
    const std::string* path;
    const Entry* entry;
  };
  const auto better = [](const Found& a, const Found& b) {
    if (a.score != b.score) return a.score > b.score;
    if (a.entry->name.size() != b.entry->name.size()) {
      return a.entry->name.size() < b.entry->name.size();
    }
    if (*a.path != *b.path) return *a.path < *b.path;
    return a.entry->heading < b.entry->heading;
  };
  std::vector<Found> found;
  for (const auto& [path, entries] : entries_) {
    for (const Entry& entry : entries) {
      if (const int s = score(entry.lowered, lowered)) found.push_back({s, &path, &entry});
    }
  }
  const std::size_t kept = std::min(limit, found.size());
  std::partial_sort(found.begin(), found.begin() + static_cast<std::ptrdiff_t>(kept), found.end(),
                    better);
  std::vector<SymbolMatch> matches;
  matches.reserve(kept);
  for (std::size_t i = 0; i < kept; ++i) {
    matches.push_back(
        {*found[i].path, found[i].entry->heading, found[i].entry->name, found[i].entry->container});
  }
  return matches;
}

}  // namespace tarnwick::lsp
