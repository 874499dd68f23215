#include <gtest/gtest.h>

#include <random>

#include "engines/markdown/inline_text.hpp"
#include "engines/markdown/links.hpp"
#include "support.hpp"
#include "tarnwick/tree.hpp"

namespace tarnwick::engines::references {
void PrintTo(const ReferenceInfo& r, std::ostream* out) {
  *out << to_string(r.kind) << " " << r.name << " #" << r.qualifier.value_or("-") << " @" << r.line
       << " in " << r.source_fqn.value_or("-");
}
}  // namespace tarnwick::engines::references

namespace tarnwick::engines::markdown::detail {
void PrintTo(const LinkTarget& t, std::ostream* out) {
  *out << references::to_string(t.kind) << " " << t.target << " @" << t.line;
}

namespace {

using references::REF_DOC_LINK;
using references::REF_WIKI_LINK;
using references::ReferenceInfo;
using std::nullopt;

TEST(Destination, KeepsRepositoryTargetsAndDropsTheWeb) {
  const std::vector<std::pair<std::string, std::optional<std::string>>> cases = {
      {"guide.md", "guide.md"},
      {"  ../guide.md#install ", "../guide.md#install"},
      {"guide.md?plain=1", "guide.md?plain=1"},
      {"<my guide.md>", "my guide.md"},
      {"< spaced.md >", "spaced.md"},
      {"<<a>>", "<a>"},
      {"<guide.md", "<guide.md"},
      {"<>", nullopt},
      {"< >", nullopt},
      {"", nullopt},
      {"   ", nullopt},
      {"ftp:files/guide.md", nullopt},
      {"mailto:team", nullopt},
      {"D:/docs/guide.md", nullopt},
      {"//host/guide.md", nullopt},
      {"/docs/guide.md", "/docs/guide.md"},
      {"#install", "#install"},
      {"1x:guide.md", "1x:guide.md"},
      {"\u00e9t\u00e9:x.md", "\u00e9t\u00e9:x.md"},
      {"\u3000a.md\u00a0", "a.md"},
  };
  for (const auto& [written, expected] : cases)
    EXPECT_EQ(destination(written), expected) << written;
}

TEST(WikiTarget, JoinsPageAndAnchor) {
  using Anchor = std::optional<std::string_view>;
  const std::vector<std::tuple<std::string_view, Anchor, std::optional<std::string>>> cases = {
      {"Page", nullopt, "Page"}, {" Page ", nullopt, "Page"}, {"", "Anchor", "#Anchor"},
      {"Page", "", "Page"},      {"Page", "a#b", "Page#a#b"}, {"ftp:files", nullopt, "ftp:files"},
      {" ", nullopt, nullopt},   {"", " ", nullopt},          {" P ", " A ", "P#A"},
  };
  for (const auto& [page, anchor, expected] : cases) EXPECT_EQ(wiki_target(page, anchor), expected);
}

TEST(Unquote, DecodesAsciiRunsByThemselves) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"my%20file.md", "my file.md"},
      {"caf%C3%A9.md", "caf\u00e9.md"},
      {"%FF.md", "\ufffd.md"},
      {"%zz.md", "%zz.md"},
      {"a+b.md", "a+b.md"},
      {"%2525.md", "%25.md"},
      {"%E2%82", "\ufffd"},
      {"%80%80", "\ufffd\ufffd"},
      {"a%4", "a%4"},
      {"%e2%82%ac", "\u20ac"},
      {"%C3\u00e9", "\ufffd\u00e9"},
      {"\u00e9%41\u00e9", "\u00e9A\u00e9"},
      {"%E2%82b", "\ufffdb"},
      {"%", "%"},
  };
  for (const auto& [text, expected] : cases) EXPECT_EQ(unquote(text), expected) << text;
}

// The linear code span scan must find exactly what the pattern finds.
TEST(CodeSpans, MatchThePattern) {
  std::mt19937 random(7);
  const std::string_view pieces[] = {"`", "``", "```", "\\", "a", "\n", "\u00e9", " "};
  for (int round = 0; round < 20000; ++round) {
    std::string text;
    for (int n = random() % 24; n > 0; --n) text += pieces[random() % std::size(pieces)];
    std::vector<ByteRange> expected;
    std::size_t at = 0;
    while (const auto match = CODE_SPAN.search(text, at)) {
      expected.push_back({match->start(), match->end()});
      at = match->end();
    }
    ASSERT_EQ(code_spans(text), expected) << text;
  }
}

