#include "repo/workspace.hpp"

#include <algorithm>
#include <atomic>
#include <optional>
#include <thread>

#include "gfm/slug.hpp"
#include "repo/links.hpp"

namespace tarnwick::repo {

namespace {

// What a link's problems may depend on, as keys of the reverse index:
//   "f:" + the lowercased file or folder it leads to: whether that exists, in which case, and
//          its anchors (a folder's through its README);
//   "d:" + the lowercased folder of that target: the names suggested for a missing one;
//   "p:" + the lowercased page a wiki link names, and "pages" for every wiki link: the pages
//          that match it and those suggested for a missing one.
std::string target_key(std::string_view path) {
  return "f:" + gfm::lowercase(path);
}
std::string folder_key(std::string_view folder) {
  return "d:" + gfm::lowercase(folder);
}
std::string page_key(std::string_view page) {
  return "p:" + gfm::lowercase(page);
}
constexpr std::string_view ALL_PAGES_KEY = "pages";

bool is_readme(std::string_view name) {
  return is_markdown(name) && gfm::lowercase(stem_of(name)) == "readme";
}

template <typename Set>
const Set& empty_set() {
  static const Set empty;
  return empty;
}

}  // namespace

SharedDocument read_document(std::string text, const WorkspaceOptions& options) {
  auto document = std::make_shared<Document>();
  document->read = gfm::read_links(text, options.wiki);
  document->text = std::move(text);
  return document;
}

SharedDocument reread_document(const Document& old, std::string text,
                               const WorkspaceOptions& options) {
  auto document = std::make_shared<Document>();
  document->read = gfm::reread(old.read, old.text, text, options.wiki);
  document->text = std::move(text);
  return document;
}

Workspace Workspace::load(const std::filesystem::path& root, const Tree& tree,
                          const std::vector<std::string>& sources, WorkspaceOptions options,
                          unsigned jobs, std::vector<ReadError>& errors) {
  Workspace workspace(options);
  std::set<std::string> unused;
  for (const std::string& directory : tree.directories) {
    workspace.add_entry(directory, true, unused);
  }
  std::vector<const std::string*> to_read;
  for (const std::string& file : tree.files) {
    workspace.add_entry(file, false, unused);
    if (is_markdown(name_of(file))) to_read.push_back(&file);
  }
  for (const std::string& source : sources) {
    if (!is_markdown(name_of(source)) || !workspace.has_file(source)) to_read.push_back(&source);
  }

  std::vector<SharedDocument> read(to_read.size());
  std::vector<std::optional<ReadError>> failed(to_read.size());
  std::atomic<std::size_t> next{0};
  const auto work = [&] {
    for (std::size_t index; (index = next++) < to_read.size();) {
      std::string reason;
      // Joined as text: a path's own joining parses both sides.
      const std::filesystem::path location = root.native() + '/' + *to_read[index];
      if (auto bytes = read_file(location, reason)) {
        read[index] = read_document(std::move(*bytes), options);
      } else {
        failed[index] = ReadError{location.string(), reason};
      }
    }
  };
  std::vector<std::jthread> threads;
  for (unsigned i = 1; i < std::min<std::size_t>(jobs, to_read.size()); ++i) {
    threads.emplace_back(work);
  }
  work();
  threads.clear();
  for (std::size_t index = 0; index < to_read.size(); ++index) {
    if (failed[index]) {
      errors.push_back(std::move(*failed[index]));
    } else if (workspace.documents_.try_emplace(*to_read[index], std::move(read[index])).second) {
      workspace.index_links(*to_read[index], *workspace.documents_.at(*to_read[index]));
    }
  }
  return workspace;
}

const std::string* Workspace::in_any_case(std::string_view path) const {
  const auto found = by_lowercase_.find(gfm::lowercase(path));
  return found == by_lowercase_.end() ? nullptr : &*found->second.begin();
}

const std::set<std::string>& Workspace::names_in(std::string_view folder) const {
  const auto found = names_.find(std::string(folder));
  return found == names_.end() ? empty_set<std::set<std::string>>() : found->second;
}

std::optional<std::string> Workspace::readme_of(std::string_view folder) const {
  for (const std::string& name : names_in(folder)) {
    std::string candidate = folder.empty() ? name : std::string(folder) + "/" + name;
    if (is_readme(name) && has_file(candidate)) return candidate;
  }
  return std::nullopt;
}

std::vector<std::string> Workspace::pages_named(std::string_view page) const {
  std::vector<std::string> matches;
  const auto found = pages_.find(wiki_name(page));
  if (found == pages_.end()) return matches;
  for (const std::string& candidate : found->second) {
    if (names_page(candidate, page)) matches.push_back(candidate);
  }
  return matches;
}

std::vector<std::string> Workspace::page_stems() const {
  std::vector<std::string> stems;
  for (const auto& [stem, paths] : pages_) {
    for (const std::string& page : paths) stems.emplace_back(stem_of(name_of(page)));
  }
  std::sort(stems.begin(), stems.end());
  return stems;
}

const Document* Workspace::document(std::string_view path) const {
  const auto found = documents_.find(std::string(path));
  return found == documents_.end() ? nullptr : found->second.get();
}

SharedDocument Workspace::shared_document(std::string_view path) const {
  const auto found = documents_.find(std::string(path));
  return found == documents_.end() ? nullptr : found->second;
}

std::vector<std::string> Workspace::document_paths() const {
  std::vector<std::string> paths;
  paths.reserve(documents_.size());
  for (const auto& [path, document] : documents_) paths.push_back(path);
  return paths;
}

void Workspace::add_dependents(std::string_view key, std::set<std::string>& affected) const {
  if (const auto found = dependents_.find(std::string(key)); found != dependents_.end()) {
    affected.insert(found->second.begin(), found->second.end());
  }
}

std::vector<std::string> Workspace::documents_depending_on(std::string_view path) const {
  std::set<std::string> affected;
  add_dependents(target_key(path), affected);
  add_dependents(folder_key(parent_of(path)), affected);
  const std::string_view name = name_of(path);
  if (is_markdown(name)) {
    add_dependents(page_key(stem_of(name)), affected);
    add_dependents(ALL_PAGES_KEY, affected);
    if (name.ends_with(".md")) {
      add_dependents(target_key(std::string(path.substr(0, path.size() - 3)) + ".html"), affected);
    }
    if (is_readme(name)) add_dependents(target_key(parent_of(path)), affected);
  }
  return {affected.begin(), affected.end()};
}

void Workspace::add_entry(const std::string& path, bool is_directory,
                          std::set<std::string>& changed) {
  if (path.empty()) return;
  auto& entries = is_directory ? directories_ : files_;
  if (!entries.insert(path).second) return;
  changed.insert(path);
  const std::string folder(parent_of(path));
  add_entry(folder, true, changed);
  by_lowercase_[gfm::lowercase(path)].insert(path);
  names_[folder].emplace(name_of(path));
  if (!is_directory && is_markdown(name_of(path))) {
    pages_[wiki_name(path)].insert(path);
  }
}

void Workspace::remove_entry(const std::string& path, bool is_directory,
                             std::set<std::string>& changed) {
  auto& entries = is_directory ? directories_ : files_;
  if (path.empty() || !entries.erase(path)) return;
  changed.insert(path);
  const auto erase_from = [](auto& index, const std::string& key, const std::string& value) {
    const auto found = index.find(key);
    if (found == index.end()) return;
    found->second.erase(value);
    if (found->second.empty()) index.erase(found);
  };
  const std::string folder(parent_of(path));
  erase_from(by_lowercase_, gfm::lowercase(path), path);
  erase_from(names_, folder, std::string(name_of(path)));
  if (!is_directory && is_markdown(name_of(path))) {
    erase_from(pages_, wiki_name(path), path);
  }
  if (documents_.erase(path)) unindex_links(path);
}

void Workspace::index_links(const std::string& path, const Document& document) {
  std::set<std::string> keys;
  for (const gfm::Link& link : document.read.links) {
    if (link.syntax == gfm::LinkSyntax::wiki) {
      const std::string_view page =
          std::string_view(link.destination).substr(0, link.destination.find('#'));
      if (page.empty()) continue;
      keys.insert(page_key(name_of(wiki_page(page))));
      keys.emplace(ALL_PAGES_KEY);
      continue;
    }
    const Destination destination = resolve_destination(path, link.destination);
    if (destination.status != Destination::Status::found || !destination.has_path) continue;
    keys.insert(target_key(destination.path));
    keys.insert(folder_key(parent_of(destination.path)));
  }
  std::vector<std::string>& kept = keys_of_[path];
  kept.assign(keys.begin(), keys.end());
  for (const std::string& key : kept) dependents_[key].insert(path);
}

void Workspace::unindex_links(const std::string& path) {
  const auto found = keys_of_.find(path);
  if (found == keys_of_.end()) return;
  for (const std::string& key : found->second) {
    const auto dependents = dependents_.find(key);
    dependents->second.erase(path);
    if (dependents->second.empty()) dependents_.erase(dependents);
  }
  keys_of_.erase(found);
}

std::vector<std::string> Workspace::affected_by(const std::set<std::string>& changed,
                                                std::set<std::string> affected) const {
  for (const std::string& entry : changed) {
    const auto dependents = documents_depending_on(entry);
    affected.insert(dependents.begin(), dependents.end());
  }
  std::vector<std::string> documents;
  for (const std::string& path : affected) {
    if (documents_.contains(path)) documents.push_back(path);
  }
  return documents;
}

std::vector<std::string> Workspace::put_document(const std::string& path, SharedDocument document) {
  std::set<std::string> changed;
  add_entry(path, false, changed);
  // Anchors are what other documents' links see of a document's text.
  const auto old = documents_.find(path);
  if (old == documents_.end() || old->second->read.anchors != document->read.anchors ||
      old->second->read.custom_ids != document->read.custom_ids) {
    changed.insert(path);
  }
  unindex_links(path);
  index_links(path, *document);
  documents_[path] = std::move(document);
  return affected_by(changed, {path});
}

std::vector<std::string> Workspace::put_file(const std::string& path) {
  std::set<std::string> changed;
  add_entry(path, false, changed);
  const bool had_document = documents_.erase(path) > 0;
  if (had_document) {
    unindex_links(path);
    changed.insert(path);
  }
  return affected_by(changed, {});
}

std::vector<std::string> Workspace::put_directory(const std::string& path) {
  std::set<std::string> changed;
  add_entry(path, true, changed);
  return affected_by(changed, {});
}

std::vector<std::string> Workspace::remove(const std::string& path) {
  std::set<std::string> changed;
  if (directories_.contains(path)) {
    const std::string prefix = path + "/";
    std::vector<std::string> files, folders;
    for (const std::string& file : files_) {
      if (file.starts_with(prefix)) files.push_back(file);
    }
    for (const std::string& folder : directories_) {
      if (folder.starts_with(prefix)) folders.push_back(folder);
    }
    for (const std::string& file : files) remove_entry(file, false, changed);
    for (const std::string& folder : folders) remove_entry(folder, true, changed);
    remove_entry(path, true, changed);
  } else {
    remove_entry(path, false, changed);
  }
  return affected_by(changed, {});
}

}  // namespace tarnwick::repo
