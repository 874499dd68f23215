// Baselines: a problem is known by its file, code and target, as many times as it was recorded,
// whatever line it moved to; what a baseline knows and no longer occurs is counted as fixed.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "check/baseline.hpp"

namespace tarnwick::check {
namespace {

namespace fs = std::filesystem;

Problem problem(std::string path, std::int64_t line, Code code, std::string target) {
  Problem p;
  p.file = std::move(path);
  p.line = line;
  p.code = code;
  p.target = std::move(target);
  return p;
}

// A baseline written for some problems and read back from its file.
Baseline written_and_read(const std::vector<Problem>& problems) {
  const fs::path file = fs::temp_directory_path() / "tarnwick-baseline-test.json";
  std::ofstream(file, std::ios::binary) << baseline_text(problems);
  auto read = read_baseline(file);
  fs::remove(file);
  EXPECT_TRUE(std::holds_alternative<Baseline>(read));
  return std::get<Baseline>(read);
}

struct Case {
  const char* name;
  std::vector<Problem> known;
  std::vector<Problem> found;
  std::string states;  // "n" new, "u" unchanged, one per problem found
  std::size_t fixed;
};

TEST(Baseline, KnowsProblemsByFileCodeAndTarget) {
  const Problem gone = problem("docs/a.md", 3, Code::missing_file, "gone.md");
  const Case cases[] = {
      {"the same run", {gone}, {gone}, "u", 0},
      {"moved by an edit above it",
       {gone},
       {problem("docs/a.md", 9, Code::missing_file, "gone.md")},
       "u",
       0},
      {"a new one",
       {gone},
       {gone, problem("docs/a.md", 4, Code::missing_file, "other.md")},
       "un",
       0},
      {"the same target in another file",
       {gone},
       {problem("docs/b.md", 3, Code::missing_file, "gone.md")},
       "n",
       1},
      {"the same target with another code",
       {gone},
       {problem("docs/a.md", 3, Code::site_path, "gone.md")},
       "n",
       1},
      {"once more than it was known", {gone}, {gone, gone}, "un", 0},
      {"fixed", {gone, gone, problem("b.md", 1, Code::missing_anchor, "#x")}, {gone}, "u", 2},
      {"paths and targets that need escaping",
       {problem("d\xC3\xA9j\xC3\xA0/\"q\".md", 1, Code::missing_file, "a\\b\tc.md")},
       {problem("d\xC3\xA9j\xC3\xA0/\"q\".md", 2, Code::missing_file, "a\\b\tc.md")},
       "u",
       0},
  };
  for (const Case& c : cases) {
    std::vector<Problem> found = c.found;
    const std::size_t fixed = compare_with_baseline(found, written_and_read(c.known));
    std::string states;
    for (const Problem& p : found) {
      states += p.baseline == BaselineState::unchanged     ? 'u'
                : p.baseline == BaselineState::new_problem ? 'n'
                                                           : '?';
    }
    EXPECT_EQ(states, c.states) << c.name;
    EXPECT_EQ(fixed, c.fixed) << c.name;
  }
}

TEST(Baseline, FileThatIsNotOneIsNamed) {
  const std::pair<const char*, const char*> cases[] = {
      {"[1, 2", "it is not JSON"},
      {"[]", "it has no \"problems\" array"},
      {"{\"problems\": {}}", "it has no \"problems\" array"},
      {"{\"problems\": [{\"path\": \"a.md\", \"code\": \"missing-file\"}]}",
       "a problem lacks its \"path\", \"code\" or \"target\" string"},
      {"{\"problems\": [{\"path\": \"a.md\", \"code\": 1, \"target\": \"x\"}]}",
       "a problem lacks its \"path\", \"code\" or \"target\" string"},
  };
  const fs::path file = fs::temp_directory_path() / "tarnwick-baseline-bad.json";
  for (const auto& [text, why] : cases) {
    std::ofstream(file, std::ios::binary) << text;
    auto read = read_baseline(file);
    ASSERT_TRUE(std::holds_alternative<std::string>(read)) << text;
    EXPECT_EQ(std::get<std::string>(read),
              file.string() + " is not a baseline written by --write-baseline: " + why);
  }
  fs::remove(file);
}

}  // namespace
}  // namespace tarnwick::check
