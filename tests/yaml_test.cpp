// Loading YAML front matter: the typing of scalars and tags, keys, merges, aliases, and the
// bodies that do not load.
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <ostream>
#include <string>
#include <vector>

#include "engines/markdown/yaml.hpp"

namespace tarnwick::engines::markdown::detail {

static void PrintTo(const Integer& integer, std::ostream* out) {
  *out << integer.decimal;
}

namespace {

using namespace std::string_literals;

struct Loaded {
  Fields fields;
  std::vector<std::string> lines;
};

Loaded load(const std::string& body) {
  Loaded loaded;
  const IndexerRules rules{.unique_fqn = {},
                           .cap_docstring = {},
                           .debug_log = [&](std::string_view, std::string_view line) {
                             loaded.lines.emplace_back(line);
                           }};
  loaded.fields = yaml_fields(body, "README", Logger(rules));
  return loaded;
}

// The title of a body that must load without a debug line.
Value title_of(const std::string& body) {
  const Loaded loaded = load(body);
  EXPECT_TRUE(loaded.lines.empty()) << body << ": " << loaded.lines.front();
  const auto found = loaded.fields.find(TITLE);
  if (found == loaded.fields.end()) {
    ADD_FAILURE() << body << ": no title entry";
    return nullptr;
  }
  return found->second;
}

// Each written value after "title: ", and the value it must load as.
void expect_titles(const std::vector<std::pair<std::string, Value>>& cases) {
  for (const auto& [written, expected] : cases) {
    EXPECT_EQ(title_of("title: " + written), expected) << written;
  }
}

void expect_titles(const Value& expected, const std::vector<std::string>& written) {
  for (const auto& w : written) EXPECT_EQ(title_of("title: " + w), expected) << w;
}

TEST(YamlTyping, PlainScalarsTakeTheirYaml11Types) {
  expect_titles(nullptr, {"", "~", "null", "Null", "NULL"});
  expect_titles(true, {"yes", "TRUE", "On"});
  expect_titles(false, {"No", "off", "False"});
  expect_titles(Opaque::DATE, {"2001-12-14", "2024-02-29"});
  expect_titles(Opaque::TIMESTAMP, {"2001-12-14t21:59:43.10-05:00", "2001-12-14 21:59:43.10 -5",
                                    "2001-12-14T21:59:43Z", "2001-1-1 1:00:00"});
  for (const std::string text : {"nULL", "y", "yEs", "08", "0b2", "1:60", "1.0e3", "1e3", "+.5",
                                 "-.nan", "2001-1-1", "<<x", "How to *install*",
                                 // resolved to YAML 1.1's merge and value types, which only a
                                 // mapping's key can use: as values they are text
                                 "<<", "="}) {
    EXPECT_EQ(title_of("title: " + text), Value(text));
  }
  expect_titles({{"0b1010", Integer{"10"}},
                 {"-0b1_0", Integer{"-2"}},
                 {"017", Integer{"15"}},
                 {"-0", Integer{"0"}},
                 {"+12", Integer{"12"}},
                 {"1_000", Integer{"1000"}},
                 {"0x_1F", Integer{"31"}},
                 {"1:30", Integer{"90"}},
                 {"-1:30:00", Integer{"-5400"}}});
  expect_titles({{"1.5", 1.5},
                 {"1.", 1.0},
                 {"-1.0e+3", -1000.0},
                 {".5", 0.5},
                 {"1_0.2_5", 10.25},
                 {"1:30.5", 90.5},
                 {"-59:59:59.5", -215999.5},
                 {".inf", INFINITY},
                 {"-.Inf", -INFINITY},
                 {"+.INF", INFINITY}});
  EXPECT_TRUE(std::isnan(std::get<double>(title_of("title: .NaN"))));
}

TEST(YamlTyping, QuotedBlockAndTaggedScalars) {
  expect_titles({{"'123'", "123"s},
                 {"\"yes\"", "yes"s},
                 {"|\n  12\n  34", "12\n34"s},
                 {">\n  a\n  b", "a b"s},
                 {"!!str 123", "123"s},
                 {"!!str", ""s},
                 {"!<tag:yaml.org,2002:str> 12", "12"s},
                 {"!!int \"12\"", Integer{"12"}},
                 {"!!int ' 12 '", Integer{"12"}},
                 {"!!int '-0x1F'", Integer{"-31"}},
                 {"!!int 0o17", Integer{"15"}},
                 {"!!float 1", 1.0},
                 {"!!float '1e3'", 1000.0},
                 {"!!bool 'YES'", true},
                 {"!!null x", nullptr},
                 {"!!binary |\n  aGVs\n  bG8=", Opaque::BINARY},
                 {"!!timestamp 2001-1-1", Opaque::DATE},
                 {"! 12", Integer{"12"}},  // the non-specific tag leaves any style to the resolver
                 {"! '12'", Integer{"12"}},
                 {"! =", "="s},
                 {"&x 12", Integer{"12"}}});
}

TEST(YamlTyping, CollectionsKeepOnlyTheirKind) {
  expect_titles({{"[a, b]", Opaque::LIST},
                 {"!!seq [a]", Opaque::LIST},
                 {"!!omap [a: 1, b: 2]", Opaque::LIST},
                 {"!!pairs [a: 1, a: 2]", Opaque::LIST},
                 {"!!omap [<<: {a: 1}]", Opaque::LIST},  // a pair's key `<<` does not merge
                 {"[=, <<, {=: <<}]", Opaque::LIST},
                 {"{a: 1}", Opaque::MAPPING},
                 {"!!set {a, b}", Opaque::SET}});
}

TEST(YamlTyping, NumbersAreExactAtAnySize) {
  std::string sexagesimal = "1";
  for (int i = 0; i < 100; ++i) sexagesimal += ":59";
  expect_titles(
      {{"0x" + std::string(200, 'F'),
        Integer{
            "66680144328798542740798517907212577971447583223159081603962578117640372378176320"
            "71521432200871554290742929910593433240445888801654119365080363356052330830046095"
            "157579514014558463078285911814024728965016135886601981690748037476461291163877375"}},
       {"-1" + std::string(3000, '0'), Integer{"-1" + std::string(3000, '0')}},
       {sexagesimal,
        Integer{"1306637247000141812193380534316115641074287420945909743086143932738994282954751" +
                std::string(100, '9')}},
       {"1.0e+400", INFINITY},
       {"1.0e-400", 0.0},
       {"4.9e-324", 4.9e-324}});
  EXPECT_TRUE(std::signbit(std::get<double>(title_of("title: -1.0e-400"))));
}

TEST(YamlKeys, OnlyTheTextTitleCountsAndTheLastOneWins) {
  const std::vector<std::pair<std::string, Value>> cases = {
      {"'title': Quoted", "Quoted"s},     {"!!str title: S", "S"s},
      {"? title\n: Complex", "Complex"s}, {"k: &k title\n*k : Alias", "Alias"s},
      {"title: A\ntitle: B", "B"s},       {"Title: Upper", nullptr},
      {"=: x\ntitle: T", "T"s},           {"1: x\nyes: y\n~: z", nullptr},
      {"title: T\n...\n", "T"s}};
  for (const auto& [body, expected] : cases) EXPECT_EQ(title_of(body), expected) << body;
  EXPECT_EQ(load("description: D").fields, (Fields{{"title", nullptr}, {"description", "D"s}}));
}

TEST(YamlMerges, OwnKeysWinThenLaterMergeKeysThenEarlierMappings) {
  const std::vector<std::pair<std::string, Value>> cases = {
      {"base: &b {title: A}\n<<: *b", "A"s},
      {"<<: {title: A}\ntitle: B", "B"s},
      {"title: B\n<<: {title: A}", "B"s},
      {"<<: [{title: A}, {title: B}]", "A"s},
      {"<<: {title: A}\n<<: {title: B}", "B"s},
      {"<<: {<<: {title: A}}", "A"s},
      {"a: &a {title: A}\nb: &b {<<: *a, title: B}\n<<: [*b, *a]", "B"s},
      {"&m\n<<: *m\ntitle: Self", "Self"s},
      {"<<: !custom {title: C}", "C"s}};  // a merged mapping is not constructed itself
  for (const auto& [body, expected] : cases) EXPECT_EQ(title_of(body), expected) << body;
}

TEST(YamlAliases, AreSharedSoBombsMergesAndCyclesStayCheap) {
  std::string bomb = "a: &a [lol, lol, lol, lol, lol, lol, lol, lol, lol]\n";
  for (char c = 'b'; c <= 'z'; ++c) {
    const std::string alias = std::string(", *") + static_cast<char>(c - 1);
    bomb += std::string(1, c) + ": &" + c + " [" + (alias + alias + alias).substr(2) + "]\n";
  }
  std::string merges = "a0: &a0 {title: Deep}\n";
  for (int i = 1; i < 64; ++i) {
    const std::string name = std::string("a") + std::to_string(i);
    const std::string merged = std::string("*a") + std::to_string(i - 1);
    merges += name + ": &" + name + " {<<: [" + merged + ", " + merged + "]}\n";
  }
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(title_of(bomb + "title: *z"), Value(Opaque::LIST));
  EXPECT_EQ(title_of(merges + "<<: *a63"), Value("Deep"s));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
  EXPECT_EQ(title_of("a: &a [*a]\ntitle: x"), Value("x"s));
  EXPECT_EQ(title_of("a: &a {self: *a, title: inner}\ntitle: x"), Value("x"s));
}

TEST(YamlDocuments, WhatIsNotOneMappingGivesNoFieldsAndNoLine) {
  for (const std::string body :
       {"", "# only a comment", "- a", "just text", "---", "!!set {title}", "!!omap [title: x]"}) {
    const Loaded loaded = load(body);
    EXPECT_TRUE(loaded.fields.empty()) << body;
    EXPECT_TRUE(loaded.lines.empty()) << body;
  }
}

TEST(YamlFailures, GiveOneDebugLineAndNoFields) {
  const std::vector<std::string> bodies = {
      // syntax, tags, documents and anchors
      "title: [unclosed", "title: \x01", "title: !custom x", "title: !!python/str x",
      "title: Guide\nother: !custom x", "a: 1\n---\nb: 2", "a: 1\n---", "title: *missing",
      "a: &x 1\nb: &x 2", "title: " + std::string(60000, '['),
      // keys and merges
      "[a, b]: 1", "{a: 1}: 2", "? !!set {a}\n: 1", "<<: 1", "<<: [1]", "<<: [{a: 1}, x]",
      "<<: {title: !custom x}", "title: !!merge <<", "title: !!value =",
      // scalars that do not construct
      "title: !!int abc", "title: !!int ''", "title: !!int ' 0x1F '", "title: 0b_",
      "title: !!bool maybe", "title: !!float x", "title: 2024-13-45", "title: 2023-02-29",
      "title: 0000-01-01", "title: 2001-12-14 24:00:00", "title: 2001-12-14 23:59:60",
      "title: 2001-12-14 23:59:59 +24:00", "title: !!timestamp 2001-12-14 x",
      "title: !!binary aGVsbG8", "title: !!binary aGVsbG8=\xC3\xA9",
      // collections under the wrong tag
      "title: !!str [a]", "title: !!seq {a: 1}", "title: !!map [a]", "title: !!omap {a: 1}",
      "title: !!omap [a]", "title: !!omap [{a: 1, b: 2}]"};
  for (const std::string& body : bodies) {
    const Loaded loaded = load(body);
    EXPECT_TRUE(loaded.fields.empty()) << body;
    ASSERT_EQ(loaded.lines.size(), 1u) << body;
    EXPECT_TRUE(loaded.lines[0].starts_with("The front matter of README is not YAML: ")) << body;
    EXPECT_EQ(loaded.lines[0].find('\n'), std::string::npos) << loaded.lines[0];
  }
}

TEST(YamlFailures, NestingIsReadUpToTheLimit) {
  const auto nested = [](std::size_t depth) {
    return "title: x\nd: " + std::string(depth - 1, '[') + std::string(depth - 1, ']');
  };
  EXPECT_EQ(title_of(nested(MAX_YAML_DEPTH)), Value("x"s));
  EXPECT_EQ(load(nested(MAX_YAML_DEPTH + 1)).lines.size(), 1u);
}

}  // namespace
}  // namespace tarnwick::engines::markdown::detail