TEST(InlineLinks, ScansTargetsInOrderOfPosition) {
  struct Case {
    std::string markdown;
    std::vector<LinkTarget> expected;
  };
  const auto doc = [](std::string target, std::int64_t line = 1) {
    return LinkTarget{REF_DOC_LINK, std::move(target), line};
  };
  const auto wiki = [](std::string target, std::int64_t line = 1) {
    return LinkTarget{REF_WIKI_LINK, std::move(target), line};
  };
  const std::vector<Case> cases = {
      {"See [the guide](../guide.md#install).", {doc("../guide.md#install")}},
      {"first line\nsecond [x](y.md)", {doc("y.md", 2)}},
      {"`a\nb` [x](y.md) [[P\n]] [z\nw](v.md)", {doc("y.md", 2), doc("v.md", 3)}},
      {"![diagram](img/arch.png) \\[x](y.md) \\\\[x](y.md) [x] (y.md) [x]()", {}},
      {"`[x](y.md)` [`code`](y.md) <!-- [c](c.md) -->", {doc("y.md"), doc("c.md")}},
      {"[x](<my file.md>) [x](a_(b).md) [x](y.md 'T') [x](z.md (T))",
       {doc("my file.md"), doc("a_(b).md"), doc("y.md"), doc("z.md")}},
      {"[x](//host/y.md) [x](https://e.com/a.md) [x](a(b(c)).md)", {}},
      {"[a](a.md) then [[B]]", {doc("a.md"), wiki("B")}},
      {"[[B]] then [a](a.md)", {wiki("B"), doc("a.md")}},
      {"[[Page]](x.md)", {doc("x.md"), wiki("Page")}},
      {"![[Embed]] \\[[Page]] [[P#A|text]] [[Q|a|b]] [[R|a]b]]",
       {wiki("Page"), wiki("P#A"), wiki("Q")}},
      {"[see [1]](notes.md) [a\\]b](c.md) [![logo](logo.png)](home.md)",
       {doc("notes.md"), doc("c.md"), doc("home.md")}},
      // A blanked character is one space, however many bytes it had.
      {"[[a `\u00e9` b]] [x](<m `\u00e9` .md>)", {wiki("a     b"), doc("m     .md")}},
      {"[[ ]] [[|text]] [x](<>) no link here", {}},
  };
  for (const auto& [markdown, expected] : cases) {
    EXPECT_EQ(inline_targets(markdown, 1), expected) << markdown;
  }
  EXPECT_EQ(inline_targets("a\n[x](y.md)", 12), std::vector{doc("y.md", 13)});
}

// The innermost section holding a line is the one the scan in document order would find.
TEST(SectionAt, MatchesTheScanInDocumentOrder) {
  const auto scan = [](std::span<const Symbol> sections, std::int64_t line) {
    std::optional<std::string> holder;
    for (const Symbol& s : sections) {
      if (s.start_line > line) break;
      if (s.end_line >= line) holder = s.fqn;
    }
    return holder;
  };
  std::mt19937 random(11);
  for (int round = 0; round < 2000; ++round) {
    std::vector<Symbol> sections(random() % 40);
    for (std::size_t i = 0; i < sections.size(); ++i) {
      sections[i].start_line = 1 + std::int64_t(random() % 30);
      sections[i].end_line = sections[i].start_line + std::int64_t(random() % 15) - 3;
      sections[i].fqn = std::to_string(i);
    }
    const SectionIndex index = section_index(sections);
    for (std::int64_t line = 0; line <= 50; ++line) {
      ASSERT_EQ(section_at(index, line), scan(sections, line)) << round << " " << line;
    }
  }
}

TEST(SectionAt, FindsTheInnermostSection) {
  const auto section = [](std::string fqn, std::int64_t start_line, std::int64_t end_line) {
    Symbol symbol;
    symbol.fqn = std::move(fqn);
    symbol.start_line = start_line;
    symbol.end_line = end_line;
    return symbol;
  };
  const std::vector<Symbol> sections = {section("README.Intro", 1, 10),
                                        section("README.Intro.Setup", 3, 5),
                                        section("README.Usage", 12, 20)};
  const SectionIndex index = section_index(sections);
  const std::vector<std::pair<std::int64_t, std::optional<std::string>>> cases = {
      {4, "README.Intro.Setup"}, {6, "README.Intro"}, {11, nullopt},
      {12, "README.Usage"},      {25, nullopt},
  };
  for (const auto& [line, expected] : cases) EXPECT_EQ(section_at(index, line), expected);
  EXPECT_EQ(section_at(section_index({}), 1), nullopt);
}

TEST(LinkWalk, EntersEveryBlockThatHoldsLinks) {
  for (const std::string_view kind : CONTAINERS) EXPECT_TRUE(LINK_CONTAINERS.contains(kind));
}

ReferenceInfo ref(std::string name, std::optional<std::string> qualifier, std::int64_t line,
                  std::optional<std::string> source = nullopt,
                  references::RefKind kind = REF_DOC_LINK) {
  return {std::move(name), std::move(qualifier), kind, line, std::move(source)};
}

