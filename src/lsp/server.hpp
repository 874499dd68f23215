// The language server of tarnwick-md: a session with every feature registered.
#pragma once

namespace tarnwick::lsp {

// Serves one client over `input` and `output` until it exits, then ends the process with the
// session's exit status.
[[noreturn]] void serve(int input, int output);

}  // namespace tarnwick::lsp
