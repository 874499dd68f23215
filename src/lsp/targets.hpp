// What stands at a place of a document, where a link leads, and which links lead somewhere:
// definitions, references and hovers are answered from these. Offsets are bytes of a
// document's text; paths are from the workspace's root.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "gfm/document.hpp"
#include "repo/workspace.hpp"

namespace tarnwick::lsp {

// What stands at an offset of a document: a definition's label, a reference link, a link (its
// whole extent) or a heading (its lines), in that order of precedence.
struct AtOffset {
  enum class Kind { nothing, definition, reference, link, heading };
  Kind kind = Kind::nothing;
  std::size_t index = 0;  // into the document's definitions, references, links or headings
};
AtOffset what_is_at(const repo::Document& document, std::size_t offset);

// The heading of a document that a link's decoded fragment names, by GitHub's ids.
std::optional<std::size_t> heading_named(const gfm::LinkedDocument& read, std::string_view fragment,
                                         gfm::LinkSyntax syntax);

// Where a link of the document at `from` leads in the workspace: the file or folder it names
// (for a folder with a fragment, the README that GitHub shows), the fragment, and the heading
// the fragment names. None for a link that leads nowhere in the workspace.
struct Lead {
  std::string path;
  std::optional<std::string> fragment;  // decoded; none without "#" or with an empty one
  std::optional<std::size_t> heading;
};
std::optional<Lead> lead_of(const repo::Workspace& workspace, const std::string& from,
                            const gfm::Link& link);

// The definition a reference link of a document uses: the first of its label.
std::optional<std::size_t> definition_of(const gfm::LinkedDocument& read,
                                         const gfm::Reference& reference);

// A place in a document of the workspace.
struct Place {
  std::string path;
  gfm::Span span;
  bool operator==(const Place&) const = default;
};

// Which links `links_to` finds.
enum class Fragments {
  any,    // every link to the file, with a fragment or without
  none,   // the links to the file itself, without a fragment
  named,  // the links whose fragment names one heading
};

// Calls `visit` for each link of the workspace that leads to a file or folder, with the path of
// the document that holds it and where it leads; in path order, then document order.
// Definitions no link uses count: renaming what they lead to must leave none stale.
void for_each_link_to(const repo::Workspace& workspace, const std::string& path,
                      const std::function<void(const std::string& from, const gfm::Link& link,
                                               const Lead& lead)>& visit);

// The links of the workspace that lead to a file (each at its destination as written, or at the
// whole link where that is not known), in path order and then document order.
std::vector<Place> links_to(const repo::Workspace& workspace, const std::string& path,
                            Fragments fragments, std::optional<std::size_t> heading = {});

// Where a link stands for a person: its destination as written where that is known.
gfm::Span link_place(const gfm::Link& link);

}  // namespace tarnwick::lsp
