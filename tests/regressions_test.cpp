// Inputs that once crashed or stalled the parser or the engine, kept with the invariants that
// every document must keep. A fuzzer's failing input belongs in tests/regressions/<target>/.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "invariants.hpp"
#include "support.hpp"
#include "tarnwick/tree.hpp"

namespace tarnwick::testing {
namespace {

namespace fs = std::filesystem;

std::string read(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream bytes;
  bytes << in.rdbuf();
  return std::move(bytes).str();
}

TEST(Regressions, DocumentsKeepEveryInvariant) {
  const fs::path folder = fs::path(TARNWICK_REGRESSIONS) / "document";
  int count = 0;
  for (const auto& entry : fs::directory_iterator(folder)) {
    const std::string text = normalize_line_endings(read(entry.path()));
    const Indexed indexed = index_text(text);
    const auto lines = 1 + std::count(text.begin(), text.end(), '\n');
    fuzz::check_sections(indexed.symbols, "README", lines);
    fuzz::check_references(indexed.references, lines);
    ++count;
  }
  EXPECT_GT(count, 0) << "no regression inputs in " << folder;
}

TEST(Regressions, CheckedDocumentsKeepEveryInvariant) {
  const fs::path folder = fs::path(TARNWICK_REGRESSIONS) / "check";
  int count = 0;
  for (const auto& entry : fs::directory_iterator(folder)) {
    const std::string text = read(entry.path());
    for (const bool wiki : {false, true}) fuzz::check_links(gfm::read_links(text, wiki), text);
    ++count;
  }
  EXPECT_GT(count, 0) << "no regression inputs in " << folder;
}

}  // namespace
}  // namespace tarnwick::testing
