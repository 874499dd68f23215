// The corpus that the benchmark tools read: the Markdown files of a directory, in the order in
// which `tarnwick-md index` reads them, loaded into memory once.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace tarnwick::bench {

struct CorpusFile {
  std::string path;    // relative to the corpus directory
  std::string prefix;  // the FQN prefix of its sections
  std::string text;    // with LF line endings, as the indexer parses it
};

struct Corpus {
  std::vector<CorpusFile> files;
  std::size_t bytes = 0;  // the sizes of the files as read: what every MB/s figure divides
};

// Throws std::runtime_error naming the first file or directory that cannot be read.
Corpus load_corpus(const std::string& directory);

}  // namespace tarnwick::bench
