#include "cli/output.hpp"

#include <fmt/format.h>

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

std::string printable(std::string_view text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    if (byte < 0x20 || byte == 0x7F) {
      out += fmt::format("\\x{:02x}", byte);
    } else if (byte == 0xC2 && i + 1 < text.size() &&
               static_cast<unsigned char>(text[i + 1]) >= 0x80 &&
               static_cast<unsigned char>(text[i + 1]) <= 0x9F) {
      out += fmt::format("\\u{{{:x}}}", static_cast<unsigned char>(text[++i]));
    } else {
      out += text[i];
    }
  }
  return out;
}

}  // namespace tarnwick::cli
