#include "corpus_files.hpp"

#include <fstream>
#include <sstream>
#include <stdexcept>

#include "cli/files.hpp"
#include "tarnwick/tree.hpp"

namespace tarnwick::bench {

namespace {

std::string read_bytes(const cli::SourceFile& file) {
  std::ifstream in(file.location, std::ios::binary);
  std::ostringstream bytes;
  bytes << in.rdbuf();
  if (!in) throw std::runtime_error("cannot read " + file.location.string());
  return std::move(bytes).str();
}

}  // namespace

Corpus load_corpus(const std::string& directory) {
  const cli::Selection selection = cli::select_files({directory}, std::nullopt);
  if (!selection.errors.empty()) {
    throw std::runtime_error("cannot read " + selection.errors.front().what + ": " +
                             selection.errors.front().reason);
  }
  Corpus corpus;
  for (const auto& file : selection.files) {
    const std::string bytes = read_bytes(file);
    corpus.bytes += bytes.size();
    corpus.files.push_back({file.path, file.prefix, normalize_line_endings(bytes)});
  }
  return corpus;
}

}  // namespace tarnwick::bench
