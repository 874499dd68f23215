// The repository's side of indexing: which files, in which order, under which prefix, and
// what happens to a file that cannot be read.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "repo/extraction.hpp"
#include "repo/records.hpp"
#include "repo/selection.hpp"
#include "text/nearest.hpp"

namespace tarnwick::repo {
namespace {

using text::nearest;

namespace fs = std::filesystem;

class TempTree : public ::testing::Test {
 protected:
  void SetUp() override {
    root_ = fs::temp_directory_path() /
            ("tarnwick-cli-" + std::to_string(::testing::UnitTest::GetInstance()->random_seed()) +
             "-" + ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(root_);
    fs::create_directories(root_);
  }
  void TearDown() override { fs::remove_all(root_); }

  void write(const std::string& relative, const std::string& content) {
    const fs::path path = root_ / relative;
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << content;
  }

  std::vector<std::string> selected_paths(const std::vector<std::string>& arguments) {
    std::vector<std::string> paths;
    for (const auto& file : select_files(arguments).files) {
      paths.push_back(file.path + " " + file.prefix);
    }
    return paths;
  }

  fs::path root_;
};

TEST_F(TempTree, WalksDirectoriesInByteOrderSkippingHiddenEntriesAndNodeModules) {
  for (const char* name :
       {"b.md", "a.MD", "Z.markdown", "docs/setup.md", "docs/notes.txt", ".hidden/x.md", ".x.md",
        "node_modules/p/readme.md", "a-b.md", "\xC3\xA9.md"}) {
    write(name, "# T\n");
  }
  fs::create_symlink(root_ / "b.md", root_ / "link.md");
  const std::vector<std::string> expected = {
      "Z.markdown Z",        "a-b.md a-b", "a.MD a", "b.md b", "docs/setup.md docs.setup",
      "\xC3\xA9.md \xC3\xA9"};
  EXPECT_EQ(selected_paths({root_.string()}), expected);
}

TEST_F(TempTree, TakesFileArgumentsByBaseNameInTheOrderGiven) {
  write("docs/b.md", "");
  write("a.txt", "");
  EXPECT_EQ(selected_paths({(root_ / "docs/b.md").string(), (root_ / "a.txt").string()}),
            (std::vector<std::string>{"b.md b", "a.txt a"}));
  SelectionOptions custom;
  custom.prefix = "Custom";
  const auto selection = select_files({(root_ / "docs/b.md").string()}, custom);
  EXPECT_EQ(selection.files.at(0).prefix, "Custom");
}

TEST_F(TempTree, IndexesEveryReadableFileAndReportsTheOthers) {
  write("a.md", "# A\r\ntext\r\n\r\n## B\rmore\r");
  write("b.md", "# B\n");
  const Selection selection = select_files(
      {(root_ / "a.md").string(), (root_ / "missing.md").string(), (root_ / "b.md").string()});
  ASSERT_EQ(selection.errors.size(), 1u);
  EXPECT_NE(selection.errors[0].what.find("missing.md"), std::string::npos);
  std::string records;
  extract_in_order(selection.files, 1, 2, false, [&](const SourceFile& file, const Extracted& e) {
    append_records(records, file.path, e.file_id, e.found);
    return true;
  });
  EXPECT_EQ(
      records,
      R"({"type":"symbol","path":"a.md","file_id":1,"id":null,"name":"A","kind":"section","fqn":"a.A","start_line":1,"end_line":5,"signature":"A","is_export":true,"docstring":"text"}
{"type":"symbol","path":"a.md","file_id":1,"id":null,"name":"B","kind":"section","fqn":"a.A.B","start_line":4,"end_line":5,"signature":"A > B","is_export":true,"docstring":"more"}
{"type":"symbol","path":"b.md","file_id":2,"id":null,"name":"B","kind":"section","fqn":"b.B","start_line":1,"end_line":1,"signature":"B","is_export":true,"docstring":null}
)");
}

TEST(Records, EscapeStringsAndReplaceBytesThatAreNotUtf8) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"docs/a.md", R"("docs/a.md")"},
      {"a\"b\\c", R"("a\"b\\c")"},
      {"\b\f\n\r\t", R"("\b\f\n\r\t")"},
      {std::string("\x00\x01\x1f\x7f", 4), "\"\\u0000\\u0001\\u001f\x7f\""},
      {"\xC3\xA9\xF0\x9F\x98\x80", "\"\xC3\xA9\xF0\x9F\x98\x80\""},
      // Each maximal ill-formed subpart is one U+FFFD.
      {"\xFF", "\"\xEF\xBF\xBD\""},
      {"\xE2\x28", "\"\xEF\xBF\xBD(\""},
      {"\xE0\x80", "\"\xEF\xBF\xBD\xEF\xBF\xBD\""},
      {"\xED\xA0\x80", "\"\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\""},
      {"a\xF0\x9F\x98", "\"a\xEF\xBF\xBD\""},
  };
  for (const auto& [text, written] : cases) {
    std::string out;
    append_reference_record(out, text, 1,
                            {.name = "b.md",
                             .qualifier = std::nullopt,
                             .kind = engines::references::REF_DOC_LINK,
                             .line = 2,
                             .source_fqn = std::nullopt});
    EXPECT_EQ(
        out,
        R"({"type":"reference","path":)" + written +
            R"(,"file_id":1,"name":"b.md","qualifier":null,"kind":"doc_link","line":2,"source_fqn":null})"
            "\n")
        << text;
  }
}

TEST(Nearest, SuggestsOnlyWhatIsCloseEnoughToBeMeant) {
  const std::vector<std::string> commands = {"index", "outline", "links", "help"};
  const std::vector<std::string> options = {"--jobs", "-j", "--prefix", "--verbose", "-h"};
  const std::vector<std::tuple<std::string, std::vector<std::string>, std::optional<std::string>>>
      cases = {
          {"idnex", commands, "index"},      {"indx", commands, "index"},
          {"outlien", commands, "outline"},  {"lnks", commands, "links"},
          {"serve", commands, std::nullopt}, {"ix", commands, std::nullopt},
          {"--jbos", options, "--jobs"},     {"--prefx", options, "--prefix"},
          {"-x", options, std::nullopt},     {"--quiet", options, std::nullopt},
      };
  for (const auto& [word, candidates, expected] : cases) {
    EXPECT_EQ(nearest(word, candidates), expected) << word;
  }
}

}  // namespace
}  // namespace tarnwick::repo
