// Documents built to hurt: deep nesting, long runs of delimiters, many headings, and bytes
// that are not UTF-8. Each must give its exact records (how fast is for the benchmarks).
#include <gtest/gtest.h>

#include <string>

#include "support.hpp"

namespace tarnwick::testing {
namespace {

std::string repeated(std::string_view unit, std::size_t times) {
  std::string text;
  text.reserve(unit.size() * times);
  for (std::size_t i = 0; i < times; ++i) text += unit;
  return text;
}

struct LinkInDepth {
  std::string name;
  std::string line_start;
};

TEST(Hostile, DeepNestingOnOneLineKeepsItsLink) {
  const std::vector<LinkInDepth> cases = {
      {"block quotes", repeated(">", 10000) + " "},
      {"list items", repeated("- ", 10000)},
      {"mixed", repeated("> - ", 3000)},
  };
  for (const auto& [name, line_start] : cases) {
    const Indexed indexed = index_text("# Top\n" + line_start + "[a](b.md)\n");
    ASSERT_EQ(indexed.symbols.size(), 1u) << name;
    EXPECT_EQ(indexed.symbols[0].end_line, 2) << name;
    ASSERT_EQ(indexed.references.size(), 1u) << name;
    EXPECT_EQ(indexed.references[0].name, "b.md") << name;
    EXPECT_EQ(indexed.references[0].line, 2) << name;
    EXPECT_EQ(indexed.references[0].source_fqn, "README.Top") << name;
  }
}

TEST(Hostile, DelimiterRunsStayTextOfTheirParagraph) {
  for (const std::string unit : {"`", "~", "*", "_", "[", "[[", "](", "("}) {
    const std::string run = repeated(unit, 200000 / unit.size());
    const Indexed indexed = index_text("# Top\nSee [a](b.md) " + run + " [c](d.md)\n# Next\n");
    ASSERT_EQ(indexed.symbols.size(), 2u) << unit;
    EXPECT_EQ(indexed.symbols[0].end_line, 2) << unit;
    EXPECT_EQ(indexed.symbols[1].fqn, "README.Next") << unit;
    ASSERT_TRUE(indexed.symbols[0].docstring) << unit;
    EXPECT_TRUE(indexed.symbols[0].docstring->starts_with("See a ")) << unit;
    ASSERT_GE(indexed.references.size(), 1u) << unit;
    EXPECT_EQ(indexed.references.front().name, "b.md") << unit;
  }
}

TEST(Hostile, ManyHeadingsAreEachASection) {
  const Indexed indexed = index_text(repeated("## Same\n", 20000));
  ASSERT_EQ(indexed.symbols.size(), 20000u);
  EXPECT_EQ(indexed.symbols[1].fqn, "README.Same#2");
  EXPECT_EQ(indexed.symbols.back().fqn, "README.Same#20000");
  EXPECT_EQ(indexed.symbols.back().start_line, 20000);
}

TEST(Hostile, BytesThatAreNotUtf8AreReplacedWherever) {
  constexpr char document[] = "# caf\xE9 \0x\n\xFF\xFEtext [a](\xC3.md)\n";
  const Indexed indexed = index_text(std::string(document, sizeof document - 1));
  ASSERT_EQ(indexed.symbols.size(), 1u);
  EXPECT_EQ(indexed.symbols[0].name, std::string("caf\uFFFD \0x", 9));
  EXPECT_EQ(indexed.symbols[0].docstring, "\uFFFD\uFFFDtext a");
  ASSERT_EQ(indexed.references.size(), 1u);
  EXPECT_EQ(indexed.references[0].name, "\uFFFD.md");
}

TEST(Hostile, ALongSingleLineIsOneParagraph) {
  const Indexed indexed = index_text("# Top\n" + repeated("word [x](y.md) ", 100000) + "\n");
  ASSERT_EQ(indexed.symbols.size(), 1u);
  EXPECT_EQ(indexed.symbols[0].docstring->size(), 1000u);  // cut by the indexer's rule
  ASSERT_EQ(indexed.references.size(), 1u);                // one link, repeated on one line
}

}  // namespace
}  // namespace tarnwick::testing
