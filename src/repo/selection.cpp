#include "repo/selection.hpp"

#include <fcntl.h>
#include <fnmatch.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <numeric>
#include <set>
#include <system_error>

#include "repo/git.hpp"
#include "repo/links.hpp"
#include "tarnwick/markdown.hpp"

namespace tarnwick::repo {

namespace fs = std::filesystem;

namespace {

// A directory's path as a literal in an ignore rule: glob characters escaped, and a line break,
// which no rule can hold, matched by '?'.
std::string glob_literal(std::string_view path) {
  std::string literal;
  for (const char c : path) {
    if (c == '\n') {
      literal += '?';
      continue;
    }
    if (c == '\\' || c == '*' || c == '?' || c == '[') literal += '\\';
    literal += c;
  }
  return literal;
}

// Trailing spaces are not part of a pattern unless a backslash escapes them.
std::string_view without_trailing_spaces(std::string_view line) {
  while (line.ends_with(' ')) {
    const std::string_view before = line.substr(0, line.size() - 1);
    const std::size_t last_other = before.find_last_not_of('\\');
    const std::size_t backslashes =
        before.size() - (last_other == std::string_view::npos ? 0 : last_other + 1);
    if (backslashes % 2 == 1) break;
    line = before;
  }
  return line;
}

// The patterns of a .ignore file in `directory` (its path in the work tree, "." for the root) as
// libgit2 rules, which match paths from the work tree's root: each anchored to the directory by
// a leading "/" and its path, and one without a "/" of its own matched at any depth below it.
std::string work_tree_rules(std::string_view ignore_file, std::string_view directory) {
  std::string prefix = "/";
  if (directory != ".") prefix += glob_literal(directory) + '/';
  std::string rules;
  for (std::string_view rest = ignore_file; !rest.empty();) {
    const std::size_t end = rest.find('\n');
    std::string_view pattern = rest.substr(0, end);
    rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
    if (pattern.ends_with('\r')) pattern.remove_suffix(1);
    pattern = without_trailing_spaces(pattern);
    if (pattern.starts_with('#')) continue;
    const bool negated = pattern.starts_with('!');
    if (negated) pattern.remove_prefix(1);
    const bool directory_only = pattern.ends_with('/');
    if (directory_only) pattern.remove_suffix(1);
    const bool anchored = pattern.find('/') != std::string_view::npos;
    if (pattern.starts_with('/')) pattern.remove_prefix(1);
    if (pattern.empty()) continue;
    const std::string rule =
        prefix + (anchored ? "" : "**/") + std::string(pattern) + (directory_only ? "/" : "");
    // libgit2 drops a negation without wildcards unless an earlier rule of the same list has its
    // pattern; the same rule right before it, which the negation overrides, keeps it.
    if (negated) rules += rule + "\n!";
    rules += rule + '\n';
  }
  return rules;
}

// What git ignores in the work tree that holds a directory, if one does: its .gitignore files,
// .git/info/exclude and the user's excludes file, read by libgit2 as git reads them; and what
// the .ignore files of the work tree ignore, which libgit2 checks first as rules of its own, so
// that they take precedence over git's (as they do for ripgrep and fd).
class GitIgnores {
 public:
  // A work tree's rules that cannot be read, libgit2 missing, are named in the errors.
  GitIgnores(const fs::path& directory, std::vector<ReadError>& errors) {
    if (!may_be_in_work_tree(directory)) return;
    const git::Library& git = git::library();
    if (!git.failure.empty()) {
      errors.push_back({directory.string(), "its git ignore rules need libgit2: " + git.failure});
      return;
    }
    git_ = &git;
    session_.emplace(git);
    if (git.repository_open_ext(&repository_, directory.c_str(), 0, nullptr) != 0 ||
        git.repository_is_bare(repository_)) {
      git.repository_free(repository_);
      repository_ = nullptr;
      return;
    }
    std::error_code error;
    work_tree_ = fs::canonical(git.repository_workdir(repository_), error);
  }
  GitIgnores(const GitIgnores&) = delete;
  GitIgnores& operator=(const GitIgnores&) = delete;
  ~GitIgnores() {
    if (repository_) git_->repository_free(repository_);
  }

  bool ignores(const fs::path& entry, bool is_directory) const {
    if (!repository_) return false;
    std::optional<std::string> path = work_tree_path(entry);
    if (!path) return false;
    if (is_directory) *path += '/';
    int ignored = 0;
    return git_->ignore_path_is_ignored(&ignored, repository_, path->c_str()) == 0 && ignored == 1;
  }

