#include "gfm/html.hpp"

#include <charconv>
#include <optional>
#include <utility>

#include "text/utf8.hpp"

namespace tarnwick::gfm {

namespace {

bool is_space(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f';
}

bool is_alpha(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

// The character reference at `pos` ("&amp;", "&#39;", "&#x2F;"), moving `pos` past it; the
// names are those an attribute of a link or an anchor plausibly holds.
std::optional<std::string> character_reference(std::string_view text, std::size_t& pos) {
  const std::size_t semicolon = text.find(';', pos);
  if (semicolon == std::string_view::npos || semicolon - pos > 10) return std::nullopt;
  const std::string_view name = text.substr(pos + 1, semicolon - pos - 1);
  std::string decoded;
  if (name.starts_with('#') && name.size() > 1) {
    const bool hex = name[1] == 'x' || name[1] == 'X';
    const std::string_view digits = name.substr(hex ? 2 : 1);
    std::uint32_t code_point = 0;
    const auto [end, error] =
        std::from_chars(digits.data(), digits.data() + digits.size(), code_point, hex ? 16 : 10);
    if (error != std::errc() || end != digits.data() + digits.size() || digits.empty()) {
      return std::nullopt;
    }
    text::append_utf8(decoded, code_point == 0 || code_point > 0x10FFFF
                                   ? text::REPLACEMENT_CHARACTER
                                   : static_cast<char32_t>(code_point));
  } else if (name == "amp") {
    decoded = "&";
  } else if (name == "lt") {
    decoded = "<";
  } else if (name == "gt") {
    decoded = ">";
  } else if (name == "quot") {
    decoded = "\"";
  } else if (name == "apos") {
    decoded = "'";
  } else {
    return std::nullopt;
  }
  pos = semicolon + 1;
  return decoded;
}

std::string decode_references(std::string_view value) {
  std::string decoded;
  for (std::size_t pos = 0; pos < value.size();) {
    if (value[pos] == '&') {
      if (auto reference = character_reference(value, pos)) {
        decoded += *reference;
        continue;
      }
    }
    decoded += value[pos++];
  }
  return decoded;
}

// Skips past the end of a construct that holds no attributes, or returns false.
bool skip_markup(std::string_view html, std::size_t& pos) {
  const std::string_view rest = html.substr(pos);
  std::string_view end;
  if (rest.starts_with("<!--")) {
    end = "-->";
  } else if (rest.starts_with("<![CDATA[")) {
    end = "]]>";
  } else if (rest.starts_with("<!") || rest.starts_with("</")) {
    end = ">";
  } else if (rest.starts_with("<?")) {
    end = "?>";
  } else {
    return false;
  }
  const std::size_t found = html.find(end, pos + 2);
  pos = found == std::string_view::npos ? html.size() : found + end.size();
  return true;
}

}  // namespace

void for_each_attribute(std::string_view html,
                        const std::function<void(const HtmlAttribute&)>& visit) {
  std::size_t pos = 0;
  while ((pos = html.find('<', pos)) != std::string_view::npos) {
    if (skip_markup(html, pos)) continue;
    if (pos + 1 >= html.size() || !is_alpha(html[pos + 1])) {
      ++pos;
      continue;
    }
    pos += 1;
    while (pos < html.size() &&
           (is_alpha(html[pos]) || html[pos] == '-' || (html[pos] >= '0' && html[pos] <= '9'))) {
      ++pos;
    }
    for (;;) {
      while (pos < html.size() && is_space(html[pos])) ++pos;
      if (pos >= html.size() || html[pos] == '>' || html[pos] == '<') break;
      if (html[pos] == '/') {
        ++pos;
        continue;
      }
      const std::size_t name_start = pos;
      while (pos < html.size() && !is_space(html[pos]) && html[pos] != '=' && html[pos] != '>' &&
             html[pos] != '/' && html[pos] != '<') {
        ++pos;
      }
      std::string name(html.substr(name_start, pos - name_start));
      for (char& c : name) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
      }
      std::size_t after_name = pos;
      while (after_name < html.size() && is_space(html[after_name])) ++after_name;
      std::string_view value;
      if (after_name < html.size() && html[after_name] == '=') {
        pos = after_name + 1;
        while (pos < html.size() && is_space(html[pos])) ++pos;
        if (pos < html.size() && (html[pos] == '"' || html[pos] == '\'')) {
          const std::size_t close = html.find(html[pos], pos + 1);
          const std::size_t end = close == std::string_view::npos ? html.size() : close;
          value = html.substr(pos + 1, end - pos - 1);
          pos = std::min(end + 1, html.size());
        } else {
          const std::size_t start = pos;
          while (pos < html.size() && !is_space(html[pos]) && html[pos] != '>') ++pos;
          value = html.substr(start, pos - start);
        }
      }
      if (!name.empty()) visit({std::move(name), decode_references(value), value, name_start});
    }
  }
}

}  // namespace tarnwick::gfm
