// Reading TOML front matter: which lines set a field, and how strings are decoded.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "engines/markdown/toml.hpp"

namespace tarnwick::engines::markdown::detail {
namespace {

using namespace std::string_literals;

struct Case {
  std::vector<std::string> lines;
  Fields expected;
};

std::string joined(const std::vector<std::string>& lines) {
  std::string body;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    if (i > 0) body += '\n';
    body += lines[i];
  }
  return body;
}

TEST(TomlFields, OnlyWholeLinesThatSetAFieldToAStringCount) {
  const std::vector<Case> cases = {
      {{"title = \"Guide\""}, {{"title", "Guide"s}}},
      {{"title=\"x\""}, {{"title", "x"s}}},
      {{"title = \"x\" # note"}, {{"title", "x"s}}},
      {{"title = 'x' # it's"}, {{"title", "x"s}}},
      {{"  title = 'x'  "}, {{"title", "x"s}}},
      {{"title = 'x'\r"}, {{"title", "x"s}}},
      {{"\xC2\xA0title\t=\xE3\x80\x80'x'"}, {{"title", "x"s}}},
      {{"title = 'D:\\path\\x'"}, {{"title", "D:\\path\\x"s}}},
      {{"title = \"\""}, {{"title", ""s}}},
      {{"title = \"A\"", "title = \"B\""}, {{"title", "B"s}}},
      {{"description = 'D'", "title = 'T'"}, {{"title", "T"s}, {"description", "D"s}}},
      {{"title = \"A\"", "[params]", "description = \"D\""}, {{"title", "A"s}}},
      {{"tags = [", "  [\"a\", \"b\"],", "title = \"X\""}, {}},
      {{"summary = \"\"\"", "title = \"Fake\"", "\"\"\""}, {{"title", "Fake"s}}},
      {{"title = \"a\" \"b\""}, {}},
      {{"title = \"\"\"x\"\"\""}, {}},
      {{"title = '''x'''"}, {}},
      {{"titles = \"x\""}, {}},
      {{"Title = \"x\""}, {}},
      {{"\"title\" = \"x\""}, {}},
      {{"description = 'It''s'"}, {}},
      {{"title = 42"}, {}},
      {{"title = \"x\" junk"}, {}},
      {{"title = \"a\\\""}, {}},
      {{""}, {}}};
  for (const auto& [lines, expected] : cases) {
    EXPECT_EQ(toml_fields(joined(lines)), expected) << joined(lines);
  }
}

struct StringCase {
  std::string literal;
  std::string expected;
};

TEST(TomlStrings, BasicStringsDecodeAsJsonAndLiteralStringsStayAsWritten) {
  const std::vector<StringCase> cases = {
      {"'D:\\path\\x'", "D:\\path\\x"},
      {"'\\u00e9'", "\\u00e9"},
      {"\"Tab\\there\"", "Tab\there"},
      {"\"\\\"q\\\" \\\\ \\/ \\b\\f\\n\\r\\t\"", "\"q\" \\ / \b\f\n\r\t"},
      {"\"a\\u00e9b\"",
       "a\xC3\xA9"
       "b"},
      {"\"\\u00E9\\u20AC\"", "\xC3\xA9\xE2\x82\xAC"},
      {"\"\\ud83d\\ude00\"", "\xF0\x9F\x98\x80"},
      {"\"\\uD83D\\uDE00!\"", "\xF0\x9F\x98\x80!"},
      {"\"\\ud800\"", "\xEF\xBF\xBD"},    // a lone high surrogate
      {"\"\\ude00x\"", "\xEF\xBF\xBDx"},  // a lone low surrogate
      {"\"\\ud83d\\u0041\"",
       "\xEF\xBF\xBD"
       "A"},  // a high one not followed by a low one
      {"\"\\ude00\\ud83d\"", "\xEF\xBF\xBD\xEF\xBF\xBD"},
      {"\"caf\xC3\xA9\"", "caf\xC3\xA9"},
      {"\"\"", ""},
      // What JSON does not know is kept as written between the quotes.
      {"\"bad \\e escape\"", "bad \\e escape"},
      {"\"\\U0001F600\"", "\\U0001F600"},
      {"\"\\x41\"", "\\x41"},
      {"\"\\u12\"", "\\u12"},
      {"\"\\u12G4\"", "\\u12G4"},
      {"\"\\ud83d\\uZZZZ\"", "\\ud83d\\uZZZZ"},
      {"\"tab\tinside\"", "tab\tinside"},
      {"\"\x1F\"", "\x1F"},
      {"\"end\\\"", "end\\"}};
  for (const auto& [literal, expected] : cases) {
    EXPECT_EQ(toml_string(literal), expected) << literal;
  }
}

}  // namespace
}  // namespace tarnwick::engines::markdown::detail
