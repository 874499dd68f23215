// A workspace changed one document or file at a time stays the workspace built afresh from the
// same files, and says which documents a change may give other problems.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "check/check.hpp"
#include "repo/workspace.hpp"

namespace tarnwick::repo {
namespace {

// The places a random change touches: Markdown files in folders of several letter cases, READMEs,
// a page stem shared by two files, files that are not Markdown.
const std::vector<std::string> MARKDOWN = {
    "README.md",     "docs/README.md", "docs/a.md",           "docs/b.md", "Docs/A.md",
    "docs/sub/a.md", "c.md",           "notes/Page.markdown", "x.md",      "docs/guide.md",
};
const std::vector<std::string> OTHER = {"img/x.png", "docs/c.html", "docs/sub/data.json"};
const std::vector<std::string> FOLDERS = {"docs", "docs/sub", "img", "notes", "empty"};

// Lines whose links and anchors depend on every kind of thing a change touches.
const std::vector<std::string> LINES = {
    "# A",
    "## B",
    "Setext\n===",
    "<a id=\"anchor\"></a>",
    "# Title {#custom}",
    "[x](docs/a.md#b)",
    "[x](docs/a.md#a)",
    "[x](../README.md#a)",
    "[x](/docs/README.md)",
    "[x](#a)",
    "[x](#b-1)",
    "[x](Docs/A.md)",
    "[x](docs/A.md#anchor)",
    "[x](docs#b)",
    "[x](docs/sub#a)",
    "[x](c.html)",
    "[x](docs/c.html)",
    "[x](img/y.png)",
    "[x](sub/a.md#custom)",
    "[x](missing)",
    "[x](docs/gide.md)",
    "[[a#b]]",
    "[[Page]]",
    "[[docs/b]]",
    "[[nothing]]",
    "[r]\n\n[r]: docs/b.md#b",
    "[unused]: x.md#a",
    "<a href=\"docs/b.md#a\">b</a>",
};

std::string random_text(std::mt19937& random) {
  std::string text;
  const auto lines = std::uniform_int_distribution<std::size_t>(0, 6)(random);
  for (std::size_t i = 0; i < lines; ++i) {
    text += LINES[std::uniform_int_distribution<std::size_t>(0, LINES.size() - 1)(random)];
    text += "\n\n";
  }
  return text;
}

// The problems of every document, as the check would print them.
std::map<std::string, std::vector<std::string>> all_problems(const Workspace& workspace) {
  std::map<std::string, std::vector<std::string>> problems;
  for (const std::string& path : workspace.document_paths()) {
    std::size_t links = 0;
    for (check::Problem& problem : check::check_document(workspace, path, links)) {
      check::suggest(workspace, problem);
      problems[path].push_back(std::to_string(problem.line) + ":" + std::to_string(problem.column) +
                               " " + std::string(check::info(problem.code).name) + " " +
                               problem.message + " " + problem.suggestion.value_or(""));
    }
  }
  return problems;
}

// What a user's files are: every text by path, files without a document, folders.
struct Files {
  std::map<std::string, std::string> texts;
  std::set<std::string> others;
  std::set<std::string> folders;
};

Workspace built_afresh(const Files& files, const WorkspaceOptions& options) {
  Workspace workspace(options);
  for (const std::string& folder : files.folders) workspace.put_directory(folder);
  for (const std::string& other : files.others) workspace.put_file(other);
  for (const auto& [path, text] : files.texts) {
    workspace.put_document(path, read_document(text, options));
  }
  return workspace;
}

void expect_same(const Workspace& live, const Workspace& fresh, std::size_t step) {
  ASSERT_EQ(live.files(), fresh.files()) << "step " << step;
  ASSERT_EQ(live.directories(), fresh.directories()) << "step " << step;
  ASSERT_EQ(live.dependents(), fresh.dependents()) << "step " << step;
  std::vector<std::string> paths = live.document_paths();
  std::sort(paths.begin(), paths.end());
  std::vector<std::string> fresh_paths = fresh.document_paths();
  std::sort(fresh_paths.begin(), fresh_paths.end());
  ASSERT_EQ(paths, fresh_paths) << "step " << step;
  for (const std::string& folder : live.directories()) {
    ASSERT_EQ(live.names_in(folder), fresh.names_in(folder)) << folder << ", step " << step;
  }
  ASSERT_EQ(live.page_stems(), fresh.page_stems()) << "step " << step;
}

// Removes what a folder holds from the files, as removing the folder does.
void remove_from(Files& files, const std::string& path) {
  const auto under = [&](const std::string& entry) {
    return entry == path || entry.starts_with(path + "/");
  };
  std::erase_if(files.texts, [&](const auto& entry) { return under(entry.first); });
  std::erase_if(files.others, under);
  std::erase_if(files.folders, under);
}

class RandomChanges : public testing::TestWithParam<bool> {};

TEST_P(RandomChanges, KeepTheWorkspaceItsFreshSelfAndNameWhatTheyAffect) {
  const WorkspaceOptions options{.wiki = GetParam()};
  std::mt19937 random(20261124);
  Workspace live(options);
  Files files;
  auto before = all_problems(live);
  for (std::size_t step = 0; step < 1500; ++step) {
    const auto choice = std::uniform_int_distribution<int>(0, 9)(random);
    std::vector<std::string> affected;
    if (choice < 6) {
      const std::string& path =
          MARKDOWN[std::uniform_int_distribution<std::size_t>(0, MARKDOWN.size() - 1)(random)];
      std::string text = random_text(random);
      files.texts[path] = text;
      files.others.erase(path);
      affected = live.put_document(path, read_document(std::move(text), options));
    } else if (choice < 7) {
      const std::string& path =
          OTHER[std::uniform_int_distribution<std::size_t>(0, OTHER.size() - 1)(random)];
      files.others.insert(path);
      affected = live.put_file(path);
    } else if (choice < 8) {
      const std::string& path =
          FOLDERS[std::uniform_int_distribution<std::size_t>(0, FOLDERS.size() - 1)(random)];
      files.folders.insert(path);
      affected = live.put_directory(path);
    } else {
      std::vector<std::string> present(files.folders.begin(), files.folders.end());
      for (const auto& [path, text] : files.texts) present.push_back(path);
      present.insert(present.end(), files.others.begin(), files.others.end());
      if (present.empty()) continue;
      const std::string path =
          present[std::uniform_int_distribution<std::size_t>(0, present.size() - 1)(random)];
      remove_from(files, path);
      affected = live.remove(path);
    }
    // The folders of every file are folders too.
    for (const auto* group : {&files.others}) {
      for (const std::string& path : *group) {
        for (auto slash = path.find('/'); slash != std::string::npos;
             slash = path.find('/', slash + 1)) {
          files.folders.insert(path.substr(0, slash));
        }
      }
    }
    for (const auto& [path, text] : files.texts) {
      for (auto slash = path.find('/'); slash != std::string::npos;
           slash = path.find('/', slash + 1)) {
        files.folders.insert(path.substr(0, slash));
      }
    }

    const Workspace fresh = built_afresh(files, options);
    expect_same(live, fresh, step);
    auto after = all_problems(live);
    ASSERT_EQ(after, all_problems(fresh)) << "step " << step;
    // Only the documents a change names may have other problems than before it.
    for (const auto& [path, problems] : after) {
      const auto old = before.find(path);
      if (old != before.end() && old->second == problems) continue;
      if (old == before.end() && problems.empty()) continue;
      EXPECT_TRUE(std::binary_search(affected.begin(), affected.end(), path))
          << path << " changed its problems at step " << step << " unnamed";
    }
    before = std::move(after);
  }
}

INSTANTIATE_TEST_SUITE_P(Workspaces, RandomChanges, testing::Bool(),
                         [](const auto& info) { return info.param ? "WithWiki" : "WithoutWiki"; });

}  // namespace
}  // namespace tarnwick::repo
