// The configuration file: what each key takes, and the one line that says what is wrong with a
// file, naming its line and key, with the word that was probably meant.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "repo/config.hpp"

namespace tarnwick::repo {
namespace {

namespace fs = std::filesystem;

const std::vector<std::string> CODES = {"missing-file", "missing-anchor", "site-path"};

// A file's settings as one line, or its error.
std::string read(const std::string& text) {
  const fs::path file = fs::temp_directory_path() / "tarnwick-config-test.toml";
  std::ofstream(file, std::ios::binary) << text;
  auto read = read_config(file, CODES);
  fs::remove(file);
  if (const auto* error = std::get_if<ConfigError>(&read)) {
    const std::string line = describe(*error);
    return line.substr(line.find(".toml") + 5);
  }
  const Config& config = std::get<Config>(read);
  std::string settings = "ignore";
  for (const ConfigString& code : config.ignore) {
    settings += " " + code.value + "@" + std::to_string(code.line);
  }
  settings += "; exclude";
  for (const std::string& glob : config.exclude) settings += " " + glob;
  settings += "; accept";
  for (const std::string& glob : config.accept) settings += " " + glob;
  settings += "; wiki " + std::string(!config.wiki ? "unset" : *config.wiki ? "true" : "false");
  return settings;
}

TEST(ConfigFile, TakesEveryKeyNamedAsItsFlag) {
  EXPECT_EQ(read(""), "ignore; exclude; accept; wiki unset");
  EXPECT_EQ(read("# the links\nignore = [\"site-path\",\n  \"missing-anchor\"]\n"
                 "exclude = [\"tests/*\", \"CHANGELOG.md\"]\naccept = [\"*.png\"]\nwiki = false\n"),
            "ignore site-path@2 missing-anchor@3; exclude tests/* CHANGELOG.md; accept *.png; "
            "wiki false");
}

TEST(ConfigFile, NamesTheLineAndKeyOfWhatIsWrong) {
  const std::pair<const char*, const char*> cases[] = {
      {"wiki = true\nignor = []\n", ":2: ignor: unknown key (did you mean 'ignore'?)"},
      {"colour = \"red\"\n", ":1: colour: unknown key"},
      {"[check]\nignore = []\n", ":1: check: unknown key"},
      {"ignore = [\n  \"site-path\",\n  \"missing-fil\"]\n",
       ":3: ignore: 'missing-fil' is not a problem code (did you mean 'missing-file'?)"},
      {"ignore = \"site-path\"\n",
       ":1: ignore: must be an array of problem codes, such as ignore = [\"site-path\"]"},
      {"exclude = [\"a\", 3]\n",
       ":1: exclude: must be an array of globs, such as exclude = [\"docs/drafts/*\"]"},
      {"accept = [\"\"]\n",
       ":1: accept: must be an array of globs, such as accept = [\"docs/drafts/*\"]"},
      {"\nwiki = \"yes\"\n", ":2: wiki: must be true or false"},
      {"wiki = tru\n", ":1: not TOML: Error while parsing boolean: expected 'true', saw 'tru '"},
      {"ignore = []\nignore = []\n",
       ":2: not TOML: Error while parsing key-value pair: cannot redefine existing array 'ignore'"},
  };
  for (const auto& [text, error] : cases) EXPECT_EQ(read(text), error) << text;
}

TEST(ConfigFile, ThatCannotBeReadIsNamed) {
  auto read = read_config("no-such-dir/.tarnwick-md.toml", CODES);
  ASSERT_TRUE(std::holds_alternative<ConfigError>(read));
  EXPECT_EQ(describe(std::get<ConfigError>(read)),
            "no-such-dir/.tarnwick-md.toml: cannot read it: No such file or directory");
}

}  // namespace
}  // namespace tarnwick::repo