TEST(LinkWalk, ReadsLinksWhereAReaderCanFollowThem) {
  const std::string markdown =
      "---\ntitle: '[a](fm.md)'\n---\n"                        // 1-3
      "> quote [q](q.md)\n\n- item\n  - nested [n](n.md)\n\n"  // 4-8
      "Setext [s](s.md)\n===\n\n"                              // 9-11
      "| [h](h.md) | b |\n|---|---|\n| c | [[Cell]] |\n\n"     // 12-15
      "```\n[c](code.md)\n```\n\n    [i](indented.md)\n\n"     // 16-21
      "<div>\n[x](html.md)\n</div>\n\n"                        // 22-25
      "[r]:\n  ref.md\n[w]: https://e.com\n[e]: <>\n";         // 26-29
  const std::vector<ReferenceInfo> expected = {
      ref("q.md", nullopt, 4),
      ref("n.md", nullopt, 7),
      ref("s.md", nullopt, 9, "README.Setext s"),
      ref("h.md", nullopt, 12, "README.Setext s"),
      ref("Cell", nullopt, 14, "README.Setext s", REF_WIKI_LINK),
      ref("ref.md", nullopt, 26, "README.Setext s"),
  };
  EXPECT_EQ(testing::index_text(markdown).references, expected);
}

// The walk skips nodes by counts of link marks kept every 64 bytes: a mark must be found at
// any offset, right at the document's ends and across a count boundary included.
TEST(LinkWalk, FindsLinksWhereverTheirMarksFall) {
  const std::vector<std::pair<std::string, std::string>> holders = {
      {"", ""}, {"- ", "\n"}, {"> ", "\n"}, {"| ", " |\n|---|\n"}};
  for (const auto& [before, after] : holders) {
    for (std::size_t padding = 0; padding < 140; ++padding) {
      for (const auto& [link, kind] :
           {std::pair{"[a](b.md)", REF_DOC_LINK}, std::pair{"[[b.md]]", REF_WIKI_LINK}}) {
        const std::string markdown = before + std::string(padding, 'x') + " " + link + after;
        EXPECT_EQ(testing::index_text(markdown).references,
                  std::vector{ref("b.md", nullopt, 1, nullopt, kind)})
            << markdown;
      }
    }
  }
  for (std::size_t padding = 0; padding < 140; ++padding) {
    const std::string definition = std::string(padding, 'x') + "\n\n[a]: b.md";
    EXPECT_EQ(testing::index_text(definition).references, std::vector{ref("b.md", nullopt, 3)})
        << definition;
  }
}

// A reference definition whose label is followed by a control character before its colon.
TEST(LinkWalk, ReadsEveryDefinitionTheGrammarFinds) {
  EXPECT_EQ(testing::index_text(std::string("[l]\0:c", 6)).references,
            std::vector{ref("c", nullopt, 1)});
}

// Skipping the subtrees without link marks must never change what the walk finds: documents
// made of link pieces, control characters and invalid UTF-8, read with and without the skip.
TEST(LinkWalk, SkipsOnlyWhatHoldsNoLink) {
  const std::vector<std::string> pieces = {
      "[",    "]",    "(",    ")",    "[[",    "]]",    ":",   "a.md",  "#x", "|",
      " ",    "\n",   "\t",   "> ",   "- ",    "1. ",   "`",   "```",   "<",  ">",
      "\\",   "!",    "\"",   "'",    "=",     "---",   "# ",  "    ",  "\r", "\x01",
      "\x7f", "\xff", "\xc3", "\xa9", "&amp;", "\n[l]", "[l]", ": b.md"};
  std::string nul(1, '\0');
  std::mt19937 random(15);
  std::uniform_int_distribution<std::size_t> piece(0, pieces.size());
  std::uniform_int_distribution<int> length(1, 60);
  static MarkdownParser parser;
  for (int round = 0; round < 4000; ++round) {
    std::string markdown;
    for (int n = length(random); n > 0; --n) {
      const std::size_t i = piece(random);
      markdown += i == pieces.size() ? nul : pieces[i];
    }
    const Document document(parser, markdown);
    EXPECT_EQ(link_targets(document.root(), Subtrees::SKIP_LINK_FREE),
              link_targets(document.root(), Subtrees::READ_ALL))
        << ::testing::PrintToString(markdown);
  }
}

TEST(LinkExtraction, SplitsDecodesAndDropsRepeatsOnALine) {
  const std::string markdown =
      "[a](../guide.md?x=1#sec) [b](guide.md#sec?x) [c](my%20file.md#%20)\n"  // 1
      "# Top\n"                                                               // 2
      "[a](#install) [[#Install]] [b](#) [c](?x) [d](%20)\n"                  // 3
      "[a](g.md) [a](g.md) [b](g.md?v=2) [c](g.md#x) [[g.md]]\n"              // 4
      "[a](g.md)\n";                                                          // 5
  const std::vector<ReferenceInfo> expected = {
      ref("../guide.md", "sec", 1),
      ref("guide.md", "sec?x", 1),
      ref("my file.md", nullopt, 1),
      ref("", "install", 3, "README.Top"),
      ref("", "Install", 3, "README.Top", REF_WIKI_LINK),
      ref("g.md", nullopt, 4, "README.Top"),
      ref("g.md", "x", 4, "README.Top"),
      ref("g.md", nullopt, 4, "README.Top", REF_WIKI_LINK),
      ref("g.md", nullopt, 5, "README.Top"),
  };
  EXPECT_EQ(testing::index_text(markdown).references, expected);
}

}  // namespace
}  // namespace tarnwick::engines::markdown::detail
