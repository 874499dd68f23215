#include "cli/output.hpp"

#include <cerrno>
#include <cstring>
#include <ostream>

namespace tarnwick::cli {

bool flushed(std::ostream& out, std::ostream& err) {
  if (out.flush()) return true;
  // The stream keeps no reason; errno still holds the failed write's.
  const int reason = errno;
  err << "tarnwick-md: write error: " << (reason ? std::strerror(reason) : "output failed") << "\n";
  return false;
}

}  // namespace tarnwick::cli
