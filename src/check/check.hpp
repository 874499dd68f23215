// Checking the links of a repository's Markdown files as github.com renders them.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "repo/workspace.hpp"

namespace tarnwick::check {

enum class Code {
  missing_file,
  missing_anchor,
  missing_anchor_other_file,
  case_mismatch,
  outside_repository,
  malformed_link,
  line_fragment,
  site_path,
  html_for_markdown,
  custom_anchor,
  template_syntax,
  missing_page,
  ambiguous_page,
  unused_suppression,
};

struct CodeInfo {
  Code code;
  std::string_view name;         // as printed and as --ignore takes it
  std::string_view description;  // one line, for people and SARIF rules
  bool site_generator;           // written for a site generator rather than for the repository
};

inline constexpr std::array<CodeInfo, 14> CODES = {{
    {Code::missing_file, "missing-file", "The link leads to no file or directory.", false},
    {Code::missing_anchor, "missing-anchor",
     "No heading or HTML anchor of this file has the link's fragment.", false},
    {Code::missing_anchor_other_file, "missing-anchor-other-file",
     "No heading or HTML anchor of the linked file has the link's fragment.", false},
    {Code::case_mismatch, "case-mismatch", "The linked file exists only with other letter case.",
     false},
    {Code::outside_repository, "outside-repository", "The link climbs above the repository's root.",
     false},
    {Code::malformed_link, "malformed-link", "The link holds a malformed percent-escape.", false},
    {Code::line_fragment, "line-fragment",
     "A line fragment (#L10) on a file that is shown rendered, where lines have no anchors.",
     false},
    {Code::site_path, "site-path",
     "A root-absolute or extensionless path that names no file: written for a site generator.",
     true},
    {Code::html_for_markdown, "html-for-markdown",
     "An .html link whose .md file exists: written for a site generator.", true},
    {Code::custom_anchor, "custom-anchor",
     "A fragment that only a {#id} heading attribute makes, which GitHub does not read.", true},
    {Code::template_syntax, "template-syntax",
     "The target holds a site generator's template syntax ({{...}} or {%...%}).", true},
    {Code::missing_page, "missing-page", "A wiki link names no Markdown file.", false},
    {Code::ambiguous_page, "ambiguous-page", "A wiki link names several Markdown files.", false},
    {Code::unused_suppression, "unused-suppression",
     "A tarnwick-md-ignore comment that silences nothing: a code misspelt, or (asked for) one no "
     "problem needs.",
     false},
}};

constexpr const CodeInfo& info(Code code) {
  return CODES[static_cast<std::size_t>(code)];
}

std::optional<Code> code_named(std::string_view name);

// Every code's name, in the order of CODES: the words "did you mean" looks among.
const std::vector<std::string>& code_names();

// Text in double quotes, as messages name targets, paths and codes.
std::string in_quotes(std::string_view text);

// Whether a problem was known to a baseline: none when the run had no baseline.
enum class BaselineState { none, new_problem, unchanged };

struct Problem {
  std::string path;  // of the file that holds the link, from the root or as the reader opens it
  std::string file;  // that file's path from the root, always: what a baseline knows it by
  std::int64_t line = 0;
  std::int64_t column = 0;
  std::string target;  // the link as written
  gfm::Span span;      // where the link stands in its document, and its target as written
  gfm::Span target_span;
  Code code = Code::missing_file;
  std::string message;
  std::optional<std::string> suggestion;  // a target to write instead
  // The file or directory the link leads to, from the root (when it leads inside it), and its
  // decoded fragment: what --changed filters on and suggestions start from.
  std::string resolved;
  std::string fragment;
  BaselineState baseline = BaselineState::none;
  bool operator==(const Problem&) const = default;
};

// The problems of the links of a document of the workspace, in the document's order, without
// suggestions; `links` counts the links checked. A definition that no link uses is not
// checked: GitHub renders nothing of it.
std::vector<Problem> check_document(const repo::Workspace& workspace, const std::string& path,
                                    std::size_t& links);

// Fills in a problem's suggestion from a small set of candidates: the names of the linked
// folder, the anchors of the linked file, or the wiki pages.
void suggest(const repo::Workspace& workspace, Problem& problem);

}  // namespace tarnwick::check
