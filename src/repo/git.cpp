#include "repo/git.hpp"

#include <dlfcn.h>

namespace tarnwick::repo::git {

namespace {

// The library this program was built against, by its ABI version.
constexpr const char* SONAME = "libgit2.so." LIBGIT2_SOVERSION;

Library load() {
  Library git;
  // Never closed: a library that registers thread-local state and atexit work must outlive them.
  void* handle = ::dlopen(SONAME, RTLD_NOW | RTLD_LOCAL);
  if (!handle) {
    const char* reason = ::dlerror();
    git.failure = reason ? reason : std::string("cannot load ") + SONAME;
    return git;
  }
#define TARNWICK_GIT_FUNCTION(name)                                               \
  git.name = reinterpret_cast<decltype(git.name)>(::dlsym(handle, "git_" #name)); \
  if (!git.name) {                                                                \
    git.failure = std::string(SONAME) + " has no git_" #name;                     \
    return git;                                                                   \
  }
  TARNWICK_GIT_FUNCTIONS(TARNWICK_GIT_FUNCTION)
#undef TARNWICK_GIT_FUNCTION
  return git;
}

}  // namespace

const Library& library() {
  static const Library loaded = load();
  return loaded;
}

std::string last_error(const Library& git, std::string_view otherwise) {
  const git_error* error = git.error_last();
  return error && error->message ? std::string(error->message) : std::string(otherwise);
}

}  // namespace tarnwick::repo::git
