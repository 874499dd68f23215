#include "check/changes.hpp"

#include <git2.h>

#include <memory>

namespace tarnwick::check {

namespace fs = std::filesystem;

namespace {

template <typename T, void (*Free)(T*)>
using Owned = std::unique_ptr<T, std::integral_constant<decltype(Free), Free>>;

std::string last_error() {
  const git_error* error = git_error_last();
  return error && error->message ? error->message : "unknown git error";
}

struct Library {
  Library() { git_libgit2_init(); }
  ~Library() { git_libgit2_shutdown(); }
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;
};

}  // namespace

std::optional<std::vector<std::string>> changed_since(const fs::path& root, const std::string& ref,
                                                      std::string& reason) {
  const Library library;
  git_repository* opened = nullptr;
  if (git_repository_open_ext(&opened, root.c_str(), 0, nullptr) != 0) {
    reason = "--changed-since needs a git work tree, and " + root.string() + " is in none";
    return std::nullopt;
  }
  const Owned<git_repository, git_repository_free> repository(opened);
  if (git_repository_is_bare(repository.get())) {
    reason = "--changed-since needs a work tree, and the repository is bare";
    return std::nullopt;
  }
  git_object* named = nullptr;
  if (git_revparse_single(&named, repository.get(), ref.c_str()) != 0) {
    reason = "'" + ref + "' names no commit: " + last_error();
    return std::nullopt;
  }
  const Owned<git_object, git_object_free> object(named);
  git_object* peeled = nullptr;
  if (git_object_peel(&peeled, object.get(), GIT_OBJECT_TREE) != 0) {
    reason = "'" + ref + "' names no commit: " + last_error();
    return std::nullopt;
  }
  const Owned<git_object, git_object_free> tree(peeled);
  git_diff_options options = GIT_DIFF_OPTIONS_INIT;
  options.flags |= GIT_DIFF_INCLUDE_UNTRACKED | GIT_DIFF_RECURSE_UNTRACKED_DIRS;
  git_diff* computed = nullptr;
  if (git_diff_tree_to_workdir_with_index(&computed, repository.get(),
                                          reinterpret_cast<git_tree*>(tree.get()), &options) != 0) {
    reason = last_error();
    return std::nullopt;
  }
  const Owned<git_diff, git_diff_free> diff(computed);

  std::error_code error;
  const fs::path work_tree = fs::weakly_canonical(git_repository_workdir(repository.get()), error);
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
  for (std::size_t index = 0; index < git_diff_num_deltas(diff.get()); ++index) {
    const git_diff_delta* delta = git_diff_get_delta(diff.get(), index);
    add(delta->old_file.path);
    if (std::string_view(delta->new_file.path) != delta->old_file.path) add(delta->new_file.path);
  }
  return changed;
}

}  // namespace tarnwick::check
