#include "lsp/server.hpp"

#include "lsp/outline.hpp"
#include "lsp/repository.hpp"
#include "lsp/session.hpp"
#include "tarnwick/version.hpp"

namespace tarnwick::lsp {

int serve(int input, int output) {
  Session session(input, output, {"tarnwick-md", TARNWICK_MARKDOWN_VERSION, "tarnwick"});
  const OutlineFeature outline(session);
  const RepositoryFeature repository(session);
  return session.run();
}

}  // namespace tarnwick::lsp
