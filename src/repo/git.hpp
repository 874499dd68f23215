// libgit2, loaded the first time a command meets a git work tree. Linked in, the library and
// the dozen it pulls in (TLS, SSH, Kerberos) would cost every start of every command some 5 ms of
// loading and relocation, a query that never reads an ignore rule included.
#pragma once

#include <git2.h>

#include <string>
#include <string_view>

namespace tarnwick::repo::git {

// The functions of libgit2 this program calls, each under its name without "git_".
// clang-format off
#define TARNWICK_GIT_FUNCTIONS(X)                                                     \
  X(libgit2_init) X(libgit2_shutdown) X(error_last)                                   \
  X(repository_open_ext) X(repository_is_bare) X(repository_workdir) X(repository_free) \
  X(ignore_add_rule) X(ignore_path_is_ignored)                                        \
  X(revparse_single) X(object_peel) X(object_free)                                    \
  X(diff_tree_to_workdir_with_index) X(diff_num_deltas) X(diff_get_delta) X(diff_free)
// clang-format on

struct Library {
#define TARNWICK_GIT_FUNCTION(name) decltype(&::git_##name) name = nullptr;
  TARNWICK_GIT_FUNCTIONS(TARNWICK_GIT_FUNCTION)
#undef TARNWICK_GIT_FUNCTION
  // Why the library could not be loaded, empty when every function above was found.
  std::string failure;
};

// The library, loaded by the first call for the rest of the process; safe from any thread.
const Library& library();

// The last error libgit2 reported on this thread, or `otherwise`.
std::string last_error(const Library& git, std::string_view otherwise);

// libgit2 initialised while a session lives; libgit2 counts them, so they may overlap.
class Session {
 public:
  explicit Session(const Library& git) : git_(git) { git_.libgit2_init(); }
  ~Session() { git_.libgit2_shutdown(); }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

 private:
  const Library& git_;
};

}  // namespace tarnwick::repo::git