  // Takes in the .ignore file of a directory of the work tree, if it has one. A rule added later
  // wins, so the directories above it must have been taken in first.
  void add_ignore_file(const fs::path& directory, std::vector<ReadError>& errors) {
    if (!repository_) return;
    const fs::path file = directory / ".ignore";
    std::error_code error;
    if (!fs::exists(file, error)) return;
    const std::optional<std::string> path = work_tree_path(directory);
    if (!path) return;
    std::string reason;
    const std::optional<std::string> text = read_file(file, reason);
    if (!text) {
      errors.push_back({file.string(), reason});
    } else if (git_->ignore_add_rule(repository_, work_tree_rules(*text, *path).c_str()) != 0) {
      errors.push_back({file.string(), git::last_error(*git_, "libgit2 rejected its rules")});
    }
  }

  // Takes in the .ignore files of the work tree's directories above `directory`, from its root
  // down, which apply to what lies below them as the .gitignore files there do.
  void add_ignore_files_above(const fs::path& directory, std::vector<ReadError>& errors) {
    if (!repository_) return;
    const std::optional<std::string> path = work_tree_path(directory);
    if (!path || *path == ".") return;
    fs::path above = work_tree_;
    add_ignore_file(above, errors);
    for (const fs::path& part : fs::path(*path).parent_path()) {
      above /= part;
      add_ignore_file(above, errors);
    }
  }

 private:
  // Whether a work tree may hold the directory: a ".git" in it or above it, or GIT_DIR set.
  // Starting libgit2 costs more than indexing a small repository, so it starts only then.
  static bool may_be_in_work_tree(const fs::path& directory) {
    if (std::getenv("GIT_DIR")) return true;
    std::error_code error;
    for (fs::path at = fs::absolute(directory, error).lexically_normal();; at = at.parent_path()) {
      if (fs::exists(at / ".git", error)) return true;
      if (at == at.parent_path()) return false;
    }
  }

  // An entry's path from the work tree's root with "/" separators ("." for the root itself), or
  // none outside the work tree.
  std::optional<std::string> work_tree_path(const fs::path& entry) const {
    std::error_code error;
    const fs::path absolute = fs::weakly_canonical(fs::absolute(entry), error);
    std::string path = absolute.lexically_relative(work_tree_).generic_string();
    if (error || path.empty() || path.starts_with("..")) return std::nullopt;
    return path;
  }

