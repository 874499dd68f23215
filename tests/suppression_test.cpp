// Suppressions: HTML comments, found as GitHub's parser finds them (never in code), that
// silence the next line, a block of lines or the whole file, for every code or named ones; and
// the suppressions that silence nothing.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "check/find.hpp"
#include "gfm/document.hpp"

namespace tarnwick::check {
namespace {

namespace fs = std::filesystem;

TEST(Comments, AreFoundInRawHtmlWithTheirLinesNeverInCode) {
  const std::string document =
      "<!-- block -->\n"
      "Text <!-- inline --> and <!-- two\nlines -->.\n"
      "> <!-- quoted -->\n"
      "- <div>\n  <!-- in a list's html -->\n  </div>\n\n"
      "`<!-- code span -->`\n\n"
      "```\n<!-- fenced -->\n```\n\n"
      "    <!-- indented -->\n\n"
      "<!-- unclosed\n";
  std::vector<std::string> found;
  for (const gfm::Comment& comment : gfm::read_links(document, false).comments) {
    found.push_back(std::to_string(comment.line) + "-" + std::to_string(comment.end_line) + ":" +
                    comment.text);
  }
  EXPECT_EQ(found, (std::vector<std::string>{"1-1: block ", "2-2: inline ", "2-3: two\nlines ",
                                             "4-4: quoted ", "6-6: in a list's html "}));
}

struct Case {
  const char* name;
  const char* document;
  bool report_unused;
  std::vector<std::string> problems;  // "line:column code target"
};

std::vector<std::string> problems_of(const Case& c) {
  const fs::path root = fs::temp_directory_path() / ("tarnwick-suppression-" + std::string(c.name));
  fs::remove_all(root);
  fs::create_directories(root);
  std::ofstream(root / "doc.md", std::ios::binary) << c.document;
  CheckOptions options;
  options.paths = {root.string()};
  options.selection.git_ignores = false;
  options.report_unused_suppressions = c.report_unused;
  std::vector<std::string> found;
  for (const Problem& problem : find_problems(options).problems) {
    found.push_back(std::to_string(problem.line) + ":" + std::to_string(problem.column) + " " +
                    std::string(info(problem.code).name) + " " + problem.target);
  }
  fs::remove_all(root);
  return found;
}

class Suppressions : public testing::TestWithParam<Case> {};

TEST_P(Suppressions, SilenceWhatTheySay) {
  EXPECT_EQ(problems_of(GetParam()), GetParam().problems);
}

const Case CASES[] = {
    {"next_line",
     "<!-- tarnwick-md-ignore-next-line -->\n[a](a.md) [b](#b)\n[c](c.md)\n",
     false,
     {"3:1 missing-file c.md"}},
    {"next_line_after_a_comment_over_lines",
     "<!--\n  tarnwick-md-ignore-next-line\n-->\n[a](a.md)\n",
     false,
     {}},
    {"inline_next_line",
     "Text <!-- tarnwick-md-ignore-next-line --> here.\n[a](a.md)\n",
     false,
     {}},
    {"named_codes",
     "<!-- tarnwick-md-ignore-next-line missing-anchor,site-path -->\n"
     "[a](a.md) [b](#b) [s](/site/)\n",
     false,
     {"2:1 missing-file a.md"}},
    {"block",
     "[a](a.md)\n<!-- tarnwick-md-ignore-start -->\n[b](b.md)\n\n[c](#c)\n"
     "<!-- tarnwick-md-ignore-end -->\n[d](d.md)\n",
     false,
     {"1:1 missing-file a.md", "7:1 missing-file d.md"}},
    {"nested_blocks_and_one_never_ended",
     "<!-- tarnwick-md-ignore-start missing-file -->\n"
     "<!-- tarnwick-md-ignore-start missing-anchor -->\n[a](a.md) [b](#b)\n"
     "<!-- tarnwick-md-ignore-end -->\n[c](c.md) [d](#d)\n",
     false,
     {"5:11 missing-anchor #d"}},
    {"file", "[a](a.md)\n<!-- tarnwick-md-ignore-file -->\n[b](#b)\n", false, {}},
    {"file_for_a_code",
     "<!-- tarnwick-md-ignore-file missing-anchor -->\n[a](a.md) [b](#b)\n",
     false,
     {"2:1 missing-file a.md"}},
    {"not_in_code",
     "`<!-- tarnwick-md-ignore-next-line -->`\n[a](a.md)\n\n"
     "```\n<!-- tarnwick-md-ignore-file -->\n```\n[b](b.md)\n",
     false,
     {"2:1 missing-file a.md", "7:1 missing-file b.md"}},
    {"unused_only_when_asked",
     "<!-- tarnwick-md-ignore-next-line -->\n\n[a](a.md)\n",
     false,
     {"3:1 missing-file a.md"}},
    {"unused",
     "<!-- tarnwick-md-ignore-next-line -->\n\n[a](a.md)\n"
     "<!-- tarnwick-md-ignore-next-line missing-anchor -->\n[b](b.md)\n"
     "<!-- tarnwick-md-ignore-file site-path -->\n"
     "<!-- tarnwick-md-ignore-next-line -->\n[c](c.md)\n",
     true,
     {"1:1 unused-suppression tarnwick-md-ignore-next-line", "3:1 missing-file a.md",
      "4:1 unused-suppression tarnwick-md-ignore-next-line missing-anchor", "5:1 missing-file b.md",
      "6:1 unused-suppression tarnwick-md-ignore-file site-path"}},
    {"misspelt_always_reported",
     "<!-- tarnwick-md-ignore-next-line missing-fil -->\n[a](a.md)\n"
     "<!-- tarnwick-md-ignore-nextline -->\n[b](b.md)\n"
     "<!-- tarnwick-md-ignore-start missing-anchr -->\n<!-- tarnwick-md-ignore-end -->\n"
     "<!-- tarnwick-md-ignore-end -->\n<!-- another tool's comment -->\n",
     false,
     {"1:1 unused-suppression tarnwick-md-ignore-next-line missing-fil", "2:1 missing-file a.md",
      "3:1 unused-suppression tarnwick-md-ignore-nextline", "4:1 missing-file b.md",
      "5:1 unused-suppression tarnwick-md-ignore-start missing-anchr",
      "7:1 unused-suppression tarnwick-md-ignore-end"}},
};

INSTANTIATE_TEST_SUITE_P(Documents, Suppressions, testing::ValuesIn(CASES),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace tarnwick::check
