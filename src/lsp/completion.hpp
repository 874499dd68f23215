// What may be typed at a place of a document: after "](" a path of the repository (a folder at a
// time), after "#" in a link the anchors of its target, after "][" a reference label, after "[["
// a wiki page.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "gfm/document.hpp"
#include "repo/workspace.hpp"

namespace tarnwick::lsp {

struct Completion {
  enum class Kind { file, folder, heading, label, page };
  Kind kind = Kind::file;
  std::string text;    // what goes in place of `span`
  std::string detail;  // a heading's text, for a person choosing
  gfm::Span span;      // what was typed of it so far, up to the place asked about
};

// The completions at an offset of the text of the document at `path` (whose reading may be a
// little older than the text, as it is while a person types).
std::vector<Completion> complete(const repo::Workspace& workspace, const std::string& path,
                                 const std::string& text, std::size_t offset);

}  // namespace tarnwick::lsp
