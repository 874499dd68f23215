// What the language server answers, on small workspaces held in memory: where links lead, who
// links here, renames applied to the texts, workspace symbols and completions.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "lsp/completion.hpp"
#include "lsp/edits.hpp"
#include "lsp/targets.hpp"
#include "lsp/workspace_symbols.hpp"

namespace tarnwick::lsp {
namespace {

using Texts = std::map<std::string, std::string>;

repo::Workspace workspace_of(const Texts& texts, bool wiki = false) {
  repo::Workspace workspace({.wiki = wiki});
  for (const auto& [path, text] : texts) {
    if (repo::is_markdown(path)) {
      workspace.put_document(path, repo::read_document(text, workspace.options()));
    } else {
      workspace.put_file(path);
    }
  }
  return workspace;
}

// The texts with the edits made, as an editor makes them.
Texts applied(Texts texts, std::vector<TextEdit> edits) {
  std::sort(edits.begin(), edits.end(), [](const TextEdit& a, const TextEdit& b) {
    return a.path != b.path ? a.path < b.path : a.span.begin > b.span.begin;
  });
  for (const TextEdit& edit : edits) {
    texts.at(edit.path).replace(edit.span.begin, edit.span.end - edit.span.begin, edit.text);
  }
  return texts;
}

// The offset of the first `marker` in a document's text.
std::size_t offset_of(const Texts& texts, const std::string& path, std::string_view marker) {
  return texts.at(path).find(marker);
}

std::vector<std::string> described(const Texts& texts, const std::vector<Place>& places) {
  std::vector<std::string> found;
  for (const Place& place : places) {
    found.push_back(
        place.path + ": " +
        texts.at(place.path).substr(place.span.begin, place.span.end - place.span.begin));
  }
  return found;
}

const Texts REPOSITORY = {
    {"README.md",
     "# Guide\n\nSee [setup](docs/setup.md#install), [again][s] and [the file](docs/setup.md).\n"
     "Jump to [here](#guide) or [the folder](docs#install).\n\n[s]: docs/setup.md#install\n"
     "[stale]: docs/setup.md#install\n"},
    {"docs/setup.md",
     "# Setup\n\n## Install\n\nText.\n\n## Install\n\nAgain: [first](#install), "
     "[second](#install-1), <a href=\"setup.md#INSTALL\">html</a>.\n"},
    {"docs/README.md", "# Docs\n\n## Install\n\n[back](../README.md)\n"},
    {"img/logo.png", ""},
};

TEST(Targets, WhatStandsWhereAndWhereItLeads) {
  const repo::Workspace workspace = workspace_of(REPOSITORY);
  const repo::Document& readme = *workspace.document("README.md");
  const auto at = [&](std::string_view marker) {
    return what_is_at(readme, offset_of(REPOSITORY, "README.md", marker));
  };
  using Kind = AtOffset::Kind;
  EXPECT_EQ(at("# Guide").kind, Kind::heading);
  EXPECT_EQ(at("See").kind, Kind::nothing);
  EXPECT_EQ(at("setup](").kind, Kind::link);
  EXPECT_EQ(at("[again]").kind, Kind::reference);
  EXPECT_EQ(at("s]: docs").kind, Kind::definition);
  EXPECT_EQ(at("docs/setup.md#install\n[stale").kind, Kind::link);

  const gfm::Link& first = readme.read.links[at("setup](").index];
  const auto lead = lead_of(workspace, "README.md", first);
  ASSERT_TRUE(lead);
  EXPECT_EQ(lead->path, "docs/setup.md");
  EXPECT_EQ(lead->heading, 1u);  // the first "Install"
  const auto folder = lead_of(workspace, "README.md", readme.read.links[at("the folder").index]);
  ASSERT_TRUE(folder);
  EXPECT_EQ(folder->path, "docs/README.md");
  EXPECT_EQ(folder->heading, 1u);
  const auto reference = readme.read.references[at("[again]").index];
  EXPECT_EQ(definition_of(readme.read, reference), 0u);
}

TEST(Targets, LinksToAHeadingAFileOrEither) {
  const repo::Workspace workspace = workspace_of(REPOSITORY);
  EXPECT_EQ(described(REPOSITORY, links_to(workspace, "docs/setup.md", Fragments::named, 1)),
            (std::vector<std::string>{"README.md: docs/setup.md#install",
                                      "README.md: docs/setup.md#install",
                                      "README.md: docs/setup.md#install", "docs/setup.md: #install",
                                      "docs/setup.md: setup.md#INSTALL"}));
  EXPECT_EQ(described(REPOSITORY, links_to(workspace, "docs/setup.md", Fragments::named, 2)),
            (std::vector<std::string>{"docs/setup.md: #install-1"}));
  EXPECT_EQ(described(REPOSITORY, links_to(workspace, "docs/setup.md", Fragments::none)),
            (std::vector<std::string>{"README.md: docs/setup.md"}));
  EXPECT_EQ(links_to(workspace, "docs/setup.md", Fragments::any).size(), 7u);
  EXPECT_EQ(described(REPOSITORY, links_to(workspace, "README.md", Fragments::any)),
            (std::vector<std::string>{"README.md: #guide", "docs/README.md: ../README.md"}));
}

TEST(Rename, AHeadingAndTheRepeatsItsNumberShifts) {
  const repo::Workspace workspace = workspace_of(REPOSITORY);
  Refusal refusal;
  const Texts renamed = applied(
      REPOSITORY, rename_heading(workspace, "docs/setup.md", 1, "Installing `it`", refusal));
  EXPECT_EQ(
      renamed.at("docs/setup.md"),
      "# Setup\n\n## Installing `it`\n\nText.\n\n## Install\n\nAgain: [first](#installing-it), "
      "[second](#install), <a href=\"setup.md#installing-it\">html</a>.\n");
  EXPECT_EQ(renamed.at("README.md"),
            "# Guide\n\nSee [setup](docs/setup.md#installing-it), [again][s] and [the "
            "file](docs/setup.md).\nJump to [here](#guide) or [the folder](docs#install).\n\n"
            "[s]: docs/setup.md#installing-it\n[stale]: docs/setup.md#installing-it\n");

  // The second of two equal headings renamed leaves the first as it was.
  const Texts second =
      applied(REPOSITORY, rename_heading(workspace, "docs/setup.md", 2, "Later", refusal));
  EXPECT_NE(second.at("docs/setup.md").find("[first](#install), [second](#later)"),
            std::string::npos);

  EXPECT_TRUE(rename_heading(workspace, "docs/setup.md", 1, "two\nlines", refusal).empty());
  EXPECT_FALSE(refusal.reason.empty());
}

TEST(Rename, WikiLinksKeepNamingAHeadingTheirWay) {
  const Texts texts = {{"a.md", "# Big Title\n"},
                       {"b.md", "[[a#Big Title]] and [[a#big-title|by id]]\n"}};
  const repo::Workspace workspace = workspace_of(texts, true);
  Refusal refusal;
  EXPECT_EQ(applied(texts, rename_heading(workspace, "a.md", 0, "Small", refusal)).at("b.md"),
            "[[a#Small]] and [[a#small|by id]]\n");
}

TEST(Rename, AReferenceLabelAndItsUses) {
  const Texts texts = {{"a.md", "[x][Old], [old][] and [OLD].\n\n[old]: b.md\n"}};
  const repo::Workspace workspace = workspace_of(texts);
  EXPECT_EQ(
      applied(texts, rename_label(*workspace.document("a.md"), "a.md", "old", "new")).at("a.md"),
      "[x][new], [new][] and [new].\n\n[new]: b.md\n");
}

TEST(Rename, MovedFilesKeepTheirLinksLeadingWhereTheyLed) {
  const repo::Workspace workspace = workspace_of(REPOSITORY);
  const Texts moved =
      applied(REPOSITORY, move_files(workspace, {{"docs/setup.md", "guide/set up.md"}}));
  EXPECT_EQ(moved.at("README.md"),
            "# Guide\n\nSee [setup](guide/set%20up.md#install), [again][s] and [the "
            "file](guide/set%20up.md).\nJump to [here](#guide) or [the folder](docs#install).\n\n"
            "[s]: guide/set%20up.md#install\n[stale]: guide/set%20up.md#install\n");
  EXPECT_EQ(moved.at("docs/setup.md"),
            "# Setup\n\n## Install\n\nText.\n\n## Install\n\nAgain: [first](#install), "
            "[second](#install-1), <a href=\"set%20up.md#INSTALL\">html</a>.\n");

  const Texts folder = applied(REPOSITORY, move_files(workspace, {{"docs", "manual"}}));
  EXPECT_NE(folder.at("README.md").find("[the folder](manual#install)"), std::string::npos);
  EXPECT_EQ(folder.at("docs/README.md"), REPOSITORY.at("docs/README.md"));
}

TEST(WorkspaceSymbols, BestMatchesFirstWithTheirHeadingPaths) {
  const repo::Workspace workspace = workspace_of(REPOSITORY);
  SymbolIndex index;
  for (const std::string& path : workspace.document_paths()) {
    index.put(path, *workspace.document(path));
  }
  std::vector<std::string> found;
  for (const SymbolMatch& match : index.search("inst", 10)) {
    found.push_back(match.path + ": " + match.container + " / " + match.name);
  }
  EXPECT_EQ(found, (std::vector<std::string>{"docs/README.md: Docs / Install",
                                             "docs/setup.md: Setup / Install",
                                             "docs/setup.md: Setup / Install"}));
  EXPECT_EQ(index.search("gde", 10).at(0).name, "Guide");  // letters in order
  EXPECT_TRUE(index.search("zzz", 10).empty());
  EXPECT_EQ(index.search("", 2).size(), 2u);
  index.remove("docs/README.md");
  EXPECT_EQ(index.search("docs", 10).size(), 0u);
}

TEST(Completion, PathsAnchorsLabelsAndPages) {
  Texts texts = REPOSITORY;
  texts["notes.md"] = "";
  const repo::Workspace workspace = workspace_of(texts, true);
  const auto complete_after = [&](std::string typed) {
    std::vector<std::string> found;
    const std::string text = "x " + typed;
    for (const Completion& c : complete(workspace, "README.md", text, text.size())) {
      found.push_back(c.text + "@" + std::to_string(c.span.begin));
    }
    return found;
  };
  EXPECT_EQ(complete_after("[a]("), (std::vector<std::string>{"docs/@6", "img/@6", "notes.md@6"}));
  EXPECT_EQ(complete_after("[a](docs/se"),
            (std::vector<std::string>{"README.md@11", "setup.md@11"}));
  EXPECT_EQ(complete_after("[a](docs/setup.md#in"),
            (std::vector<std::string>{"setup@20", "install@20", "install-1@20"}));
  EXPECT_EQ(complete_after("[a](#"), (std::vector<std::string>{"guide@7"}));
  EXPECT_EQ(complete_after("[a]["), (std::vector<std::string>{"s@6", "stale@6"}));
  EXPECT_EQ(complete_after("[[no"), (std::vector<std::string>{"README@4", "notes@4", "setup@4"}));
  EXPECT_TRUE(complete_after("[a](b) ").empty());
}

}  // namespace
}  // namespace tarnwick::lsp
