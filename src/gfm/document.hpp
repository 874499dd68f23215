// What a Markdown file links to and which anchors it has, as github.com renders it.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace tarnwick::gfm {

enum class LinkSyntax { markdown, html, wiki };

// A link to a file of the repository or to an anchor: never one with a scheme or a host.
struct Link {
  std::string destination;  // as rendered: escapes and character references resolved
  std::string written;      // as written: angle brackets removed, escapes kept
  std::int64_t line = 0;    // 1-based: where the link starts; a reference link's definition
  std::int64_t column = 0;  // 1-based, in bytes
  LinkSyntax syntax = LinkSyntax::markdown;
};

struct LinkedDocument {
  // In document order per kind of link; a definition used by several reference links once.
  std::vector<Link> links;
  // Heading ids, raw HTML ids and names, footnote ids: what a fragment may name.
  std::unordered_set<std::string> anchors;
  // A "{#id}" written at the end of a heading, lowercased, and the id the heading really has.
  std::unordered_map<std::string, std::string> custom_ids;
};

// Reads a document as github.com renders it: inline and reference links and images (a
// definition no link uses renders nothing), raw HTML href and src, and with `wiki` also
// [[Page#Heading|label]] links; nothing in code or in YAML front matter, which renders as a
// table.
LinkedDocument read_links(std::string_view markdown, bool wiki);

// Whether a link leaves the repository by its form: a scheme ("https:", "mailto:") or a host
// ("//example.com").
bool is_external(std::string_view destination);

}  // namespace tarnwick::gfm
