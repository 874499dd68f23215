// The headings of a whole workspace, found by what a person types: a substring of a heading's
// text or its letters in order, best matches first.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "repo/workspace.hpp"

namespace tarnwick::lsp {

struct SymbolMatch {
  std::string path;
  std::size_t heading = 0;  // in the document's headings
  std::string name;         // the heading's text
  std::string container;    // the heading path above it, "A > B"; empty at the top
};

// An index of every heading, kept up to date one document at a time.
class SymbolIndex {
 public:
  void put(const std::string& path, const repo::Document& document);
  void remove(const std::string& path);

  // The headings that match `query` (all of them for an empty one), at most `limit`, best
  // first: the whole text, then its start, the start of a word, anywhere, and last the query's
  // letters in order; then shorter texts, paths and earlier headings first.
  std::vector<SymbolMatch> search(std::string_view query, std::size_t limit) const;

 private:
  struct Entry {
    std::string name;
    std::string lowered;
    std::string container;
    std::size_t heading;
  };
  std::unordered_map<std::string, std::vector<Entry>> entries_;  // by document
};

}  // namespace tarnwick::lsp
