// The files of a repository and what its Markdown documents link to and name, kept up to date
// one document or file at a time. Every path is from the repository's root, with "/"
// separators; "" is the root itself.
#pragma once

#include <cstddef>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "gfm/document.hpp"
#include "repo/selection.hpp"

namespace tarnwick::repo {

struct WorkspaceOptions {
  bool wiki = false;  // read [[Page#Heading|label]] links too
};

// A document of the workspace: its text and what GitHub's rendering of it links to and names.
// Documents are immutable and shared: a reader may keep one after the workspace replaced it.
struct Document {
  std::string text;
  gfm::LinkedDocument read;
};
using SharedDocument = std::shared_ptr<const Document>;

// Reads a document's text as GitHub renders it.
SharedDocument read_document(std::string text, const WorkspaceOptions& options);
// Reads the new text of an edited document, only the part around what changed when that reads
// the same.
SharedDocument reread_document(const Document& old, std::string text,
                               const WorkspaceOptions& options);

class Workspace {
 public:
  explicit Workspace(WorkspaceOptions options = {}) : options_(options) {}

  // The files and folders of a tree, with every Markdown file of it and every file of
  // `sources` (which a caller may name whatever its extension) read as a document, `jobs` at
  // a time. A file that cannot be read stays a file without a document, named in `errors`.
  static Workspace load(const std::filesystem::path& root, const Tree& tree,
                        const std::vector<std::string>& sources, WorkspaceOptions options,
                        unsigned jobs, std::vector<ReadError>& errors);

  const WorkspaceOptions& options() const { return options_; }

  const std::unordered_set<std::string>& files() const { return files_; }
  const std::unordered_set<std::string>& directories() const { return directories_; }
  bool has_file(std::string_view path) const { return files_.contains(std::string(path)); }
  bool has_directory(std::string_view path) const {
    return directories_.contains(std::string(path));
  }
  // The first, in byte order, of the files and folders whose path is `path` in other letter
  // case (or the same); none when there is none.
  const std::string* in_any_case(std::string_view path) const;
  // The names of the files and folders in a folder, in byte order.
  const std::set<std::string>& names_in(std::string_view folder) const;
  // The README a folder is shown with: its first Markdown file named README, in any case.
  std::optional<std::string> readme_of(std::string_view folder) const;
  // The Markdown files a wiki link's page names: those whose path without its extension is
  // the page, or ends with "/" and the page, in any letter case; in byte order.
  std::vector<std::string> pages_named(std::string_view page) const;
  // The names without extension of every Markdown file, in byte order.
  std::vector<std::string> page_stems() const;

  // The document of a file that was read; none for another file or path.
  const Document* document(std::string_view path) const;
  SharedDocument shared_document(std::string_view path) const;
  // Every document's path, in no particular order.
  std::vector<std::string> document_paths() const;

  // The documents holding a link whose target, fragment or suggestion may depend on `path`:
  // its existence, its letter case, its anchors, its siblings or its name as a wiki page.
  std::vector<std::string> documents_depending_on(std::string_view path) const;

  // Changes. Each returns the documents whose links may now have other problems than before
  // (in byte order): a replaced document itself, and those whose links lead to what changed.
  // Adds or replaces a file's document, adding the file and its folders if they are new.
  std::vector<std::string> put_document(const std::string& path, SharedDocument document);
  // Adds a file without a document (one that is not Markdown, or could not be read), or drops
  // the document of one that was read.
  std::vector<std::string> put_file(const std::string& path);
  // Adds a folder (and the folders above it).
  std::vector<std::string> put_directory(const std::string& path);
  // Removes a file, or a folder with everything in it.
  std::vector<std::string> remove(const std::string& path);

  // The keys under which a document's links are found by what they depend on; the same
  // workspace built afresh from the same files has the same keys.
  const std::unordered_map<std::string, std::unordered_set<std::string>>& dependents() const {
    return dependents_;
  }

 private:
  void add_entry(const std::string& path, bool is_directory, std::set<std::string>& changed);
  void remove_entry(const std::string& path, bool is_directory, std::set<std::string>& changed);
  void index_links(const std::string& path, const Document& document);
  void unindex_links(const std::string& path);
  void add_dependents(std::string_view key, std::set<std::string>& affected) const;
  // The documents among `affected` and those depending on what `changed`, in byte order.
  std::vector<std::string> affected_by(const std::set<std::string>& changed,
                                       std::set<std::string> affected) const;

  WorkspaceOptions options_;
  std::unordered_set<std::string> files_;
  std::unordered_set<std::string> directories_{""};
  std::unordered_map<std::string, std::set<std::string>> by_lowercase_;  // lowercased -> paths
  std::unordered_map<std::string, std::set<std::string>> names_;         // folder -> names
  std::map<std::string, std::set<std::string>> pages_;  // lowercased stem -> Markdown files
  std::unordered_map<std::string, SharedDocument> documents_;
  // What links depend on (see dependency keys in the source) -> the documents holding them,
  // and each document's keys.
  std::unordered_map<std::string, std::unordered_set<std::string>> dependents_;
  std::unordered_map<std::string, std::vector<std::string>> keys_of_;
};

}  // namespace tarnwick::repo
