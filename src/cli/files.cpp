#include "cli/files.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>

#include "tarnwick/markdown.hpp"

namespace tarnwick::cli {

namespace fs = std::filesystem;

namespace {

bool ends_with_ascii_nocase(std::string_view name, std::string_view suffix) {
  if (name.size() < suffix.size()) return false;
  return std::equal(suffix.begin(), suffix.end(), name.end() - suffix.size(), [](char a, char b) {
    return a == (b >= 'A' && b <= 'Z' ? static_cast<char>(b - 'A' + 'a') : b);
  });
}

bool is_markdown(std::string_view name) {
  return ends_with_ascii_nocase(name, ".md") || ends_with_ascii_nocase(name, ".markdown");
}

bool is_skipped(const fs::path& entry, bool is_directory) {
  const std::string name = entry.filename().string();
  return name.starts_with('.') || (is_directory && name == "node_modules");
}

// Walks a directory tree without following links. An entry that cannot be read is named in
// the errors and the walk goes on with every other one.
void walk(const fs::path& root, Selection& selection, std::vector<SourceFile>& found) {
  std::vector<fs::path> pending{root};
  while (!pending.empty()) {
    const fs::path directory = std::move(pending.back());
    pending.pop_back();
    std::error_code error;
    fs::directory_iterator it(directory, error);
    for (const fs::directory_iterator end; !error && it != end; it.increment(error)) {
      std::error_code status_error;
      const fs::file_status status = it->symlink_status(status_error);
      if (status_error) {
        selection.errors.push_back({it->path().string(), status_error.message()});
        continue;
      }
      const bool is_directory = fs::is_directory(status);
      if (is_skipped(it->path(), is_directory)) continue;
      if (is_directory) {
        pending.push_back(it->path());
      } else if (fs::is_regular_file(status) && is_markdown(it->path().filename().string())) {
        const std::string path = it->path().lexically_relative(root).generic_string();
        found.push_back({it->path(), path, fqn_prefix(path)});
      }
    }
    if (error) selection.errors.push_back({directory.string(), error.message()});
  }
}

}  // namespace

Selection select_files(const std::vector<std::string>& arguments,
                       const std::optional<std::string>& prefix) {
  Selection selection;
  for (const auto& argument : arguments) {
    const fs::path location(argument);
    std::error_code error;
    const fs::file_status status = fs::status(location, error);
    if (error || !fs::exists(status)) {
      const std::string reason = error ? error.message() : "no such file or directory";
      selection.errors.push_back({argument, reason});
      continue;
    }
    if (fs::is_directory(status)) {
      std::vector<SourceFile> found;
      walk(location, selection, found);
      std::sort(found.begin(), found.end(),
                [](const SourceFile& a, const SourceFile& b) { return a.path < b.path; });
      std::move(found.begin(), found.end(), std::back_inserter(selection.files));
    } else {
      const std::string path = location.filename().string();
      selection.files.push_back({location, path, prefix.value_or(fqn_prefix(path))});
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

}  // namespace tarnwick::cli
