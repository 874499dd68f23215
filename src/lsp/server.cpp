#include "lsp/server.hpp"

#include <cstdlib>

#include "lsp/outline.hpp"
#include "lsp/repository.hpp"
#include "lsp/session.hpp"
#include "tarnwick/version.hpp"

namespace tarnwick::lsp {

void serve(int input, int output) {
  Session session(input, output, {"tarnwick-md", TARNWICK_MARKDOWN_VERSION, "tarnwick"});
  const OutlineFeature outline(session);
  const RepositoryFeature repository(session);
  const int status = session.run();
  // The process ends with the session, as the protocol's exit asks: a background job, such as
  // the reading of a large folder, is not waited for.
  std::_Exit(status);
}

}  // namespace tarnwick::lsp
