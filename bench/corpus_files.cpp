#include "corpus_files.hpp"

#include <stdexcept>

#include "repo/selection.hpp"
#include "tarnwick/tree.hpp"

namespace tarnwick::bench {

Corpus load_corpus(const std::string& directory) {
  const repo::Selection selection = repo::select_files({directory});
  if (!selection.errors.empty()) {
    throw std::runtime_error("cannot read " + selection.errors.front().what + ": " +
                             selection.errors.front().reason);
  }
  Corpus corpus;
  for (const auto& file : selection.files) {
    std::string reason;
    auto bytes = repo::read_file(file.location, reason);
    if (!bytes) throw std::runtime_error("cannot read " + file.location.string() + ": " + reason);
    corpus.bytes += bytes->size();
    corpus.files.push_back({file.path, file.prefix, normalize_line_endings(std::move(*bytes))});
  }
  return corpus;
}

}  // namespace tarnwick::bench