  const git::Library* git_ = nullptr;
  std::optional<git::Session> session_;
  git_repository* repository_ = nullptr;
  fs::path work_tree_;
};

bool matches_any(const std::vector<std::string>& globs, const std::string& name,
                 const std::string& path) {
  return std::any_of(globs.begin(), globs.end(), [&](const std::string& glob) {
    const bool on_path = glob.find('/') != std::string::npos;
    return ::fnmatch(glob.c_str(), (on_path ? path : name).c_str(), 0) == 0;
  });
}

// An entry's own type, a symbolic link not followed, as the directory listing gave it where it
// did: a stat per entry was half of what a warm store update of a large tree cost.
fs::file_status own_status(const fs::directory_entry& entry, std::error_code& error) {
  if (entry.is_symlink(error)) return fs::file_status(fs::file_type::symlink);
  if (error) return {};
  const fs::file_type type = entry.is_directory(error)      ? fs::file_type::directory
                             : entry.is_regular_file(error) ? fs::file_type::regular
                                                            : fs::file_type::unknown;
  return fs::file_status(type);
}

// Walks a directory tree, handing each file (a symbolic link not followed is one) and
// directory that the options keep to `visit` with its path from the root. An entry that cannot be
// read is named in the errors and the walk goes on with every other one. Followed links never lead
// into a directory twice.
void walk(const fs::path& root, const SelectionOptions& options, std::vector<ReadError>& errors,
          const std::function<void(const fs::directory_entry&, std::string path,
                                   bool is_directory)>& visit) {
  std::optional<GitIgnores> git;
  if (options.git_ignores) {
    git.emplace(root, errors);
    if (options.ignore_files) git->add_ignore_files_above(root, errors);
  }
  std::set<std::pair<dev_t, ino_t>> visited;
  // Each directory still to walk, with its path from the root ("" for the root itself).
  std::vector<std::pair<fs::path, std::string>> pending{{root, ""}};
  while (!pending.empty()) {
    const auto [directory, from_root] = std::move(pending.back());
    pending.pop_back();
    struct stat identity {};
    if (options.follow && ::stat(directory.c_str(), &identity) == 0 &&
        !visited.insert({identity.st_dev, identity.st_ino}).second) {
      continue;
    }
    std::error_code error;
    fs::directory_iterator it(directory, error);
    if (git && options.ignore_files && !error) git->add_ignore_file(directory, errors);
    for (const fs::directory_iterator end; !error && it != end; it.increment(error)) {
      std::error_code status_error;
      const fs::file_status status =
          options.follow ? it->status(status_error) : own_status(*it, status_error);
      if (status_error) {
        errors.push_back({it->path().string(), status_error.message()});
        continue;
      }
      const bool is_directory = fs::is_directory(status);
      const std::string name = it->path().filename().string();
      std::string path = from_root.empty() ? name : from_root + '/' + name;
      if ((!options.hidden && name.starts_with('.')) ||
          (is_directory && (name == "node_modules" || name == ".git")) ||
          matches_any(options.excludes, name, path) ||
          (git && git->ignores(it->path(), is_directory))) {
        continue;
      }
      if (is_directory) {
        pending.emplace_back(it->path(), path);
        visit(*it, std::move(path), true);
      } else if (fs::is_regular_file(status) || fs::is_symlink(status)) {
        visit(*it, std::move(path), false);
      }
    }
    if (error) errors.push_back({directory.string(), error.message()});
  }
}

// A path relative to the current directory, as the records write it.
std::string from_cwd(const fs::path& location) {
  std::string path = location.lexically_normal().generic_string();
  return path.starts_with("./") ? path.substr(2) : path;
}

// The root of a directory argument's files as their paths are written: the directory itself
// from the current directory when paths are, else the start of every path.
std::string directory_root(const fs::path& directory, const SelectionOptions& options) {
  if (!options.paths_from_cwd) return "";
  std::string root = from_cwd(directory);
  while (root.size() > 1 && root.ends_with('/')) root.pop_back();
  return root == "." ? "" : root;
}

}  // namespace

std::string describe(const ReadError& error) {
  return "cannot read " + error.what + ": " + error.reason;
}

Tree list_tree(const fs::path& root, const SelectionOptions& options) {
  Tree tree;
  walk(root, options, tree.errors,
       [&](const fs::directory_entry&, std::string path, bool is_directory) {
         (is_directory ? tree.directories : tree.files).push_back(std::move(path));
       });
  std::sort(tree.files.begin(), tree.files.end());
  std::sort(tree.directories.begin(), tree.directories.end());
  return tree;
}

Selection select_files(const std::vector<std::string>& arguments, const SelectionOptions& options) {
  Selection selection;
  for (const auto& argument : arguments) {
    if (argument == "-") {
      const std::string path = options.stdin_path.value_or("-");
      selection.files.push_back(
          {"/dev/stdin", path, options.prefix.value_or(fqn_prefix(path)), ""});
      continue;
    }
    const fs::path location(argument);
    std::error_code error;
    const fs::file_status status = fs::status(location, error);
    if (error || !fs::exists(status)) {
      const std::string reason = error ? error.message() : "no such file or directory";
      selection.errors.push_back({argument, reason});
      continue;
    }
    if (fs::is_directory(status)) {
      const std::string root = directory_root(location, options);
      std::vector<SourceFile> found;
      walk(location, options, selection.errors,
           [&](const fs::directory_entry& entry, std::string path, bool is_directory) {
             if (!is_directory && (options.follow || !entry.is_symlink()) &&
                 is_markdown(name_of(path))) {
               std::string prefix = fqn_prefix(path);
               found.push_back({entry.path(), std::move(path), std::move(prefix), root});
             }
           });
      // Sorted by their places rather than moved about: a file is a large value.
      std::vector<std::size_t> order(found.size());
      std::iota(order.begin(), order.end(), 0);
      std::sort(order.begin(), order.end(),
                [&](std::size_t a, std::size_t b) { return found[a].path < found[b].path; });
      for (const std::size_t index : order) {
        SourceFile& file = found[index];
        if (options.paths_from_cwd) {
          file.path = from_cwd(file.location);
          file.prefix = fqn_prefix(file.path);
        }
        selection.files.push_back(std::move(file));
      }
    } else {
      // A file argument's folder is its root.
      const std::string path =
          options.paths_from_cwd ? from_cwd(location) : location.filename().string();
      selection.files.push_back({location, path, options.prefix.value_or(fqn_prefix(path)),
                                 std::string(parent_of(path))});
    }
  }
  return selection;
}

namespace {

// Reads to the end of an open file. Its size as the file system gives it is only a first
// guess: the file may change while it is read, or be a pipe.
std::optional<std::string> read_all(int descriptor, std::string& reason) {
  struct stat status {};
  const bool sized = ::fstat(descriptor, &status) == 0 && status.st_size > 0;
  std::string bytes(sized ? static_cast<std::size_t>(status.st_size) + 1 : 64 * 1024, '\0');
  std::size_t filled = 0;
  for (;;) {
    if (filled == bytes.size()) bytes.resize(2 * bytes.size());
    const ssize_t count = ::read(descriptor, bytes.data() + filled, bytes.size() - filled);
    if (count == 0) break;
    if (count > 0) {
      filled += static_cast<std::size_t>(count);
    } else if (errno != EINTR) {
      reason = std::strerror(errno);
      return std::nullopt;
    }
  }
  bytes.resize(filled);
  return bytes;
}

}  // namespace

std::optional<std::string> read_file(const fs::path& location, std::string& reason) {
  const int descriptor = ::open(location.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor < 0) {
    reason = std::strerror(errno);
    return std::nullopt;
  }
  auto bytes = read_all(descriptor, reason);
  ::close(descriptor);
  return bytes;
}

}  // namespace tarnwick::repo
