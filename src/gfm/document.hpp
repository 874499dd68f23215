// What a Markdown file links to and which anchors it has, as github.com renders it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace tarnwick::gfm {

// Bytes [begin, end) of a document's source; empty where a place is not known.
struct Span {
  std::size_t begin = 0;
  std::size_t end = 0;
  bool empty() const { return begin == end; }
  bool contains(std::size_t offset) const { return begin <= offset && offset <= end && !empty(); }
  bool operator==(const Span&) const = default;
};

enum class LinkSyntax { markdown, html, wiki };

// A link to a file of the repository or to an anchor: never one with a scheme or a host.
struct Link {
  std::string destination;  // as rendered: escapes and character references resolved
  std::string written;      // as written: angle brackets removed, escapes kept
  std::int64_t line = 0;    // 1-based: where the link starts; a reference link's definition
  std::int64_t column = 0;  // 1-based, in bytes
  LinkSyntax syntax = LinkSyntax::markdown;
  Span span;          // the whole link as written: "[a](b)", "[label]: b", "href=b", "[[b]]"
  Span written_span;  // where `written` stands
  // A definition that no link uses renders nothing: it is kept for editing (renames, who
  // links here), never checked.
  bool rendered = true;
  bool operator==(const Link&) const = default;
};

// A link reference definition, "[label]: destination", whatever its destination.
struct Definition {
  std::string label;  // normalised: case folded, white space collapsed
  Span label_span;    // the label as written, inside the brackets
  Span span;          // from "[" to the end of the destination
  Span written_span;  // the destination as written, without angle brackets
  std::int64_t line = 0;
  std::int64_t column = 0;
  bool operator==(const Definition&) const = default;
};

// A reference link, "[text][label]", "[label][]" or "[label]", that a definition resolves.
struct Reference {
  std::string label;        // normalised
  std::string destination;  // as rendered: that of the definition GitHub's parser used
  Span label_span;          // the label as written, inside its brackets
  Span span;                // the whole link
  std::int64_t line = 0;
  std::int64_t column = 0;
  bool operator==(const Reference&) const = default;
};

// A raw HTML id or name, or a footnote reference's label, and its line.
struct Anchor {
  std::string name;
  std::int64_t line = 0;
  bool operator==(const Anchor&) const = default;
};

// A block of the document's top level, as GitHub's parser closed it, and how many of the
// document's links of the text, references, headings, HTML anchors, footnote references and
// HTML comments stand in it.
struct Block {
  std::int64_t line = 0;  // 0 for one the table extension left without a place
  std::int64_t column = 0;
  std::int64_t end_line = 0;
  int type = 0;
  std::size_t links = 0, references = 0, headings = 0, html_anchors = 0, footnote_references = 0,
              comments = 0;
  bool operator==(const Block&) const = default;
};

struct Heading {
  int level = 0;
  std::string text;  // as rendered, what its id is made from
  std::string id;    // GitHub's, repeats numbered; empty when nothing of the text is kept
  std::int64_t line = 0;
  std::int64_t end_line = 0;  // a setext heading's underline
  Span text_span;             // the text as written, without "#" markers or an underline
  bool operator==(const Heading&) const = default;
};

// An HTML comment, "<!-- text -->", in raw HTML: never one in code.
struct Comment {
  std::string text;  // between "<!--" and "-->"
  std::int64_t line = 0;
  std::int64_t end_line = 0;  // of its "-->"
  bool operator==(const Comment&) const = default;
};

struct LinkedDocument {
  // The links of the text in document order, then those of reference links: a definition
  // once however many links use it, in the order of their first use, and last the definitions
  // no link uses.
  std::vector<Link> links;
  std::vector<Definition> definitions;  // in document order; the first of a label counts
  std::vector<Reference> references;    // in document order
  std::vector<Heading> headings;        // in document order
  std::vector<Comment> comments;        // in document order
  // Heading ids, raw HTML ids and names, footnote ids: what a fragment may name.
  std::unordered_set<std::string> anchors;
  // A "{#id}" written at the end of a heading, lowercased, and the id the heading really has.
  std::unordered_map<std::string, std::string> custom_ids;

  // What the document's anchors and reference links are made of, kept so that an edited text
  // can be read again a part at a time.
  std::size_t text_links = 0;  // how many of `links` stand in the text, not in definitions
  std::vector<Anchor> html_anchors;
  std::vector<Anchor> footnote_references;  // the labels of those that resolved, in order
  std::vector<Block> blocks;
  bool tables = true;  // read with the table extension: no row is too wide for it
  bool operator==(const LinkedDocument&) const = default;
};

// The label as definitions and references match it: case folded, white space collapsed.
std::string normalize_label(std::string_view label);

// Reads a document as github.com renders it: inline and reference links and images (a
// definition no link uses renders nothing), raw HTML href and src, and with `wiki` also
// [[Page#Heading|label]] links; nothing in code or in YAML front matter, which renders as a
// table.
LinkedDocument read_links(std::string_view markdown, bool wiki);

// The anchors a link's decoded fragment may name, in this order: the fragment itself, it
// lowercased (a browser finds either), and for a wiki link, which names a heading by its text,
// that text's id.
std::vector<std::string> anchor_forms(std::string_view fragment, LinkSyntax syntax);

// Reads an edited document again, as read_links reads it: only the top-level blocks around
// what changed between the texts when that gives the same reading, else the whole text.
LinkedDocument reread(const LinkedDocument& old, std::string_view old_markdown,
                      std::string_view markdown, bool wiki);

// Whether a link leaves the repository by its form: a scheme ("https:", "mailto:") or a host
// ("//example.com").
bool is_external(std::string_view destination);

}  // namespace tarnwick::gfm
