// Where a document's links, definitions, references and headings stand in its source: the
// places an editor jumps to and rewrites.
#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "gfm/document.hpp"

namespace tarnwick::gfm {
namespace {

std::string_view at(std::string_view source, Span span) {
  return span.empty() ? "?" : source.substr(span.begin, span.end - span.begin);
}

std::string joined(std::initializer_list<std::string_view> parts) {
  std::string text;
  for (const std::string_view part : parts) text.append(part);
  return text;
}

// Each thing read, as "kind: whole | part": a link's text and destination as written (and
// "unused" for a definition no link uses), a definition's or reference's text and label, a
// heading's level, id and text.
std::vector<std::string> places(std::string_view source) {
  const LinkedDocument read = read_links(source, true);
  std::vector<std::string> found;
  for (const Link& link : read.links) {
    found.push_back(joined({"link: ", at(source, link.span), " | ", at(source, link.written_span),
                            link.rendered ? "" : " unused"}));
  }
  for (const Definition& definition : read.definitions) {
    found.push_back(joined({"definition: ", at(source, definition.span), " | ",
                            at(source, definition.label_span), " = ", definition.label}));
  }
  for (const Reference& reference : read.references) {
    found.push_back(joined(
        {"reference: ", at(source, reference.span), " | ", at(source, reference.label_span)}));
  }
  for (const Heading& heading : read.headings) {
    found.push_back(joined({"h", std::to_string(heading.level), ": ", heading.id, " | ",
                            at(source, heading.text_span)}));
  }
  return found;
}

struct Case {
  const char* name;
  std::string source;
  std::vector<std::string> places;
};

class Places : public testing::TestWithParam<Case> {};

TEST_P(Places, AreWhereTheSourceHoldsThem) {
  EXPECT_EQ(places(GetParam().source), GetParam().places);
}

const Case CASES[] = {
    {"InlineLinks",
     "See [a](a.md#x) and ![i](<img x.png> \"t\"), not [e](https://e.org).\n",
     {"link: [a](a.md#x) | a.md#x", "link: ![i](<img x.png> \"t\") | img x.png"}},
    {"LinksInContainersAndAcrossLines", "> - item [a\nb](c.md)\n", {"link: [a\nb](c.md) | c.md"}},
    {"ReferenceLinksAndTheirDefinitions",
     "[a][One], [One][] and [one].\n\n[ONE]: one.md#top\n[two]: <t\\(2\\).md>\n[one]: dup.md\n",
     {"link: [ONE]: one.md#top | one.md#top", "link: [two]: <t\\(2\\).md> | t\\(2\\).md unused",
      "link: [one]: dup.md | dup.md unused", "definition: [ONE]: one.md#top | ONE = one",
      "definition: [two]: <t\\(2\\).md> | two = two", "definition: [one]: dup.md | one = one",
      "reference: [a][One] | One", "reference: [One][] | One", "reference: [one] | one"}},
    {"ReferencesToOtherSitesAreReferencesToo",
     "[site]\n\n[site]: https://example.org\n",
     {"definition: [site]: https://example.org | site = site", "reference: [site] | site"}},
    {"HtmlAndWikiLinks",
     "<a href=\"a.md#b\">x</a> [[Page#Head|label]] [[Other]]\n",
     {"link: href=\"a.md#b | a.md#b", "link: [[Page#Head|label]] | Page#Head",
      "link: [[Other]] | Other"}},
    {"Headings",
     "# Title #\n\nSetext\ntwo lines\n---\n\n> ## In a quote\n\n## Title\n### `code` *em*  ##  \n",
     {"h1: title | Title", "h2: setexttwo-lines | Setext\ntwo lines",
      "h2: in-a-quote | In a quote", "h2: title-1 | Title", "h3: code-em | `code` *em*"}},
    {"NothingInFrontMatterOrCode",
     "---\ntitle: x\nlink: \"[a](a.md)\"\n---\n\n```\n[b](b.md)\n# not\n```\n[c](c.md)\n",
     {"link: [c](c.md) | c.md"}},
};

INSTANTIATE_TEST_SUITE_P(Documents, Places, testing::ValuesIn(CASES),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace tarnwick::gfm
