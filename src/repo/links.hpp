// Where a link written in a repository's file leads: paths from the repository's root, with
// "/" separators, "" for the root itself.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tarnwick::repo {

// The folder of a path ("" at the root), its last name, and a name without its last extension.
std::string_view parent_of(std::string_view path);
std::string_view name_of(std::string_view path);
std::string_view stem_of(std::string_view name);

// Whether a file name names a Markdown file: *.md or *.markdown, in any case.
bool is_markdown(std::string_view name);

// The page a wiki link names, without a Markdown extension: [[Guide.md]] names what [[Guide]]
// does.
std::string_view wiki_page(std::string_view page);
// The name under which a wiki link's page and the Markdown files it may name meet: the last
// name of the page (or of the file's path) without a Markdown extension, lowercased.
std::string wiki_name(std::string_view page);
// Whether a wiki link's page names the Markdown file at `path`: the file's path without its
// extension is the page, or ends with "/" and the page, in any letter case.
bool names_page(std::string_view path, std::string_view page);

// The text with its %XX escapes decoded; none when a "%" starts no escape.
std::optional<std::string> percent_decode(std::string_view text);

// A path from the root: "/x" from the root, "x" from `folder`, with "." and ".." resolved and
// empty segments dropped; none when ".." climbs above the root.
std::optional<std::string> resolve_path(std::string_view folder, std::string_view path);

// Where a link's destination (as rendered: escapes and character references resolved) leads
// from the file at `from`.
struct Destination {
  enum class Status { found, malformed, outside };
  Status status = Status::found;
  std::string path;                     // from the root; `from` itself when the link has no path
  std::optional<std::string> fragment;  // percent-decoded; none without a "#"
  std::string_view query;               // after "?", a view into the destination
  bool has_path = false;                // whether the link names a path at all
  bool from_root = false;               // whether its path starts with "/"
};
Destination resolve_destination(std::string_view from, std::string_view destination);

// A path as a link's destination may hold it: white space, control characters and what would
// end the destination or read as an escape, a query or a fragment are percent-encoded.
std::string encode_path(std::string_view path);

// A link from the file at `from` to the path `to`, written as `written` was: from the root when
// it started with "/", else from the file's folder; its query and fragment kept as written.
std::string rewritten(std::string_view written, std::string_view from, std::string_view to);

}  // namespace tarnwick::repo
