// The library as a host sees it: the text-in call, the default rules, and what it promises about
// threads, static initialisers, line endings and sizes.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "tarnwick/markdown.hpp"
#include "text/utf8.hpp"

namespace tarnwick {
namespace {

const std::string TOUR =
    "---\ntitle: Tour\n---\nIntro [a](a.md).\n\n## Usage\nRun it.\n\n## "
    "Usage\n[[Glossary#Section]]\n";

// Calls made before main: the engine's patterns and tables must already work there.
const IndexedDocument AT_STATIC_INITIALISATION = index_markdown(TOUR, "docs/tour.md");

TEST(IndexMarkdown, GivesTheDefaultRecordsOfAPath) {
  const IndexedDocument d = index_markdown(TOUR, "docs/tour.md");
  std::vector<std::string> fqns;
  for (const Symbol& s : d.symbols) fqns.push_back(s.fqn);
  EXPECT_EQ(fqns, (std::vector<std::string>{"docs.tour.Tour", "docs.tour.Tour.Usage",
                                            "docs.tour.Tour.Usage#2"}));
  EXPECT_EQ(d.symbols.at(0).file_id, 0);
  ASSERT_EQ(d.references.size(), 2u);
  EXPECT_EQ(d.references[0].name, "a.md");
  EXPECT_EQ(d.references[1].source_fqn, "docs.tour.Tour.Usage#2");
  EXPECT_EQ(AT_STATIC_INITIALISATION.symbols, d.symbols);
  EXPECT_EQ(AT_STATIC_INITIALISATION.references, d.references);
}

TEST(IndexMarkdown, ReadsEveryLineEndingAsALineFeed) {
  const IndexedDocument lf = index_markdown("# A\ntext\n\n## B\nmore\n", "a.md");
  for (const std::string text :
       {"# A\r\ntext\r\n\r\n## B\r\nmore\r\n", "# A\rtext\r\r## B\rmore\r"}) {
    const IndexedDocument other = index_markdown(text, "a.md");
    EXPECT_EQ(other.symbols, lf.symbols);
  }
}

TEST(IndexMarkdown, TakesThePrefixFileIdAndDebugLinesFromItsOptions) {
  std::vector<std::string> lines;
  const IndexedDocument d =
      index_markdown("---\ntitle: [unclosed\n---\n# A\n", "a.md",
                     {.prefix = "P",
                      .file_id = 7,
                      .debug_log = [&](std::string_view logger, std::string_view line) {
                        lines.push_back(std::string(logger) + ": " + std::string(line));
                      }});
  ASSERT_EQ(d.symbols.size(), 1u);
  EXPECT_EQ(d.symbols[0].fqn, "P.A");
  EXPECT_EQ(d.symbols[0].file_id, 7);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_TRUE(lines[0].starts_with("tarnwick.engines.markdown: The front matter of P is not YAML"))
      << lines[0];
}

TEST(IndexMarkdown, GivesTheSameRecordsOnManyThreadsAtOnce) {
  std::string document;
  for (int i = 0; i < 200; ++i) document += "# H" + std::to_string(i % 7) + "\n[x](x.md)\n";
  const IndexedDocument expected = index_markdown(document, "d.md");
  std::vector<std::jthread> threads;
  std::vector<int> equal(8);
  for (std::size_t t = 0; t < equal.size(); ++t) {
    threads.emplace_back([&, t] {
      for (int round = 0; round < 20; ++round) {
        const IndexedDocument d = index_markdown(document, "d.md");
        equal[t] += d.symbols == expected.symbols && d.references == expected.references;
      }
    });
  }
  threads.clear();
  for (const int n : equal) EXPECT_EQ(n, 20);
}

TEST(IndexerRules, LeftEmptyAreTheDefaultRules) {
  MarkdownParser parser;
  const Document document(parser, TOUR);
  UniqueFqns unique_fqn;
  const engines::markdown::IndexerRules explicit_rules{
      .unique_fqn = std::ref(unique_fqn), .cap_docstring = cap_docstring, .debug_log = {}};
  EXPECT_EQ(engines::markdown::extract_sections(document.root(), document.text(), "t", 1, {}),
            engines::markdown::extract_sections(document.root(), document.text(), "t", 1,
                                                explicit_rules));
}

TEST(Document, NeitherCopiesNorMovesSoItsNodesStayValid) {
  static_assert(!std::is_copy_constructible_v<Document>);
  static_assert(!std::is_move_constructible_v<Document>);
  static_assert(!std::is_move_assignable_v<Document>);
}

TEST(MarkdownParser, RefusesTextsTreeSitterCannotAddress) {
  MarkdownParser parser;
  const char byte = '#';
  // Refused before a byte is read, so the view's length need not be backed.
  EXPECT_THROW(parser.parse(std::string_view(&byte, std::size_t{1} << 32)), std::length_error);
}

TEST(Version, MatchesTheHeaders) {
  EXPECT_STREQ(markdown_version(), TARNWICK_MARKDOWN_VERSION);
  EXPECT_EQ(std::to_string(TARNWICK_MARKDOWN_VERSION_MAJOR) + "." +
                std::to_string(TARNWICK_MARKDOWN_VERSION_MINOR) + "." +
                std::to_string(TARNWICK_MARKDOWN_VERSION_PATCH),
            TARNWICK_MARKDOWN_VERSION);
}

TEST(FqnPrefix, DropsTheFinalExtensionAndDotsTheFolders) {
  EXPECT_EQ(fqn_prefix("docs/setup.md"), "docs.setup");
  EXPECT_EQ(fqn_prefix("README.md"), "README");
  EXPECT_EQ(fqn_prefix("v1.2/notes.en.md"), "v1.2.notes.en");
  EXPECT_EQ(fqn_prefix("dir.d/README"), "dir.d.README");
}

TEST(UniqueFqns, NumbersRepeatsWithTheSmallestFreeNumber) {
  UniqueFqns unique;
  EXPECT_EQ(unique("Usage"), "Usage");
  EXPECT_EQ(unique("Usage"), "Usage#2");
  EXPECT_EQ(unique("Usage#2"), "Usage#2#2");
  EXPECT_EQ(unique("A#3"), "A#3");
  EXPECT_EQ(unique("A"), "A");
  EXPECT_EQ(unique("A"), "A#2");
  EXPECT_EQ(unique("A"), "A#4");  // A#3 was returned already
}

TEST(CapDocstring, CutsPastAThousandCodePoints) {
  EXPECT_EQ(cap_docstring(std::string(1000, 'x')), std::string(1000, 'x'));
  EXPECT_EQ(cap_docstring(std::string(1001, 'x')), std::string(997, 'x') + "...");
  std::string wide;
  for (int i = 0; i < 1001; ++i) wide += "\xC3\xA9";
  EXPECT_EQ(cap_docstring(wide), wide.substr(0, 997 * 2) + "...");
  EXPECT_EQ(text::shortened("abcdef", 6), "abcdef");  // a text that fits is never cut
  EXPECT_EQ(text::shortened("abcdefg", 6), "abc...");
}

}  // namespace
}  // namespace tarnwick
