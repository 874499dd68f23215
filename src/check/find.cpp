#include "check/find.hpp"

#include <fnmatch.h>

#include <algorithm>
#include <filesystem>
#include <unordered_set>

#include "check/changes.hpp"
#include "check/suppression.hpp"

namespace tarnwick::check {

namespace fs = std::filesystem;

namespace {

// The paths checked against one repository root.
struct Group {
  fs::path root;
  std::vector<std::string> paths;
};

std::vector<Group> groups_of(const CheckOptions& options) {
  if (options.root) return {{*options.root, options.paths}};
  std::vector<Group> groups;
  for (const std::string& path : options.paths) {
    std::error_code error;
    if (fs::is_directory(path, error)) {
      groups.push_back({path, {path}});
    } else if (!groups.empty() && groups.back().root == "." &&
               !fs::is_directory(groups.back().paths.front(), error)) {
      groups.back().paths.push_back(path);
    } else {
      groups.push_back({".", {path}});
    }
  }
  return groups;
}

// A path from the root of a file or folder the reader named from the current directory;
// none when it is not under the root.
std::optional<std::string> from_root(const fs::path& root, const fs::path& location) {
  std::error_code error;
  const std::string path = fs::weakly_canonical(fs::absolute(location), error)
                               .lexically_relative(fs::weakly_canonical(fs::absolute(root), error))
                               .generic_string();
  if (error || path.starts_with("..")) return std::nullopt;
  return path == "." ? std::string() : path;
}

// A path as the reader opens it from the current directory.
std::string shown(const fs::path& root, const std::string& path) {
  std::string joined = (root / path).lexically_normal().generic_string();
  return joined.starts_with("./") ? joined.substr(2) : joined;
}

void add_errors(const std::vector<repo::ReadError>& errors, std::vector<std::string>& messages) {
  for (const repo::ReadError& error : errors) {
    messages.push_back(repo::describe(error));
  }
}

// Whether a target as written matches one of the globs ("*" matches "/" too).
bool accepted(const std::vector<std::string>& globs, const std::string& target) {
  return std::any_of(globs.begin(), globs.end(), [&](const std::string& glob) {
    return ::fnmatch(glob.c_str(), target.c_str(), 0) == 0;
  });
}

}  // namespace

CheckResult find_problems(const CheckOptions& options) {
  CheckResult result;
  for (const Group& group : groups_of(options)) {
    repo::SelectionOptions everything = options.selection;
    everything.hidden = true;
    everything.excludes.clear();
    everything.ignore_files = false;  // they hide files from tools, not from the repository
    const repo::Tree tree = repo::list_tree(group.root, everything);
    add_errors(tree.errors, result.errors);
    const repo::Selection selection = repo::select_files(group.paths, options.selection);
    add_errors(selection.errors, result.errors);

    std::unordered_set<std::string> changed;
    for (const std::string& path : options.changed) {
      if (auto file = from_root(group.root, path)) changed.insert(std::move(*file));
    }
    if (options.changed_since) {
      std::string reason;
      const auto since = changed_since(group.root, *options.changed_since, reason);
      if (!since) {
        result.stopped = reason;
        return result;
      }
      changed.insert(since->begin(), since->end());
    }
    const bool only_changed = !options.changed.empty() || options.changed_since;

    std::vector<std::string> sources;
    for (const repo::SourceFile& file : selection.files) {
      if (auto path = from_root(group.root, file.location)) {
        sources.push_back(std::move(*path));
      } else {
        result.errors.push_back(file.location.string() + " is not under the root " +
                                group.root.string() + " (name its repository with --root)");
      }
    }
    std::vector<repo::ReadError> unread;
    const repo::Workspace workspace = repo::Workspace::load(
        group.root, tree, sources, {.wiki = options.wiki}, options.jobs, unread);
    add_errors(unread, result.errors);
    for (const std::string& path : sources) {
      ++result.files;
      std::vector<Problem> found;
      for (Problem& problem : check_document(workspace, path, result.links)) {
        if (std::find(options.ignored.begin(), options.ignored.end(), problem.code) ==
                options.ignored.end() &&
            !accepted(options.accepted, problem.target)) {
          found.push_back(std::move(problem));
        }
      }
      if (const repo::Document* document = workspace.document(path)) {
        found = unsuppressed(std::move(found), path, document->read.comments,
                             options.report_unused_suppressions);
      }
      for (Problem& problem : found) {
        if (only_changed && !changed.contains(problem.path) &&
            !changed.contains(problem.resolved)) {
          continue;
        }
        suggest(workspace, problem);
        problem.path = shown(group.root, problem.path);
        result.problems.push_back(std::move(problem));
      }
    }
  }
  return result;
}

}  // namespace tarnwick::check
