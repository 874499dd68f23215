// The features that know the whole repository: where links lead and who links here, renames of
// headings, labels and files, workspace symbols, completion, hover, document links, and the
// link check's problems as diagnostics with their quick fixes. Each workspace folder is read
// once in the background; then every open document is read again as it is typed, and only the
// documents a change affects are checked again.
#pragma once

#include <memory>

#include "lsp/session.hpp"

namespace tarnwick::lsp {

class RepositoryFeature {
 public:
  explicit RepositoryFeature(Session& session);  // the session outlives the feature
  ~RepositoryFeature();
  RepositoryFeature(const RepositoryFeature&) = delete;
  RepositoryFeature& operator=(const RepositoryFeature&) = delete;

 private:
  struct State;
  std::unique_ptr<State> state_;  // main thread only
};

}  // namespace tarnwick::lsp
