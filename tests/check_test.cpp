// Link checking, one small repository per rule: every Markdown file's problems, as
// "path:line:column code target", in file order.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "check/check.hpp"
#include "gfm/document.hpp"
#include "gfm/html.hpp"

namespace tarnwick::check {
namespace {

namespace fs = std::filesystem;
using namespace gfm;

struct Case {
  const char* name;
  std::vector<std::pair<std::string, std::string>> files;
  std::vector<std::string> problems;
  bool wiki = false;
};

std::vector<std::string> check_all(const fs::path& root, bool wiki) {
  repo::SelectionOptions everything;
  everything.hidden = true;
  everything.git_ignores = false;
  const repo::Tree tree = repo::list_tree(root, everything);
  std::vector<repo::ReadError> unread;
  const repo::Workspace workspace =
      repo::Workspace::load(root, tree, {}, {.wiki = wiki}, 2, unread);
  std::vector<std::string> found;
  for (const std::string& file : tree.files) {
    if (!repo::is_markdown(file)) continue;
    std::size_t links = 0;
    for (Problem& problem : check_document(workspace, file, links)) {
      suggest(workspace, problem);
      found.push_back(problem.path + ":" + std::to_string(problem.line) + ":" +
                      std::to_string(problem.column) + " " + std::string(info(problem.code).name) +
                      " " + problem.target +
                      (problem.suggestion ? " -> " + *problem.suggestion : ""));
    }
  }
  return found;
}

class CheckRules : public testing::TestWithParam<Case> {};

TEST_P(CheckRules, ReportsExactlyTheBrokenLinks) {
  const Case& c = GetParam();
  const fs::path root = fs::temp_directory_path() / ("tarnwick-check-" + std::string(c.name));
  fs::remove_all(root);
  for (const auto& [path, text] : c.files) {
    fs::create_directories((root / path).parent_path());
    std::ofstream(root / path, std::ios::binary) << text;
  }
  EXPECT_EQ(check_all(root, c.wiki), c.problems);
  fs::remove_all(root);
}

const Case CASES[] = {
    {"kinds_of_link",
     {{"a.md",
       "[i](x.md) ![img](y.png) [r][d] [s] [c][]\n"
       "<a href=\"h&amp;.md\">h</a> <img\n  src=\"s.png\">\n"
       "`[code](no.md)`\n\n    [indented](no.md)\n\n```\n[fenced](no.md)\n```\n"
       "[unused]: no.md\n[d]: r.md\n[s]: s.md\n[C]: c.md\n"
       "[ext](https://example.com/x.md) [host](//example.com/x) [mail](mailto:a@b.c)\n"}},
     {"a.md:1:1 missing-file x.md", "a.md:1:11 missing-file y.png",
      "a.md:2:4 missing-file h&amp;.md", "a.md:3:3 missing-file s.png",
      "a.md:12:1 missing-file r.md", "a.md:13:1 missing-file s.md", "a.md:14:1 missing-file c.md"}},
    {"reference_reported_once_at_definition",
     {{"a.md", "[one][r] and [two][r] and [R]\n\n> [r]:\n>   <gone.md>\n"}},
     {"a.md:3:3 missing-file gone.md"}},
    {"definition_not_within_a_paragraph",
     {{"a.md", "Text\n[d]: no.md\n\n# [d]: no.md\n\n[d]: gone.md\n\n[x][d]\n"}},
     {"a.md:6:1 missing-file gone.md"}},
    {"written_as_written",
     {{"a.md",
       "[a](<my file.md>) [b](x\\_y.md \"title\") [c](multi\nline.md)\n"
       "[d\n](next.md)\n"
       "[![img](i.png)](outer.md)\n"}},
     {"a.md:1:1 missing-file my file.md", "a.md:1:19 missing-file x\\_y.md",
      "a.md:3:1 missing-file next.md", "a.md:5:1 missing-file outer.md",
      "a.md:5:2 missing-file i.png"}},
    {"placed_where_written",
     {{"a.md",
       "[d]: d.md\nText [d] and [i](i.md)\n\n"
       "Hard\\\n[h](h.md) twice\\\n\\\n  [t](t.md)\n\n"
       "- item\n      [deep](deep.md)\n[lazy](lazy.md)\n\n"
       "Code\n    `c` [after](after.md)\n\n"
       "[two\nlines](two.md) <b\n   id=x>\n   <img src=\"s.png\">\n"}},
     {"a.md:1:1 missing-file d.md", "a.md:2:14 missing-file i.md", "a.md:5:1 missing-file h.md",
      "a.md:7:3 missing-file t.md", "a.md:10:7 missing-file deep.md",
      "a.md:11:1 missing-file lazy.md", "a.md:14:9 missing-file after.md",
      "a.md:16:1 missing-file two.md", "a.md:19:9 missing-file s.png"}},
    {"front_matter_is_no_document",
     {{"a.md", "---\ntitle: \"[x](x.md)\"\n---\n# T\n[ok](#t)\n"}},
     {}},
    {"paths",
     {{"docs/a.md",
       "[up](../b.md) [root](/b.md) [dir](.) [q](../b.md?plain=1) [pct](../my%20file.md)\n"
       "[bad](../b%zz.md) [out](../../x.md) [case](../B.md) [sub](sub)\n"},
      {"b.md", ""},
      {"my file.md", ""},
      {"docs/sub/c.md", ""}},
     {"docs/a.md:2:1 malformed-link ../b%zz.md", "docs/a.md:2:19 outside-repository ../../x.md",
      "docs/a.md:2:37 case-mismatch ../B.md -> ../b.md"}},
    {"headings",
     {{"a.md",
       "# Caf&eacute; `code` [link](#x) ![alt](i.png) <b>tag</b>\n"
       "Setext *one*\n===\n"
       "## A\n## A\n## A-1\n"
       "## 🚀 Launch\n"
       "## !!!\n"
       "[e](#café-code-link--tag) [s](#setext-one) [d](#a-1-1) [l](#-launch)\n"
       "[pct](#caf%C3%A9-code-link--tag) [upper](#SETEXT-ONE) [top](#top) [empty](#)\n"
       "[alt](#café-code-link-alt-tag) [dup](#a-3) [bang](#)\n"
       "[x](#x)\n"}},
     {"a.md:1:22 missing-anchor #x", "a.md:1:33 missing-file i.png",
      "a.md:11:1 missing-anchor #café-code-link-alt-tag -> #café-code-link--tag",
      "a.md:11:33 missing-anchor #a-3 -> #a-1", "a.md:12:1 missing-anchor #x"}},
    {"html_anchors_footnotes_and_other_files",
     {{"a.md",
       "<a name=\"old-name\"></a>\n<div id=\"Block\">x</div>\n\nText[^note], again[^note].\n\n"
       "[^note]: A note.\n\n"
       "[n](#old-name) [b](#Block) [b2](#block) [f](#fn-note) [r](#fnref-note)\n"
       "[o](b.md#install) [o2](b.md#nope) [img](b.png#layer) [gone](c.md#x)\n"
       "[r2](#fnref-note-2) [r3](#fnref-note-3) [n](b.md#step1)\n"},
      {"b.md", "# Install\n## Step[^s]\n\n[^s]: The step.\n"},
      {"b.png", ""}},
     {"a.md:8:28 missing-anchor #block -> #Block", "a.md:9:19 missing-anchor-other-file b.md#nope",
      "a.md:9:54 missing-file c.md#x", "a.md:10:21 missing-anchor #fnref-note-3 -> #fnref-note-2"}},
    {"folders_and_their_readme",
     {{"a.md", "[d](docs#guide) [s](docs/#guide) [n](docs#nope) [e](empty#x) [ok](empty)\n"},
      {"docs/ReadMe.md", "# Guide\n"},
      {"empty/data.txt", ""}},
     {"a.md:1:34 missing-anchor-other-file docs#nope",
      "a.md:1:49 missing-anchor-other-file empty#x"}},
    {"line_fragments",
     {{"a.md", "[l](b.md#L10) [src](b.md?plain=1#L10) [code](c.py#L1-L5) [c](c.py#L2C3-L4C1)\n"},
      {"b.md", ""},
      {"c.py", ""}},
     {"a.md:1:1 line-fragment b.md#L10"}},
    {"written_for_site_generators",
     {{"a.md", "[s](/docs/install/) [e](guide) [h](b.html) [c](b.md#custom) [real](gide.md)\n"},
      {"b.md", "## Heading {#custom}\n"},
      {"guide.md", ""}},
     {"a.md:1:1 site-path /docs/install/", "a.md:1:21 site-path guide -> guide.md",
      "a.md:1:32 html-for-markdown b.html -> b.md",
      "a.md:1:44 custom-anchor b.md#custom -> b.md#heading-custom",
      "a.md:1:61 missing-file gide.md -> guide.md"}},
    {"template_syntax_whatever_else_is_wrong",
     {{"a.md",
       "[a](<{{% param eventUrl %}}register/>) [b]({{<ref>}}/x.md) [c](<{% link x.md %}>)\n"
       "[d](/site/{{.Lang}}/x%zz.md) <a href=\"{{ site.baseurl }}/x\">e</a> [f](half{{.md)\n"
       "[g](%7B%7Bx%7D%7D.md) [h](a}}{{b.md)\n"}},
     {"a.md:1:1 template-syntax {{% param eventUrl %}}register/",
      "a.md:1:40 template-syntax {{<ref>}}/x.md", "a.md:1:60 template-syntax {% link x.md %}",
      "a.md:2:1 template-syntax /site/{{.Lang}}/x%zz.md",
      "a.md:2:33 template-syntax {{ site.baseurl }}/x", "a.md:2:67 missing-file half{{.md",
      "a.md:3:1 missing-file %7B%7Bx%7D%7D.md", "a.md:3:23 missing-file a}}{{b.md"}},
    {"wiki_links",
     {{"a.md",
       "[[Page]] [[Page#Heading Two]] [[Page#nope]] [[Gone|label]] [[Twice]] "
       "[[sub/Twice]]\n`[[Code]]`\n"},
      {"notes/Page.md", "## Heading Two\n"},
      {"x/Twice.md", ""},
      {"sub/Twice.md", ""}},
     {"a.md:1:31 missing-anchor-other-file Page#nope", "a.md:1:45 missing-page Gone",
      "a.md:1:60 ambiguous-page Twice"},
     true},
};

INSTANTIATE_TEST_SUITE_P(Repositories, CheckRules, testing::ValuesIn(CASES),
                         [](const auto& info) { return std::string(info.param.name); });

std::string repeated(std::string_view unit, std::size_t times) {
  std::string text;
  for (std::size_t i = 0; i < times; ++i) text += unit;
  return text;
}

// Each document would take minutes if any step were quadratic in it (the tests have a time
// limit), and keeps the links around its hostile part.
TEST(HostileDocuments, AreReadInLinearTimeWithTheirLinks) {
  const std::pair<std::string, std::vector<std::string>> cases[] = {
      {"[a](a.md) " + repeated("<?", 200000) + " [b](b.md)\n", {"a.md", "b.md"}},
      {"[a](a.md) " + repeated("<!D ", 100000) + " [b](b.md)\n", {"a.md", "b.md"}},
      {"[a](a.md) " + repeated("<![CDATA[", 40000) + " [b](b.md)\n", {"a.md", "b.md"}},
      {"|a|\n|-|\n" + repeated("|", 400000) + "\n\n[b](b.md)\n", {"b.md"}},
      {"[` " + repeated("](x ( ", 60000) + "`](b.md)\n", {"b.md"}},
      {"[" + repeated("![i](i.png)", 20000) + "](b.md)\n", {"b.md"}},
      {repeated(">", 50000) + " [b](b.md)\n", {"b.md"}},
      {repeated("[x]: x.md\n", 20000) + repeated("[x] ", 50000) + "\n", {"x.md"}},
      {repeated("a\\\n", 50000) + "[b](b.md)\n", {"b.md"}},
  };
  for (const auto& [document, expected] : cases) {
    const LinkedDocument read = read_links(document, true);
    std::vector<std::string> found;
    for (const Link& link : read.links) {
      if (link.rendered && link.destination != "i.png") found.push_back(link.destination);
    }
    EXPECT_EQ(found, expected) << document.substr(0, 40);
  }
}

TEST(HtmlAttributes, SkipCommentsAndEndTagsAndDecodeReferences) {
  std::vector<std::string> seen;
  for_each_attribute(
      "<!-- <a href=\"no\"> --><A HREF='x&amp;y.md' id=a name = \"b\"/></a><br data-x=1>",
      [&](const HtmlAttribute& attribute) {
        seen.push_back(attribute.name + "=" + attribute.value);
      });
  EXPECT_EQ(seen, (std::vector<std::string>{"href=x&y.md", "id=a", "name=b", "data-x=1"}));
}

TEST(ExternalLinks, HaveASchemeOrAHost) {
  for (const char* external : {"https://x", "mailto:a@b", "//host/x", "C:x", "a+b.c-d:x"}) {
    EXPECT_TRUE(is_external(external)) << external;
  }
  for (const char* internal : {"x.md", "/x", "./a:b", "#a", "1a:b", "a b:c"}) {
    EXPECT_FALSE(is_external(internal)) << internal;
  }
}

}  // namespace
}  // namespace tarnwick::check
