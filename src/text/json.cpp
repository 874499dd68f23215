#include "text/json.hpp"

#include "text/utf8.hpp"

namespace tarnwick::text {

namespace {

bool needs_escape(unsigned char byte) {
  return byte < 0x20 || byte == '"' || byte == '\\';
}

void append_escape(std::string& out, unsigned char byte) {
  switch (byte) {
    case '"':
      out += "\\\"";
      return;
    case '\\':
      out += "\\\\";
      return;
    case '\b':
      out += "\\b";
      return;
    case '\f':
      out += "\\f";
      return;
    case '\n':
      out += "\\n";
      return;
    case '\r':
      out += "\\r";
      return;
    case '\t':
      out += "\\t";
      return;
    default:
      break;
  }
  constexpr std::string_view HEX = "0123456789abcdef";
  out += "\\u00";
  out += HEX[byte >> 4];
  out += HEX[byte & 0xF];
}

}  // namespace

void append_json_string(std::string& out, std::string_view text) {
  out += '"';
  std::size_t copied = 0, pos = 0;
  while (pos < text.size()) {
    const auto byte = static_cast<unsigned char>(text[pos]);
    if (byte < 0x80) {
      if (!needs_escape(byte)) {
        ++pos;
        continue;
      }
      out.append(text, copied, pos - copied);
      append_escape(out, byte);
      ++pos;
    } else {
      const int length = sequence_length(text, pos);
      if (length > 0) {
        pos += static_cast<std::size_t>(length);
        continue;
      }
      out.append(text, copied, pos - copied);
      append_utf8(out, REPLACEMENT_CHARACTER);
      pos += static_cast<std::size_t>(-length);
    }
    copied = pos;
  }
  out.append(text, copied);
  out += '"';
}

}  // namespace tarnwick::text
