#include "text/utf8.hpp"

namespace tarnwick::text {

namespace {

bool is_continuation(unsigned char byte) {
  return (byte & 0xC0) == 0x80;
}

}  // namespace

// The bounds of the second byte follow the table of well-formed byte sequences, so surrogates
// and overlong forms are ill-formed.
int sequence_length(std::string_view bytes, std::size_t pos) {
  const auto lead = static_cast<unsigned char>(bytes[pos]);
  if (lead < 0x80) return 1;
  int length = 0;
  unsigned char low = 0x80, high = 0xBF;
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    if (lead == 0xE0) low = 0xA0;
    if (lead == 0xED) high = 0x9F;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    if (lead == 0xF0) low = 0x90;
    if (lead == 0xF4) high = 0x8F;
  } else {
    return -1;
  }
  int seen = 1;
  for (; seen < length; ++seen) {
    if (pos + seen >= bytes.size()) return -seen;
    const auto byte = static_cast<unsigned char>(bytes[pos + seen]);
    const bool fits = seen == 1 ? (byte >= low && byte <= high) : is_continuation(byte);
    if (!fits) return -seen;
  }
  return length;
}

std::string decode_utf8(std::string_view bytes) {
  std::string out;
  out.reserve(bytes.size());
  // Well-formed bytes are copied a run at a time; only ill-formed subparts stop a run.
  std::size_t run = 0, pos = 0;
  while (pos < bytes.size()) {
    if (static_cast<unsigned char>(bytes[pos]) < 0x80) {
      ++pos;
      continue;
    }
    const int length = sequence_length(bytes, pos);
    if (length > 0) {
      pos += length;
      continue;
    }
    out.append(bytes.substr(run, pos - run));
    append_utf8(out, REPLACEMENT_CHARACTER);
    pos += -length;
    run = pos;
  }
  out.append(bytes.substr(run));
  return out;
}

void append_utf8(std::string& out, char32_t cp) {
  if ((cp >= 0xD800 && cp <= 0xDFFF) || cp > 0x10FFFF) cp = REPLACEMENT_CHARACTER;
  if (cp < 0x80) {
    out += static_cast<char>(cp);
  } else if (cp < 0x800) {
    out += static_cast<char>(0xC0 | (cp >> 6));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else if (cp < 0x10000) {
    out += static_cast<char>(0xE0 | (cp >> 12));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (cp >> 18));
    out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  }
}

char32_t next_multibyte_code_point(std::string_view text, std::size_t& pos) {
  const auto lead = static_cast<unsigned char>(text[pos++]);
  const int extra = lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : 1;
  char32_t cp = lead & (0x3F >> extra);
  for (int i = 0; i < extra && pos < text.size(); ++i) {
    cp = (cp << 6) | (static_cast<unsigned char>(text[pos++]) & 0x3F);
  }
  return cp;
}

char32_t previous_code_point(std::string_view text, std::size_t& pos) {
  std::size_t start = pos - 1;
  while (start > 0 && is_continuation(static_cast<unsigned char>(text[start]))) --start;
  std::size_t cursor = start;
  pos = start;
  return next_code_point(text, cursor);
}

std::size_t code_point_count(std::string_view text) {
  std::size_t count = 0;
  for (const char c : text) count += !is_continuation(static_cast<unsigned char>(c));
  return count;
}

std::string_view first_code_points(std::string_view text, std::size_t count) {
  std::size_t pos = 0;
  for (; pos < text.size(); ++pos) {
    if (!is_continuation(static_cast<unsigned char>(text[pos])) && count-- == 0) break;
  }
  return text.substr(0, pos);
}

std::string shortened(std::string_view text, std::size_t max_length) {
  constexpr std::string_view CUT_MARKER = "...";
  if (code_point_count(text) <= max_length) return std::string(text);
  return std::string(first_code_points(text, max_length - CUT_MARKER.size())) +
         std::string(CUT_MARKER);
}

}  // namespace tarnwick::text
