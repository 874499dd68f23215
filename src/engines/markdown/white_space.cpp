#include "engines/markdown/white_space.hpp"

#include "engines/markdown/utf8.hpp"

namespace tarnwick::engines::markdown::detail {

bool is_white_space(char32_t c) {
  if (c < 0x80) return (c >= 0x09 && c <= 0x0D) || (c >= 0x1C && c <= 0x20);
  return c == 0x85 || c == 0xA0 || c == 0x1680 || (c >= 0x2000 && c <= 0x200A) || c == 0x2028 ||
         c == 0x2029 || c == 0x202F || c == 0x205F || c == 0x3000;
}

std::string_view strip(std::string_view text) {
  std::size_t begin = 0;
  while (begin < text.size()) {
    std::size_t next = begin;
    if (!is_white_space(next_code_point(text, next))) break;
    begin = next;
  }
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
  bool pending_space = false;
  std::size_t pos = 0;
  while (pos < text.size()) {
    const std::size_t start = pos;
    if (is_white_space(next_code_point(text, pos))) {
      pending_space = !out.empty();
      continue;
    }
    if (pending_space) out += ' ';
    pending_space = false;
    out.append(text.substr(start, pos - start));
  }
  return out;
}

}  // namespace tarnwick::engines::markdown::detail
