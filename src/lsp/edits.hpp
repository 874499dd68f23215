// Renames as edits of the workspace's documents: a heading (and every fragment that names it
// or a heading whose repeat number it shifts), a reference label (its definitions and uses),
// and files or folders moved (the links to them and their own relative links).
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "gfm/document.hpp"
#include "repo/workspace.hpp"

namespace tarnwick::lsp {

// Text to put in place of a span of a document.
struct TextEdit {
  std::string path;
  gfm::Span span;
  std::string text;
  bool operator==(const TextEdit&) const = default;
};

// A rename that cannot be made, and why, in words for the person who asked.
struct Refusal {
  std::string reason;
};

// Renames a heading of a document to `text` (Markdown, one line). Every link whose fragment
// names a heading whose GitHub id the rename changes is rewritten to the new id: the heading
// itself, and the repeats of its old or new text, whose "-1", "-2" suffixes shift.
std::vector<TextEdit> rename_heading(const repo::Workspace& workspace, const std::string& path,
                                     std::size_t heading, std::string_view text, Refusal& refusal);

// Renames a reference label of a document: every definition and reference link of it.
std::vector<TextEdit> rename_label(const repo::Document& document, const std::string& path,
                                   const std::string& label, std::string_view text);

// Moves files and folders (old path, new path pairs): the links that lead to them, in any
// document, and the relative links of the moved documents themselves, so that each leads where
// it led before. Wiki links that named a moved page by its name name it by the new one.
std::vector<TextEdit> move_files(const repo::Workspace& workspace,
                                 const std::vector<std::pair<std::string, std::string>>& moves);

}  // namespace tarnwick::lsp
