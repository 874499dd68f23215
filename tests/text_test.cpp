// The pure text functions: UTF-8 decoding, white space, plain text, closing sequences,
// heading paths and the last row of a section.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "engines/markdown/inline_text.hpp"
#include "engines/markdown/outline.hpp"
#include "text/utf8.hpp"
#include "text/white_space.hpp"

using namespace tarnwick::text;

namespace tarnwick::engines::markdown::detail {
namespace {

struct Case {
  std::string input;
  std::string expected;
};

TEST(Utf8, DecodingReplacesEachMaximalIllFormedSubpart) {
  const std::vector<Case> cases = {
      {"caf\xC3\xA9", "caf\xC3\xA9"},
      {"a\xFF"
       "b",
       "a\uFFFD"
       "b"},
      {"\xE2\x82"
       "b",
       "\uFFFD"
       "b"},  // a truncated sequence is one subpart
      {"\xFF\xFE", "\uFFFD\uFFFD"},
      {"\xED\xA0\x80", "\uFFFD\uFFFD\uFFFD"},            // an encoded surrogate is not UTF-8
      {"\xC0\xAF", "\uFFFD\uFFFD"},                      // overlong
      {"\xF4\x90\x80\x80", "\uFFFD\uFFFD\uFFFD\uFFFD"},  // beyond U+10FFFF
      {"\xF0\x9F\x98", "\uFFFD"},
      {"\xEF\xBB\xBFx", "\uFEFFx"},  // a byte-order mark stays
      {std::string("a\0b", 3), std::string("a\0b", 3)},
  };
  for (const auto& [input, expected] : cases) EXPECT_EQ(decode_utf8(input), expected) << input;
}

TEST(Utf8, CountsAndCutsByCodePoint) {
  EXPECT_EQ(code_point_count("h\xC3\xA9llo \xF0\x9F\x98\x80"), 7u);
  EXPECT_EQ(first_code_points("h\xC3\xA9llo", 2), "h\xC3\xA9");
  EXPECT_EQ(first_code_points("abc", 10), "abc");
}

TEST(WhiteSpace, IsExactlyTheTwentyNineCharacters) {
  int count = 0;
  for (char32_t c = 0; c < 0x110000; ++c) count += is_white_space(c);
  EXPECT_EQ(count, 29);
  EXPECT_TRUE(is_white_space(0x1C));
  EXPECT_TRUE(is_white_space(0x85));
  EXPECT_FALSE(is_white_space(0x200B));  // zero-width space is not white space
  EXPECT_FALSE(is_white_space(0xFEFF));
}

TEST(WhiteSpace, StripCollapseAndBlank) {
  EXPECT_EQ(strip("\xC2\xA0 a b\u3000\n"), "a b");
  EXPECT_EQ(collapse_white_space("  lots   of\n\nspace\t"), "lots of space");
  EXPECT_EQ(collapse_white_space("x\xC2\xA0\xC2\xA0y"), "x y");
  EXPECT_TRUE(is_blank(" \t\xC2\xA0"));
  EXPECT_TRUE(is_blank(""));
  EXPECT_FALSE(is_blank(" <!-- -->"));
  EXPECT_FALSE(is_blank(" \xFF"));  // an ill-formed byte is text
}

TEST(PlainText, ReadsInlineMarkdownAsAReaderSeesIt) {
  const std::vector<Case> cases = {
      {"Install **now**", "Install now"},
      {"*a* **b** ***c*** _d_ __e__ ~~f~~", "a b c d e f"},
      {"Use `foo  bar` here", "Use foo bar here"},
      {"A ``code with ` tick`` end", "A code with ` tick end"},
      {"`` ` ``", "`"},
      {"`a``b`", "a``b"},
      {"`unclosed", "`unclosed"},
      {"```", "```"},
      {"\\\\`a`", "\\`a`"},
      {"*a `b` c*", "*a b c*"},
      {"[text](../guide.md#x) and ![alt](img.png)", "text and alt"},
      {"[ref][label] and [x]", "ref and [x]"},
      {"[a](b(c)d)", "a"},
      {"[a](b(c(d)))", "[a](b(c(d)))"},
      {"[a [b] c](d)", "[a [b] c](d)"},
      {"[]()", ""},
      {"[![badge](b.svg)](url)", "badge"},
      {"\\[a](b)", "[a](b)"},
      {"\\![a](b)", "![a](b)"},
      {"<ftp:files/a> <b>bold</b> <!-- c -->", "ftp:files/a bold"},
      {"<HTTPS:X>", "<HTTPS:X>"},
      {"<not a tag>", ""},
      {"x <y> z", "x z"},
      {"a < b > c", "a < b > c"},
      {"<1>", "<1>"},
      {"snake_case_name", "snake_case_name"},
      {"x__y__z", "x__y__z"},
      {"__init__ method", "init method"},
      {"(_a_)", "(a)"},
      {"foo*bar*baz", "foobarbaz"},
      {"2*3*4", "234"},
      {"a * b * c", "a * b * c"},
      {"* list", "* list"},
      {"****a****", "****a****"},
      {"**a*b**", "a*b"},
      {"**a *b* c**", "a *b* c"},
      {"~~x~~y~~", "xy~~"},
      {"~~ x ~~", "~~ x ~~"},
      {"\\*not\\* emphasis", "*not* emphasis"},
      {"a\\_b", "a_b"},
      {"\\a", "\\a"},
      {"end\\", "end\\"},
      {"  lots   of\n\nspace\t", "lots of space"},
      {"x\xC2\xA0\xC2\xA0y", "x y"},
      {"a\\\nb", "a b"},
      {" \t\n ", ""},
      {"<br/>", ""},
      {"\xCC\x81_x_", "\xCC\x81x"},    // a combining mark is not a word character...
      {"\xC3\xA9_x_", "\xC3\xA9_x_"},  // ...but a letter is
      {"\xC2\xBD_x_", "\xC2\xBD_x_"},  // and so is a character with a numeric value
  };
  for (const auto& [input, expected] : cases) EXPECT_EQ(plain_text(input), expected) << input;
}

TEST(PlainText, ReadsTheFirstFourThousandCodePoints) {
  EXPECT_EQ(plain_text(std::string(5000, 'a')), std::string(4000, 'a'));
  EXPECT_EQ(plain_text(std::string(3999, 'a') + "`b`"), std::string(3999, 'a') + "`");
  std::string wide;
  for (int i = 0; i < 4001; ++i) wide += "\xC3\xA9";
  EXPECT_EQ(code_point_count(plain_text(wide)), 4000u);
}

TEST(ClosingSequence, RemovesTheLastHashRunOnly) {
  const std::vector<Case> cases = {
      {"Install ##", "Install"},
      {"Install   ##   ", "Install"},
      {"Install##", "Install##"},
      {"a ## ##", "a ##"},
      {"#", ""},
      {"C# #", "C#"},
      {"C#", "C#"},
      {"Install \\#", "Install \\#"},
      {"a\t#\t", "a"},
      {"a #\n", "a\n"},  // $ also matches before a final line feed
  };
  for (const auto& [input, expected] : cases) {
    EXPECT_EQ(replace_all(CLOSING_SEQUENCE, input, -1), expected) << input;
  }
}

std::vector<std::string> names_of_lengths(std::initializer_list<std::size_t> lengths) {
  std::vector<std::string> names;
  char letter = 'a';
  for (const auto length : lengths) names.emplace_back(length, letter++);
  return names;
}

TEST(HeadingPath, DropsNamesFromTheFrontToFit) {
  struct PathCase {
    std::vector<std::string> names;
    std::string expected;
  };
  const std::string b100(100, 'b'), c30(30, 'c'), b30(30, 'b');
  const std::vector<PathCase> cases = {
      {{"Install", "Linux"}, "Install > Linux"},
      {{"Guide"}, "Guide"},
      {{std::string(100, 'a'), b100, "Linux"}, "... > " + b100 + " > Linux"},
      {{std::string(150, 'a'), b30, c30}, "... > " + b30 + " > " + c30},
      {names_of_lengths({200}), std::string(200, 'a')},
      {names_of_lengths({250}), std::string(197, 'a') + "..."},
      {{"Guide", std::string(194, 'x')}, "... > " + std::string(194, 'x')},
      {{"Guide", std::string(196, 'x')}, std::string(196, 'x') + "..."},
      {{"Guide", std::string(260, 'x')}, std::string(197, 'x') + "..."},
      {{"Guide", std::string(195, 'x')}, std::string(195, 'x') + "..."},
      {{"Guide", std::string(198, 'x')}, std::string(197, 'x') + "..."},
      {{"a > b", "c"}, "a > b > c"},
      {names_of_lengths({98, 99}), std::string(98, 'a') + " > " + std::string(99, 'b')},
      {names_of_lengths({98, 100}), "... > " + std::string(100, 'b')},
  };
  for (const auto& [names, expected] : cases) {
    EXPECT_EQ(heading_path(names), expected) << names.size() << " names";
  }
}

TEST(HeadingPath, MeasuresCodePointsNotBytes) {
  std::string wide;
  for (int i = 0; i < 200; ++i) wide += "\xC3\xA9";
  EXPECT_EQ(heading_path(std::vector<std::string>{wide}), wide);
}

TEST(LastTextRow, WalksUpOverBlankRowsButNotPastTheFloor) {
  const std::vector<std::string_view> lines = {"# A", "", "text", "x", " \t", "\xC2\xA0", ""};
  EXPECT_EQ(last_text_row(lines, 3, 3), 3);
  EXPECT_EQ(last_text_row(lines, 3, 6), 3);
  EXPECT_EQ(last_text_row(lines, 0, 1), 0);
  EXPECT_EQ(last_text_row(lines, 0, 2), 2);
  EXPECT_EQ(last_text_row(lines, 4, 2), 2);  // a row below the floor comes back unchanged
}

}  // namespace
}  // namespace tarnwick::engines::markdown::detail
