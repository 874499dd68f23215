// Front matter through real documents: the block's body, its size limit, the fields as plain
// text, the title section and description they give, and the debug lines.
#include <gtest/gtest.h>

#include <cmath>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "engines/markdown/front_matter.hpp"
#include "support.hpp"

namespace tarnwick::engines::markdown::detail {
namespace {

using namespace std::string_literals;

TEST(FrontMatterField, TextAndNumbersReadAsPlainTextAndNothingElseDoes) {
  const std::vector<std::pair<Value, std::string>> shown = {{"Guide"s, "Guide"},
                                                            {"How to *install*"s, "How to install"},
                                                            {"**"s, "**"},
                                                            {Integer{"1000"}, "1000"},
                                                            {Integer{"-12"}, "-12"}};
  for (const auto& [value, expected] : shown) {
    EXPECT_EQ(field({{"title", value}}, "title"), expected);
  }
  const std::vector<Value> absent = {
      ""s,          " \n "s,           "<br/>"s,       true,         false,       nullptr,
      Opaque::DATE, Opaque::TIMESTAMP, Opaque::BINARY, Opaque::LIST, Opaque::SET, Opaque::MAPPING};
  for (const Value& value : absent) {
    EXPECT_EQ(field({{"title", value}}, "title"), std::nullopt) << value.index();
  }
  EXPECT_EQ(field({{"description", "D"s}}, "title"), std::nullopt);
}

TEST(FrontMatterField, FloatsAreTheShortestTextThatReadsBack) {
  const std::vector<std::pair<double, std::string>> cases = {
      {1.5, "1.5"},
      {3.0, "3.0"},
      {-0.0, "-0.0"},
      {0.0, "0.0"},
      {0.0001, "0.0001"},
      {1e-05, "1e-05"},
      {-1e-07, "-1e-07"},
      {1e15, "1000000000000000.0"},
      {9999999999999998.0, "9999999999999998.0"},
      {1e16, "1e+16"},
      {1.2345678901234568e+17, "1.2345678901234568e+17"},
      {1e22, "1e+22"},
      {123456789.125, "123456789.125"},
      {0.1 + 0.2, "0.30000000000000004"},
      {5e-324, "5e-324"},
      {1.7976931348623157e308, "1.7976931348623157e+308"},
      {INFINITY, "inf"},
      {-INFINITY, "-inf"},
      {NAN, "nan"}};
  for (const auto& [number, expected] : cases) {
    EXPECT_EQ(field({{"title", number}}, "title"), expected);
  }
}

}  // namespace
}  // namespace tarnwick::engines::markdown::detail

