#include "engines/markdown/front_matter.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <iterator>

#include "engines/markdown/inline_text.hpp"
#include "engines/markdown/node.hpp"
#include "engines/markdown/toml.hpp"
#include "engines/markdown/yaml.hpp"
#include "text/utf8.hpp"

using namespace tarnwick::text;

namespace tarnwick::engines::markdown::detail {

namespace {

constexpr std::string_view TOO_LONG = "The front matter of {} is too long to read ({} chars)";

// The lines between the two delimiter lines; trailing line feeds never make a last line.
std::string_view body_of(std::string_view text) {
  const std::size_t end = text.find_last_not_of('\n');
  if (end == std::string_view::npos) return {};
  text = text.substr(0, end + 1);
  const std::size_t first = text.find('\n');
  const std::size_t last = text.rfind('\n');
  if (first == std::string_view::npos || first == last) return {};
  return text.substr(first + 1, last - first - 1);
}

// The shortest decimal that reads back as `number`, always with a fraction or an exponent;
// the exponent form below 1e-4 and from 1e16 on, with a signed exponent of two digits or more.
std::string float_text(double number) {
  if (std::isnan(number)) return "nan";
  if (std::isinf(number)) return number < 0 ? "-inf" : "inf";
  char buffer[32];
  const char* end =
      std::to_chars(std::begin(buffer), std::end(buffer), number, std::chars_format::scientific)
          .ptr;
  const std::string_view written(buffer, end - buffer);  // [-]d[.ddd]e(+|-)dd
  const bool negative = written.front() == '-';
  const std::size_t e = written.find('e');
  std::string digits;
  for (const char c : written.substr(negative, e - negative)) {
    if (c != '.') digits += c;
  }
  int exponent = 0;
  std::from_chars(written.data() + e + 2, end, exponent);
  if (written[e + 1] == '-') exponent = -exponent;

  std::string text(negative ? "-" : "");
  if (exponent < -4 || exponent >= 16) {
    text.append(digits, 0, 1);
    if (digits.size() > 1) text.append(".").append(digits, 1);
    fmt::format_to(std::back_inserter(text), "e{}{:02}", exponent < 0 ? '-' : '+',
                   std::abs(exponent));
  } else if (exponent < 0) {
    text.append("0.").append(-exponent - 1, '0').append(digits);
  } else {
    const std::size_t whole = exponent + 1;
    digits.resize(std::max(digits.size(), whole), '0');
    text.append(digits, 0, whole)
        .append(".")
        .append(whole < digits.size() ? digits.substr(whole) : "0");
  }
  return text;
}

// The text of a value that reads as text: text itself, and numbers.
struct AsText {
  std::optional<std::string> operator()(const std::string& text) const { return text; }
  std::optional<std::string> operator()(const Integer& integer) const { return integer.decimal; }
  std::optional<std::string> operator()(double number) const { return float_text(number); }
  // Booleans are refused although they are integers in some value models.
  std::optional<std::string> operator()(const auto&) const { return std::nullopt; }
};

}  // namespace

std::optional<std::string> field(const Fields& fields, std::string_view key) {
  const auto found = fields.find(key);
  if (found == fields.end()) return std::nullopt;
  const std::optional<std::string> written = std::visit(AsText{}, found->second);
  if (!written) return std::nullopt;
  std::string plain = plain_text(*written);
  if (plain.empty()) return std::nullopt;
  return plain;
}

FrontMatter front_matter(Node node, std::string_view prefix, const Logger& log) {
  const std::string whole = text(node);
  const std::string_view body = body_of(whole);
  const std::size_t length = code_point_count(body);
  if (length > MAX_FRONT_MATTER_LENGTH) {
    log.debug(fmt::format(fmt::runtime(TOO_LONG), prefix, length));
    return {};
  }
  const Fields fields =
      type(node) == YAML_FRONT_MATTER ? yaml_fields(body, prefix, log) : toml_fields(body);
  return FrontMatter{field(fields, TITLE), field(fields, DESCRIPTION)};
}

}  // namespace tarnwick::engines::markdown::detail
