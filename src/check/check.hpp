// Checking the links of a repository's Markdown files as github.com renders them.
#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "gfm/document.hpp"
#include "repo/selection.hpp"

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
  missing_page,
  ambiguous_page,
};

struct CodeInfo {
  Code code;
  std::string_view name;         // as printed and as --ignore takes it
  std::string_view description;  // one line, for people and SARIF rules
  bool site_generator;           // written for a site generator rather than for the repository
};

inline constexpr std::array<CodeInfo, 12> CODES = {{
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
    {Code::missing_page, "missing-page", "A wiki link names no Markdown file.", false},
    {Code::ambiguous_page, "ambiguous-page", "A wiki link names several Markdown files.", false},
}};

constexpr const CodeInfo& info(Code code) {
  return CODES[static_cast<std::size_t>(code)];
}

std::optional<Code> code_named(std::string_view name);

struct Problem {
  std::string path;  // of the file that holds the link, from the root
  std::int64_t line = 0;
  std::int64_t column = 0;
  std::string target;  // the link as written
  Code code = Code::missing_file;
  std::string message;
  std::optional<std::string> suggestion;  // a target to write instead
  // The file or directory the link leads to, from the root (when it leads inside it), and its
  // decoded fragment: what --changed filters on and suggestions start from.
  std::string resolved;
  std::string fragment;
};

// The files under one root and the links and anchors of its Markdown files.
class Repository {
 public:
  // Reads every Markdown file of the tree and every file of `sources` (paths from the root,
  // which a file argument may name whatever its extension), `jobs` at a time. A file that
  // cannot be read is named in errors() and has no anchors.
  Repository(const std::filesystem::path& root, const repo::Tree& tree,
             const std::vector<std::string>& sources, bool wiki, unsigned jobs);

  const std::vector<repo::ReadError>& errors() const { return errors_; }

  // The problems of the links of a Markdown file of the tree, in the file's order, without
  // suggestions; `links` counts the links checked.
  std::vector<Problem> check_file(const std::string& path, std::size_t& links) const;

  // Fills in a problem's suggestion from a small set of candidates: the names of the linked
  // folder, or the anchors of the linked file.
  void suggest(Problem& problem) const;

 private:
  struct Target;
  using Link = gfm::Link;
  using LinkedDocument = gfm::LinkedDocument;
  std::optional<Problem> check_link(const std::string& path, const Link& link) const;
  std::optional<Problem> check_wiki_link(const std::string& path, const Link& link) const;
  std::optional<Problem> check_fragment(const std::string& path, const std::string& target,
                                        const std::string& fragment, bool rendered,
                                        const Link& link) const;
  const LinkedDocument* document(const std::string& path) const;

  std::unordered_set<std::string> files_;
  std::unordered_set<std::string> directories_;
  std::unordered_map<std::string, std::string> by_lowercase_;           // lowercased path -> path
  std::unordered_map<std::string, std::vector<std::string>> children_;  // folder -> names
  std::unordered_map<std::string, std::vector<std::string>> pages_;     // lowercased stem -> paths
  std::unordered_map<std::string, LinkedDocument> documents_;
  std::vector<repo::ReadError> errors_;
};

}  // namespace tarnwick::check