namespace tarnwick::testing {
namespace {

// A section as a line: FQN, lines, docstring.
std::vector<std::string> sections_of(const Indexed& indexed) {
  std::vector<std::string> found;
  for (const Symbol& s : indexed.symbols) {
    found.push_back(s.fqn + " " + std::to_string(s.start_line) + "-" + std::to_string(s.end_line) +
                    " " + s.docstring.value_or("(none)"));
  }
  return found;
}

struct DocumentCase {
  std::string name;
  std::string markdown;
  std::vector<std::string> expected;
};

void check(const std::vector<DocumentCase>& cases) {
  for (const auto& [name, markdown, expected] : cases) {
    const Indexed indexed = index_text(markdown);
    EXPECT_EQ(sections_of(indexed), expected) << name;
    EXPECT_TRUE(indexed.debug_lines.empty()) << name << ": " << indexed.debug_lines.front();
  }
}

TEST(FrontMatter, TheReadmeTraceComesOutWhole) {
  const Indexed indexed = index_text(
      "---\ntitle: Guide\ndescription: How to install\n---\n"
      "Intro with [setup](docs/setup.md#linux).\n\n## Install\n"
      "Run the [installer](../install.md?x=1).\n");
  ASSERT_EQ(indexed.symbols.size(), 2u);
  EXPECT_EQ(indexed.symbols[0].signature, "Guide");
  EXPECT_EQ(indexed.symbols[1].signature, "Guide > Install");
  EXPECT_EQ(sections_of(indexed),
            (std::vector<std::string>{"README.Guide 1-8 How to install",
                                      "README.Guide.Install 7-8 Run the installer."}));
  ASSERT_EQ(indexed.references.size(), 2u);
  EXPECT_EQ(indexed.references[0].source_fqn, "README.Guide");
  EXPECT_EQ(indexed.references[1].source_fqn, "README.Guide.Install");
}

TEST(FrontMatter, FieldsReadAsTheirPlainText) {
  check({{"markup in the description",
          "---\ntitle: Guide\ndescription: How to *install*\n---\n",
          {"README.Guide 1-4 How to install"}},
         {"a boolean is no title", "---\ntitle: yes\n---\n", {}},
         {"a date is no title", "---\ntitle: 2024-05-01\n---\n", {}},
         {"an integer", "---\ntitle: 2024\n---\n", {"README.2024 1-3 (none)"}},
         {"a float", "---\ntitle: 1.50\n---\n", {"README.1.5 1-3 (none)"}},
         {"empty text", "---\ntitle: ''\n---\n", {}},
         {"a lone pair of asterisks", "---\ntitle: '**'\n---\n", {"README.** 1-3 (none)"}},
         {"a list", "---\ntitle: [a, b]\n---\n", {}},
         {"a lone equals sign is text", "---\ntitle: =\n---\n", {"README.= 1-3 (none)"}},
         {"so is a lone merge key", "---\ntitle: <<\n---\n", {"README.<< 1-3 (none)"}},
         {"TOML",
          "+++\ntitle = 'Guide'\ndescription = \"A \\u00e9\"\n+++\n",
          {"README.Guide 1-4 A \xC3\xA9"}},
         {"TOML stops at a table", "+++\n[params]\ntitle = 'Guide'\n+++\n", {}}});
}

TEST(FrontMatter, TheBodyLiesBetweenTheDelimiterLines) {
  check({{"trailing empty lines", "---\ntitle: A\n---\n\n\n", {"README.A 1-3 (none)"}},
         {"only the delimiters", "---\n---\n", {}},
         {"delimiters and text", "---\n---\nText.\n", {}}});
}

TEST(FrontMatter, ABodyOfMoreThan65536CodePointsIsNotRead) {
  const auto document = [](const std::string& filler, std::size_t count) {
    std::string body = "title: T\nx: ";
    for (std::size_t i = body.size(); i < count; ++i) body += filler;
    return "---\n" + body + "\n---\n";
  };
  EXPECT_EQ(sections_of(index_text(document("a", 65536))),
            std::vector<std::string>{"README.T 1-4 (none)"});
  EXPECT_EQ(sections_of(index_text(document("\xC3\xA9", 65536))),
            std::vector<std::string>{"README.T 1-4 (none)"});
  const Indexed indexed = index_text(document("\xC3\xA9", 65537));
  EXPECT_TRUE(indexed.symbols.empty());
  EXPECT_EQ(
      indexed.debug_lines,
      std::vector<std::string>{"The front matter of README is too long to read (65537 chars)"});
}

TEST(FrontMatter, UnreadableYamlGivesOneDebugLineNamingThePrefix) {
  const std::vector<std::string> bodies = {"[a]: 1\ntitle: A", "title: !custom A", "title: [A",
                                           std::string(60000, '[')};
  for (const std::string& body : bodies) {
    const Indexed indexed = index_text("---\n" + body + "\n---\n", "docs.setup");
    EXPECT_TRUE(indexed.symbols.empty()) << body;
    ASSERT_EQ(indexed.debug_lines.size(), 1u) << body;
    EXPECT_TRUE(indexed.debug_lines[0].starts_with("The front matter of docs.setup is not YAML: "))
        << indexed.debug_lines[0];
  }
}

TEST(FrontMatter, TitleSectionAndDescription) {
  const std::string front = "---\ntitle: Front\ndescription: From the front\n---\n";
  const std::string untitled = "---\ndescription: From the front\n---\n";
  check(
      {{"the first H1 keeps its name and takes the description",
        front + "# Guide\nRead this first.\n",
        {"README.Guide 5-6 From the front"}},
       {"without a description the H1 keeps its paragraph",
        "---\ntitle: Front\n---\n# Guide\nRead this first.\n",
        {"README.Guide 4-5 Read this first."}},
       {"only the first H1 takes it",
        front + "# One\nFirst.\n# Two\nSecond.\n",
        {"README.One 5-6 From the front", "README.Two 7-8 Second."}},
       {"the first H1 need not be the first heading",
        front + "## Intro\n# Guide\n",
        {"README.Intro 5-5 (none)", "README.Guide 6-6 From the front"}},
       {"a setext H1", front + "Guide\n=====\n", {"README.Guide 5-6 From the front"}},
       {"an H1 without a name takes it and makes no section",
        front + "# #\n## A\n",
        {"README.A 6-6 (none)"}},
       {"no H1: the title names a section over the whole file",
        front + "## A\ntext\n",
        {"README.Front 1-6 From the front", "README.Front.A 5-6 text"}},
       {"no description: the paragraph below the front matter",
        "---\ntitle: Front\n---\nIntro *here*.\n",
        {"README.Front 1-4 Intro here."}},
       {"no description and a list below",
        "---\ntitle: Front\n---\n- item\n",
        {"README.Front 1-4 (none)"}},
       {"no description and a heading below",
        "---\ntitle: Front\n---\n## A\n",
        {"README.Front 1-4 (none)", "README.Front.A 4-4 (none)"}},
       {"a description without a title is not used", untitled + "## A\n", {"README.A 4-4 (none)"}},
       {"a title alone makes one section",
        "---\ntitle: Front\n---\n",
        {"README.Front 1-3 (none)"}}});
}

}  // namespace
}  // namespace tarnwick::testing
