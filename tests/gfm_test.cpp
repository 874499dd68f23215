// Where a document's links, definitions, references and headings stand in its source: the
// places an editor jumps to and rewrites.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
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
     {"h1: title | Title", "h2: setexttwo-lines | Setext\ntwo lines", "h2: in-a-quote | In a quote",
      "h2: title-1 | Title", "h3: code-em | `code` *em*"}},
    {"NothingInFrontMatterOrCode",
     "---\ntitle: x\nlink: \"[a](a.md)\"\n---\n\n```\n[b](b.md)\n# not\n```\n[c](c.md)\n",
     {"link: [c](c.md) | c.md"}},
};

INSTANTIATE_TEST_SUITE_P(Documents, Places, testing::ValuesIn(CASES),
                         [](const auto& info) { return std::string(info.param.name); });

// Blocks of every kind that holds links or anchors, and kinds that reach over other lines:
// fences that may not close, lists and quotes that go on, tables, HTML, definitions, notes.
const std::vector<std::string> SNIPPETS = {
    "# Title\n",
    "## Install\n",
    "Setext\n===\n",
    "Other\n---\n",
    "### Install\n",
    "Text with [a link](docs/a.md#install) and [another](b.md).\n",
    "A [reference][ref] and a [shortcut] and [a collapsed][].\n",
    "[ref]: docs/ref.md#x\n",
    "[shortcut]: <s c.md>\n",
    "[a collapsed]: c.md \"title\"\n",
    "- item [x](x.md)\n- item two\n",
    "1. one\n2. [two](two.md)\n",
    "  - nested [n](n.md)\n",
    "> quoted [q](q.md)\n> more\n",
    ">\n",
    "```\n[not](code.md)\n",
    "```\n",
    "~~~\n",
    "    indented [code](code.md)\n",
    "| a | b |\n|---|---|\n| [t](t.md) | x |\n",
    "<div id=\"top\">\n<a href=\"h.md#y\">h</a>\n</div>\n",
    "<a name=\"n\"></a>\n",
    "Note[^1] here.\n",
    "[^1]: the note [f](f.md)\n",
    "[[Page#Head|label]] and [[Other]]\n",
    "Lazy\ncontinuation [l](l.md)\n",
    "line\\\nbreak [b](b.md)\n",
    "\n",
    "\n\n",
    "<!-- comment -->\n",
    "Title {#custom}\n---\n",
    "***\n",
    "a <?x [p](p.md)\n",
};

// Notes and definitions make most edits read the whole text again: documents without them
// test reading a part.
bool is_global(std::string_view snippet) {
  return snippet.find("[^") != std::string_view::npos ||
         snippet.find("]: ") != std::string_view::npos;
}

std::string random_snippets(std::mt19937& random, std::size_t count, bool global = true) {
  std::string text;
  while (count > 0) {
    const std::string& snippet =
        SNIPPETS[std::uniform_int_distribution<std::size_t>(0, SNIPPETS.size() - 1)(random)];
    if (!global && is_global(snippet)) continue;
    text += snippet;
    --count;
  }
  return text;
}

// An edit as a person makes one: a block inserted, a stretch deleted, a few characters typed.
std::string edited(const std::string& text, std::mt19937& random, bool global) {
  const auto at = [&](std::size_t size) {
    return std::uniform_int_distribution<std::size_t>(0, size)(random);
  };
  std::string changed = text;
  const std::size_t where = at(text.size());
  switch (std::uniform_int_distribution<int>(0, 4)(random)) {
    case 0: {
      // at a line start
      const std::size_t line = where == 0 ? 0 : text.rfind('\n', where - 1) + 1;
      changed.insert(std::min(line, text.size()), random_snippets(random, 1, global));
      break;
    }
    case 1:
      changed.erase(where, at(std::min<std::size_t>(40, text.size() - where)));
      break;
    case 2: {
      constexpr std::string_view TYPED = "ab #[]()<>`*-|\n:^!{}";
      std::string typed;
      for (std::size_t i = at(4) + 1; i > 0; --i) typed += TYPED[at(TYPED.size() - 1)];
      changed.insert(where, typed);
      break;
    }
    case 3:
      changed.insert(where, random_snippets(random, 1, global));
      break;
    default:  // at the start, where front matter stands
      changed.insert(0, at(1) == 0 ? "---\n" : random_snippets(random, 1, global));
      break;
  }
  return changed;
}

// The first thing two readings differ in, for a person to find the fault.
std::string first_difference(const LinkedDocument& a, const LinkedDocument& b) {
  const auto compare = [](const char* what, const auto& x, const auto& y,
                          auto describe) -> std::string {
    for (std::size_t i = 0; i < std::max(x.size(), y.size()); ++i) {
      if (i >= x.size() || i >= y.size() || !(x[i] == y[i])) {
        return std::string(what) + " " + std::to_string(i) + ": " +
               (i < x.size() ? describe(x[i]) : "none") + " / " +
               (i < y.size() ? describe(y[i]) : "none");
      }
    }
    return "";
  };
  const auto span = [](Span s) { return std::to_string(s.begin) + "-" + std::to_string(s.end); };
  std::string found;
  for (std::string difference :
       {compare("link", a.links, b.links,
                [&](const Link& l) {
                  return l.destination + "@" + std::to_string(l.line) + ":" +
                         std::to_string(l.column) + " " + span(l.span) + " " +
                         span(l.written_span) + (l.rendered ? "" : " unused");
                }),
        compare("heading", a.headings, b.headings,
                [&](const Heading& h) {
                  return h.id + "@" + std::to_string(h.line) + "-" + std::to_string(h.end_line) +
                         " " + span(h.text_span);
                }),
        compare("block", a.blocks, b.blocks,
                [](const Block& k) {
                  return std::to_string(k.type) + "@" + std::to_string(k.line) + ":" +
                         std::to_string(k.column) + "-" + std::to_string(k.end_line);
                }),
        compare("reference", a.references, b.references,
                [&](const Reference& r) { return r.label + "@" + std::to_string(r.line); }),
        compare("definition", a.definitions, b.definitions,
                [&](const Definition& d) { return d.label + "@" + std::to_string(d.line); }),
        compare("html anchor", a.html_anchors, b.html_anchors,
                [](const Anchor& x) { return x.name + "@" + std::to_string(x.line); })}) {
    if (found.empty()) found = difference;
  }
  return found.empty() ? "the other fields" : found;
}

TEST(Rereading, GivesWhatReadingTheWholeEditedTextGives) {
  std::mt19937 random(7);
  for (int document = 0; document < 400; ++document) {
    const bool global = document % 2 == 0;
    std::string text = random_snippets(random, 12, global);
    if (document % 5 == 0) text = "---\ntitle: x\n---\n" + text;
    for (const bool wiki : {false, true}) {
      std::string current = text;
      LinkedDocument read = read_links(current, wiki);
      for (int edit = 0; edit < 20; ++edit) {
        const std::string next = edited(current, random, global);
        LinkedDocument again = reread(read, current, next, wiki);
        const LinkedDocument whole = read_links(next, wiki);
        ASSERT_TRUE(again == whole) << first_difference(again, whole) << "\nbefore:\n"
                                    << current << "\nafter:\n"
                                    << next;
        current = next;
        read = std::move(again);
      }
    }
  }
}

}  // namespace
}  // namespace tarnwick::gfm
