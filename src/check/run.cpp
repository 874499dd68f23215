#include "check/run.hpp"

#include <algorithm>
#include <filesystem>
#include <map>
#include <ostream>
#include <unordered_set>

#include "check/changes.hpp"
#include "cli/output.hpp"

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

std::string with_thousands(std::size_t number) {
  const std::string digits = std::to_string(number);
  std::string grouped;
  for (std::size_t at = 0; at < digits.size(); ++at) {
    if (at > 0 && (digits.size() - at) % 3 == 0) grouped += ',';
    grouped += digits[at];
  }
  return grouped;
}

void add_errors(const std::vector<cli::ReadError>& errors, std::vector<std::string>& messages) {
  for (const cli::ReadError& error : errors) {
    messages.push_back("cannot read " + error.what + ": " + error.reason);
  }
}

}  // namespace

CheckResult find_problems(const CheckOptions& options) {
  CheckResult result;
  for (const Group& group : groups_of(options)) {
    cli::SelectionOptions everything = options.selection;
    everything.hidden = true;
    everything.excludes.clear();
    everything.ignore_files = false;  // they hide files from tools, not from the repository
    const cli::Tree tree = cli::list_tree(group.root, everything);
    add_errors(tree.errors, result.errors);
    const cli::Selection selection = cli::select_files(group.paths, options.selection);
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
    for (const cli::SourceFile& file : selection.files) {
      if (auto path = from_root(group.root, file.location)) {
        sources.push_back(std::move(*path));
      } else {
        result.errors.push_back(file.location.string() + " is not under the root " +
                                group.root.string() + " (name its repository with --root)");
      }
    }
    const Repository repository(group.root, tree, sources, options.wiki, options.jobs);
    add_errors(repository.errors(), result.errors);
    for (const std::string& path : sources) {
      ++result.files;
      for (Problem& problem : repository.check_file(path, result.links)) {
        if (std::find(options.ignored.begin(), options.ignored.end(), problem.code) !=
            options.ignored.end()) {
          continue;
        }
        if (only_changed && !changed.contains(problem.path) &&
            !changed.contains(problem.resolved)) {
          continue;
        }
        repository.suggest(problem);
        problem.path = shown(group.root, problem.path);
        result.problems.push_back(std::move(problem));
      }
    }
  }
  return result;
}

int run_check(const CheckOptions& options, std::ostream& out, std::ostream& err) {
  const CheckResult result = find_problems(options);
  for (const std::string& error : result.errors) err << "tarnwick-md: " << error << "\n";
  if (result.stopped) {
    err << "tarnwick-md: " << *result.stopped << "\n";
    return 2;
  }
  const std::vector<Problem>& reported = result.problems;
  const std::size_t files = result.files, links = result.links;
  out << format_problems(reported, options.format);
  if (!cli::flushed(out, err)) return 2;

  std::map<std::string_view, std::size_t> by_code;
  for (const Problem& problem : reported) ++by_code[info(problem.code).name];
  err << "tarnwick-md: " << with_thousands(files) << (files == 1 ? " file, " : " files, ")
      << with_thousands(links) << (links == 1 ? " link" : " links") << " checked: ";
  if (reported.empty()) {
    err << "no problems\n";
  } else {
    err << with_thousands(reported.size()) << (reported.size() == 1 ? " problem (" : " problems (");
    for (auto it = by_code.begin(); it != by_code.end(); ++it) {
      err << (it == by_code.begin() ? "" : ", ") << it->second << " " << it->first;
    }
    err << ")\n";
  }
  if (!result.errors.empty()) return 2;
  return reported.empty() ? 0 : 1;
}

}  // namespace tarnwick::check
