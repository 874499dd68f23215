#include "check/changes.hpp"

#include <memory>

#include "repo/git.hpp"

namespace tarnwick::check {

namespace fs = std::filesystem;

namespace {

// A libgit2 object freed by the library's function for it.
template <typename T>
using Owned = std::unique_ptr<T, void (*)(T*)>;

}  // namespace

std::optional<std::vector<std::string>> changed_since(const fs::path& root, const std::string& ref,
                                                      std::string& reason) {
  const repo::git::Library& git = repo::git::library();
  if (!git.failure.empty()) {
    reason = "--changed-since needs libgit2: " + git.failure;
    return std::nullopt;
  }
  const repo::git::Session session(git);
  const auto last_error = [&] { return repo::git::last_error(git, "unknown git error"); };
  git_repository* opened = nullptr;
  if (git.repository_open_ext(&opened, root.c_str(), 0, nullptr) != 0) {
    reason = "--changed-since needs a git work tree, and " + root.string() + " is in none";
    return std::nullopt;
  }
  const Owned<git_repository> repository(opened, git.repository_free);
  if (git.repository_is_bare(repository.get())) {
    reason = "--changed-since needs a work tree, and the repository is bare";
    return std::nullopt;
  }
  git_object* named = nullptr;
  if (git.revparse_single(&named, repository.get(), ref.c_str()) != 0) {
    reason = "'" + ref + "' names no commit: " + last_error();
    return std::nullopt;
  }
  const Owned<git_object> object(named, git.object_free);
  git_object* peeled = nullptr;
  if (git.object_peel(&peeled, object.get(), GIT_OBJECT_TREE) != 0) {
    reason = "'" + ref + "' names no commit: " + last_error();
    return std::nullopt;
  }
  const Owned<git_object> tree(peeled, git.object_free);
  git_diff_options options = GIT_DIFF_OPTIONS_INIT;
  options.flags |= GIT_DIFF_INCLUDE_UNTRACKED | GIT_DIFF_RECURSE_UNTRACKED_DIRS;
  git_diff* computed = nullptr;
  if (git.diff_tree_to_workdir_with_index(&computed, repository.get(),
                                          reinterpret_cast<git_tree*>(tree.get()), &options) != 0) {
    reason = last_error();
    return std::nullopt;
  }
  const Owned<git_diff> diff(computed, git.diff_free);

  std::error_code error;
  const fs::path work_tree = fs::weakly_canonical(git.repository_workdir(repository.get()), error);
  const std::string prefix =
      fs::weakly_canonical(root, error).lexically_relative(work_tree).generic_string();
  std::vector<std::string> changed;
  const auto add = [&](const char* path) {
    const std::string_view file = path;
    if (prefix == "." || prefix.empty()) {
      changed.emplace_back(file);
    } else if (file.starts_with(prefix + "/")) {
      changed.emplace_back(file.substr(prefix.size() + 1));
    }
  };
  for (std::size_t index = 0; index < git.diff_num_deltas(diff.get()); ++index) {
    const git_diff_delta* delta = git.diff_get_delta(diff.get(), index);
    add(delta->old_file.path);
    if (std::string_view(delta->new_file.path) != delta->old_file.path) add(delta->new_file.path);
  }
  return changed;
}

}  // namespace tarnwick::check
