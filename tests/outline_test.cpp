// The outline through real documents: which headings make sections, their names, levels,
// FQNs, line ranges, signatures and docstrings.
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "support.hpp"
#include "tarnwick/tree.hpp"

namespace tarnwick::testing {
namespace {

struct Section {
  std::string fqn;
  std::int64_t start_line;
  std::int64_t end_line;
  std::string signature;
  std::optional<std::string> docstring;

  bool operator==(const Section&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Section& s) {
  return out << "{" << s.fqn << " " << s.start_line << "-" << s.end_line << " [" << s.signature
             << "] " << (s.docstring ? "\"" + *s.docstring + "\"" : "null") << "}";
}

std::vector<Section> sections_of(const std::string& markdown) {
  std::vector<Section> found;
  for (const Symbol& s : index_text(markdown).symbols) {
    EXPECT_EQ(s.kind, "section");
    EXPECT_TRUE(s.is_export);
    EXPECT_FALSE(s.id.has_value());
    EXPECT_EQ(s.file_id, 1);
    found.push_back({s.fqn, s.start_line, s.end_line, s.signature, s.docstring});
  }
  return found;
}

struct OutlineCase {
  std::string name;
  std::string markdown;
  std::vector<Section> expected;
};

void check(const std::vector<OutlineCase>& cases) {
  for (const auto& [name, markdown, expected] : cases) {
    EXPECT_EQ(sections_of(markdown), expected) << name;
  }
}

const std::nullopt_t none = std::nullopt;

TEST(Outline, NestsByLevelAndNumbersRepeatedNames) {
  check({
      {"worked example",
       "# Guide\n\nRead this first.\n## Install\n### Linux\n\n##\n### Notes\n\n## Usage\n\n"
       "## Usage\n### Linux\n",
       {{"README.Guide", 1, 13, "Guide", "Read this first."},
        {"README.Guide.Install", 4, 5, "Guide > Install", none},
        {"README.Guide.Install.Linux", 5, 5, "Guide > Install > Linux", none},
        {"README.Guide.Notes", 8, 8, "Guide > Notes", none},
        {"README.Guide.Usage", 10, 10, "Guide > Usage", none},
        {"README.Guide.Usage#2", 12, 13, "Guide > Usage", none},
        {"README.Guide.Usage#2.Linux", 13, 13, "Guide > Usage > Linux", none}}},
      {"first heading is an H3", "### Deep\ntext\n", {{"README.Deep", 1, 2, "Deep", "text"}}},
      {"a skipped level adds nothing",
       "# Alpha\n### Beta\n",
       {{"README.Alpha", 1, 2, "Alpha", none}, {"README.Alpha.Beta", 2, 2, "Alpha > Beta", none}}},
      {"an H2 closes the H3 and H2 before it",
       "## Alpha\n### Beta\n## Gamma\n",
       {{"README.Alpha", 1, 2, "Alpha", none},
        {"README.Alpha.Beta", 2, 2, "Alpha > Beta", none},
        {"README.Gamma", 3, 3, "Gamma", none}}},
      {"names go into the FQN unescaped",
       "# Guide\n## Version 1.2\n",
       {{"README.Guide", 1, 2, "Guide", none},
        {"README.Guide.Version 1.2", 2, 2, "Guide > Version 1.2", none}}},
      {"a numbered FQN is the parent of what follows",
       "## A\n## A\n### B\n## A#2\n",
       {{"README.A", 1, 1, "A", none},
        {"README.A#2", 2, 3, "A", none},
        {"README.A#2.B", 3, 3, "A > B", none},
        {"README.A#2#2", 4, 4, "A#2", none}}},
  });
}

TEST(Outline, ReadsHeadingNamesAndLevels) {
  check({
      {"ATX levels",
       "# Title\n###### Deep\n",
       {{"README.Title", 1, 2, "Title", none}, {"README.Title.Deep", 2, 2, "Title > Deep", none}}},
      {"setext H1 starts on its text",
       "Install\n=======\n",
       {{"README.Install", 1, 2, "Install", none}}},
      {"setext H2 under an H1",
       "# A\nInstall\n-------\n",
       {{"README.A", 1, 3, "A", none}, {"README.A.Install", 2, 3, "A > Install", none}}},
      {"setext text over two lines",
       "Install\nnow\n===\n",
       {{"README.Install now", 1, 3, "Install now", none}}},
      {"setext keeps its hashes",
       "Install ##\n---\n",
       {{"README.Install ##", 1, 2, "Install ##", none}}},
      {"closing sequence", "## Install ##\n", {{"README.Install", 1, 1, "Install", none}}},
      {"escaped hash", "## Install \\#\n", {{"README.Install #", 1, 1, "Install #", none}}},
      {"hash glued to a word",
       "## C#\n## C# #\n",
       {{"README.C#", 1, 1, "C#", none}, {"README.C##2", 2, 2, "C#", none}}},
      {"inline markup in a heading",
       "## Use `x  y` and **z** [link](a.md)\n",
       {{"README.Use x y and z link", 1, 1, "Use x y and z link", none}}},
  });
}

TEST(Outline, NamelessHeadingsCloseSectionsButMakeNone) {
  check({
      {"a line of hashes",
       "# A\n## B\n##\n### C\n",
       {{"README.A", 1, 4, "A", none},
        {"README.A.B", 2, 2, "A > B", none},
        {"README.A.C", 4, 4, "A > C", none}}},
      {"a closing sequence alone", "## #\n", {}},
      {"markup that leaves nothing", "## <br/>\ntext\n", {}},
  });
}

TEST(Outline, TakesTheParagraphRightBelowAsDocstring) {
  const std::string long_paragraph(1200, 'x');
  check({
      {"paragraph",
       "## Install\nRun the *installer*.\n",
       {{"README.Install", 1, 2, "Install", "Run the installer."}}},
      {"list", "## A\n- item\n", {{"README.A", 1, 2, "A", none}}},
      {"fenced code", "## A\n```\ncode\n```\n", {{"README.A", 1, 4, "A", none}}},
      {"table", "## A\n| a | b |\n|---|---|\n", {{"README.A", 1, 3, "A", none}}},
      {"another heading",
       "## A\n## B\ntext\n",
       {{"README.A", 1, 1, "A", none}, {"README.B", 2, 3, "B", "text"}}},
      {"a paragraph with no plain text", "## A\n<br/>\n", {{"README.A", 1, 2, "A", none}}},
      {"a paragraph over several lines", "## A\none\ntwo\n", {{"README.A", 1, 3, "A", "one two"}}},
      {"the indexer caps it",
       "## A\n" + long_paragraph + "\n",
       {{"README.A", 1, 2, "A", std::string(997, 'x') + "..."}}},
      {"the block after a heading in the flat list",
       "# A\n> quote\n",
       {{"README.A", 1, 2, "A", none}}},
  });
}

TEST(Outline, EndsSectionsOnTheirLastLineOfText) {
  check({
      {"worked example",
       "# Guide\n\nRead this first.\n\n## Install\n\n### Linux\n\n## Usage\nRun it.\n",
       {{"README.Guide", 1, 10, "Guide", "Read this first."},
        {"README.Guide.Install", 5, 7, "Guide > Install", none},
        {"README.Guide.Install.Linux", 7, 7, "Guide > Install > Linux", none},
        {"README.Guide.Usage", 9, 10, "Guide > Usage", "Run it."}}},
      {"blank lines of spaces, tabs and no-break spaces",
       "## A\ntext\n \t\n\xC2\xA0\n## B\n",
       {{"README.A", 1, 2, "A", "text"}, {"README.B", 5, 5, "B", none}}},
      {"a comment line holds text",
       "## A\n\n<!-- note -->\n\n## B\n",
       {{"README.A", 1, 3, "A", none}, {"README.B", 5, 5, "B", none}}},
      {"a thematic break holds text",
       "## A\n\n***\n\n## B\n",
       {{"README.A", 1, 3, "A", none}, {"README.B", 5, 5, "B", none}}},
      {"setext section ends on its underline",
       "A\n===\n\n# B\n",
       {{"README.A", 1, 2, "A", none}, {"README.B", 4, 4, "B", none}}},
      {"open sections end together",
       "# A\n## B\n### C\ntext\n\n\n",
       {{"README.A", 1, 4, "A", none},
        {"README.A.B", 2, 4, "A > B", none},
        {"README.A.B.C", 3, 4, "A > B > C", "text"}}},
      {"no final line feed", "# A\ntext", {{"README.A", 1, 2, "A", "text"}}},
  });
}

TEST(Outline, ReadsOnlyTopLevelHeadings) {
  check({
      {"quote and list", "> # Quoted\n\n- # Listed\n", {}},
      {"code and HTML", "```\n# code\n```\n\n    # indented\n\n<div>\n# html\n</div>\n", {}},
      {"empty document", "", {}},
      {"no headings", "Just text.\n\n- a list\n", {}},
  });
}

TEST(Outline, CallsTheRulesOnlyForNamedHeadings) {
  int fqn_calls = 0, docstring_calls = 0;
  MarkdownParser parser;
  const Document document(parser, "## A\n\n##\ntext\n## B\n- list\n");
  const engines::markdown::IndexerRules rules{
      .unique_fqn = [&](const std::string& c) { return ++fqn_calls, c; },
      .cap_docstring = [&](const std::string& t) { return ++docstring_calls, t; },
      .debug_log = {}};
  const auto symbols =
      engines::markdown::extract_sections(document.root(), document.text(), "", 7, rules);
  ASSERT_EQ(symbols.size(), 2u);
  EXPECT_EQ(symbols[0].fqn, ".A");  // an empty prefix still gives the full stop
  EXPECT_EQ(symbols[1].file_id, 7);
  EXPECT_EQ(fqn_calls, 2);
  EXPECT_EQ(docstring_calls, 0);
}

// Only the start of a long paragraph is decoded for its docstring: check that the cut falls
// after the last code point kept, whatever the width of each.
TEST(Outline, ReadsTheFirstFourThousandCodePointsOfALongParagraph) {
  const auto repeated = [](std::string_view unit, std::size_t count, std::string out = "") {
    for (std::size_t i = 0; i < count; ++i) out += unit;
    return out;
  };
  const std::string replacement = "\xEF\xBF\xBD";
  const std::vector<std::pair<std::string, std::string>> cases = {
      {repeated("a", 20000), repeated("a", 4000)},
      {repeated("\xF0\x9F\x98\x80", 5000), repeated("\xF0\x9F\x98\x80", 4000)},
      {repeated("\xFF", 20000), repeated(replacement, 4000)},
      {repeated("\xF0\x9F\x98", 6000), repeated(replacement, 4000)},
      // The cut splits the 4001st code point, which is dropped anyway.
      {repeated("\xF0\x9F\x98\x80", 5000, "a"), repeated("\xF0\x9F\x98\x80", 3999, "a")},
  };
  MarkdownParser parser;
  const engines::markdown::IndexerRules rules{
      .unique_fqn = [](const std::string& c) { return c; },
      .cap_docstring = [](const std::string& t) { return t; },
      .debug_log = {}};
  for (const auto& [paragraph, docstring] : cases) {
    const Document document(parser, "# A\n" + paragraph + "\n");
    const auto symbols =
        engines::markdown::extract_sections(document.root(), document.text(), "", 1, rules);
    ASSERT_EQ(symbols.size(), 1u);
    EXPECT_EQ(symbols[0].docstring, docstring) << paragraph.substr(0, 8);
  }
}

}  // namespace
}  // namespace tarnwick::testing
