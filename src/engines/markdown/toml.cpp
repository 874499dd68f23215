// TOML front matter: no TOML parser, only the lines that set a field to a one-line string.
#include "engines/markdown/toml.hpp"

#include <algorithm>
#include <optional>

#include "text/utf8.hpp"

using namespace tarnwick::text;

namespace tarnwick::engines::markdown::detail {

constinit const Regex TOML_FIELD{[] {
  return std::string(R"re(^\s*()re") + std::string(TITLE) + "|" + std::string(DESCRIPTION) +
         R"re()\s*=\s*("(?:[^"\\]|\\.)*"|'[^']*')\s*(?:#.*)?$)re";
}};
constinit const Regex TOML_TABLE{R"re(^\s*\[)re"};

namespace {

std::optional<char32_t> hex_digit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return std::nullopt;
}

// The four hexadecimal digits of a \u escape that starts at `at`.
std::optional<char32_t> escape_code(std::string_view text, std::size_t at) {
  if (text.substr(at, 2) != "\\u" || text.size() < at + 6) return std::nullopt;
  char32_t code = 0;
  for (std::size_t i = at + 2; i < at + 6; ++i) {
    const auto digit = hex_digit(text[i]);
    if (!digit) return std::nullopt;
    code = code * 16 + *digit;
  }
  return code;
}

bool is_high_surrogate(char32_t c) {
  return c >= 0xD800 && c <= 0xDBFF;
}
bool is_low_surrogate(char32_t c) {
  return c >= 0xDC00 && c <= 0xDFFF;
}

// The character of the \u escape at `pos`, joined with a following low surrogate escape when
// it is a high one; moves `pos` past what it read. A lone surrogate is returned as it is.
std::optional<char32_t> unicode_escape(std::string_view text, std::size_t& pos) {
  const auto code = escape_code(text, pos);
  if (!code) return std::nullopt;
  pos += 6;
  if (!is_high_surrogate(*code)) return code;
  const auto low = escape_code(text, pos);
  if (!low || !is_low_surrogate(*low)) return code;
  pos += 6;
  return 0x10000 + ((*code - 0xD800) << 10) + (*low - 0xDC00);
}

std::optional<char> short_escape(char c) {
  switch (c) {
    case '"':
      return '"';
    case '\\':
      return '\\';
    case '/':
      return '/';
    case 'b':
      return '\b';
    case 'f':
      return '\f';
    case 'n':
      return '\n';
    case 'r':
      return '\r';
    case 't':
      return '\t';
    default:
      return std::nullopt;
  }
}

// A JSON string, quotes included, as the text it stands for; none when it is not one.
std::optional<std::string> json_string(std::string_view literal) {
  if (literal.size() < 2 || literal.front() != '"' || literal.back() != '"') return std::nullopt;
  const std::string_view inner = literal.substr(1, literal.size() - 2);
  std::string decoded;
  for (std::size_t pos = 0; pos < inner.size();) {
    const char c = inner[pos];
    if (c == '"' || static_cast<unsigned char>(c) < 0x20) return std::nullopt;
    if (c != '\\') {
      decoded += c;
      ++pos;
      continue;
    }
    const char kind = pos + 1 < inner.size() ? inner[pos + 1] : '\0';
    if (kind == 'u') {
      const auto code = unicode_escape(inner, pos);
      if (!code) return std::nullopt;
      append_utf8(decoded, *code);  // a lone surrogate becomes U+FFFD
      continue;
    }
    const auto escaped = short_escape(kind);
    if (!escaped) return std::nullopt;
    decoded += *escaped;
    pos += 2;
  }
  return decoded;
}

}  // namespace

std::string toml_string(std::string_view literal) {
  const std::string_view between =
      literal.size() >= 2 ? literal.substr(1, literal.size() - 2) : std::string_view{};
  if (literal.starts_with('\'')) return std::string(between);
  if (auto decoded = json_string(literal)) return *std::move(decoded);
  return std::string(between);
}

Fields toml_fields(std::string_view body) {
  Fields fields;
  for (std::size_t start = 0; start <= body.size();) {
    const std::size_t end = std::min(body.find('\n', start), body.size());
    const std::string_view line = body.substr(start, end - start);
    if (TOML_TABLE.search(line)) break;
    if (const auto found = TOML_FIELD.search(line)) {
      fields.insert_or_assign(std::string(found->group(line, 1)),
                              toml_string(found->group(line, 2)));
    }
    start = end + 1;
  }
  return fields;
}

}  // namespace tarnwick::engines::markdown::detail
