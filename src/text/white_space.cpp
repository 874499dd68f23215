#include "text/white_space.hpp"

#include <fmt/format.h>

#include <cstdint>

#include "text/utf8.hpp"

namespace tarnwick::text {

std::string white_space_class() {
  std::string body;
  for (const auto [first, last] : WHITE_SPACE) {
    body += fmt::format("\\x{{{:x}}}", static_cast<std::uint32_t>(first));
    if (last != first) body += fmt::format("-\\x{{{:x}}}", static_cast<std::uint32_t>(last));
  }
  return body;
}

namespace {

// Where the run from `pos` of white space, or of other code points, ends.
std::size_t end_of_run(std::string_view text, std::size_t pos, bool white_space) {
  while (pos < text.size()) {
    std::size_t next = pos;
    if (is_white_space(next_code_point(text, next)) != white_space) break;
    pos = next;
  }
  return pos;
}

}  // namespace

std::string_view strip(std::string_view text) {
  const std::size_t begin = end_of_run(text, 0, true);
  std::size_t end = text.size();
  while (end > begin) {
    std::size_t previous = end;
    if (!is_white_space(previous_code_point(text, previous))) break;
    end = previous;
  }
  return text.substr(begin, end - begin);
}

bool is_blank(std::string_view line) {
  for (const char c : line) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= 0x80) return strip(decode_utf8(line)).empty();
    if (!is_white_space(byte)) return false;
  }
  return true;
}

std::string collapse_white_space(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t word = end_of_run(text, 0, true); word < text.size();) {
    const std::size_t end = end_of_run(text, word, false);
    if (!out.empty()) out += ' ';
    out.append(text.substr(word, end - word));
    word = end_of_run(text, end, true);
  }
  return out;
}

}  // namespace tarnwick::text
