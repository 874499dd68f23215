// YAML front matter. libyaml's parser gives the events; they are composed into a graph of
// nodes in which an alias is one more reference to its anchor's node, so nothing is ever
// copied. Then every node that safe loading would construct is typed and checked, and the two
// fields are looked up in the top mapping through its merge keys.
#include "engines/markdown/yaml.hpp"

#include <fmt/format.h>
#include <yaml.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <limits>
#include <new>
#include <optional>
#include <string>
#include <unordered_map>
#include <variant>
#include <vector>

#include "engines/markdown/regex.hpp"
#include "text/white_space.hpp"

using namespace tarnwick::text;

namespace tarnwick::engines::markdown::detail {

namespace {

constexpr std::string_view NOT_YAML = "The front matter of {} is not YAML: {}";

// ---------------------------------------------------------------------------------------------
// Natural numbers of any size, for integers written in any base and printed in decimal.

// Base 10^9 limbs, least significant first; zero has none.
using Limbs = std::vector<std::uint32_t>;
constexpr std::uint64_t LIMB = 1'000'000'000;

// n = n * factor + addend, for factor * LIMB and addend within 64 bits.
void multiply_add(Limbs& n, std::uint64_t factor, std::uint64_t addend) {
  std::uint64_t carry = addend;
  for (auto& limb : n) {
    const std::uint64_t product = limb * factor + carry;
    limb = static_cast<std::uint32_t>(product % LIMB);
    carry = product / LIMB;
  }
  for (; carry > 0; carry /= LIMB) n.push_back(static_cast<std::uint32_t>(carry % LIMB));
}

void add(Limbs& n, const Limbs& addend) {
  if (n.size() < addend.size()) n.resize(addend.size(), 0);
  std::uint64_t carry = 0;
  for (std::size_t i = 0; i < n.size() && (carry > 0 || i < addend.size()); ++i) {
    const std::uint64_t sum = n[i] + carry + (i < addend.size() ? addend[i] : 0);
    n[i] = static_cast<std::uint32_t>(sum % LIMB);
    carry = sum / LIMB;
  }
  if (carry > 0) n.push_back(static_cast<std::uint32_t>(carry));
}

std::string decimal(const Limbs& n) {
  if (n.empty()) return "0";
  std::string text = fmt::format("{}", n.back());
  for (auto limb = n.rbegin() + 1; limb != n.rend(); ++limb) text += fmt::format("{:09}", *limb);
  return text;
}

std::optional<unsigned> digit_value(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'z') return c - 'a' + 10;
  if (c >= 'A' && c <= 'Z') return c - 'A' + 10;
  return std::nullopt;
}

// The digits in `base`, taken a chunk at a time so that converting stays quadratic at worst.
std::optional<Limbs> natural(std::string_view digits, unsigned base) {
  Limbs n;
  std::uint64_t chunk = 0, scale = 1;
  for (const char c : digits) {
    const auto value = digit_value(c);
    if (!value || *value >= base) return std::nullopt;
    chunk = chunk * base + *value;
    scale *= base;
    if (scale * base > LIMB) {
      multiply_add(n, scale, chunk);
      chunk = 0;
      scale = 1;
    }
  }
  multiply_add(n, scale, chunk);
  return n;
}

// ---------------------------------------------------------------------------------------------
// Numbers as the loader's host language reads them once the resolver has chosen a type: white
// space around them, one sign, and in bases 2, 8 and 16 a prefix, are allowed.

struct Signed {
  bool negative = false;
  Limbs magnitude;
};

std::string_view without_sign(std::string_view text, bool& negative) {
  negative = text.starts_with('-');
  if (text.starts_with('-') || text.starts_with('+')) text.remove_prefix(1);
  return text;
}

std::optional<Signed> read_int(std::string_view text, unsigned base) {
  Signed number;
  text = without_sign(strip(text), number.negative);
  const char prefix = base == 2 ? 'b' : base == 8 ? 'o' : base == 16 ? 'x' : '\0';
  if (prefix && text.size() >= 2 && text[0] == '0' && (text[1] | 0x20) == prefix) {
    text.remove_prefix(2);
  }
  if (text.empty()) return std::nullopt;
  auto magnitude = natural(text, base);
  if (!magnitude) return std::nullopt;
  number.magnitude = *std::move(magnitude);
  return number;
}

// Whether a decimal number outside the range of a double is too large (rather than too small).
bool overflows(std::string_view number) {
  const std::size_t e = std::min(number.find('e'), number.size());
  long long exponent = 0;
  bool negative = false;
  for (const char c : without_sign(number.substr(std::min(e + 1, number.size())), negative)) {
    exponent = std::min(exponent * 10 + (c - '0'), 1'000'000'000LL);
  }
  if (negative) exponent = -exponent;
  const std::string_view mantissa = number.substr(0, e);
  const std::size_t point = std::min(mantissa.find('.'), mantissa.size());
  const std::string_view whole = mantissa.substr(0, point);
  const std::size_t first = whole.find_first_not_of('0');
  if (first != std::string_view::npos) {
    return exponent + static_cast<long long>(whole.size() - first) > 0;
  }
  const std::size_t zeros = mantissa.substr(point).find_first_not_of(".0");
  return exponent - static_cast<long long>(zeros) > 0;
}

std::optional<double> read_float(std::string_view text) {
  bool negative = false;
  text = without_sign(strip(text), negative);
  if (text.empty() || text[0] == '-' || text[0] == '+' || text.find('(') != text.npos) {
    return std::nullopt;
  }
  double value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (end != text.data() + text.size()) return std::nullopt;
  if (error == std::errc::result_out_of_range) {
    value = overflows(text) ? std::numeric_limits<double>::infinity() : 0.0;
  } else if (error != std::errc{}) {
    return std::nullopt;
  }
  return negative ? -value : value;
}

// The double nearest to a natural number; none when it is too large for one.
std::optional<double> to_double(const Limbs& n) {
  const std::string digits = decimal(n);
  double value = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
  if (error != std::errc{}) return std::nullopt;
  return value;
}

std::vector<std::string_view> split(std::string_view text, char separator) {
  std::vector<std::string_view> parts;
  for (std::size_t start = 0;;) {
    const std::size_t end = text.find(separator, start);
    parts.push_back(text.substr(start, end - start));
    if (end == std::string_view::npos) return parts;
    start = end + 1;
  }
}

// Lower case for ASCII letters only, whatever the host's locale.
std::string ascii_lower(std::string_view text) {
  std::string lower(text);
  for (char& c : lower) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return lower;
}

std::string without_underscores(std::string_view text) {
  std::string kept;
  for (const char c : text) {
    if (c != '_') kept += c;
  }
  return kept;
}

// ---------------------------------------------------------------------------------------------
// Scalar types: which type a plain scalar resolves to, and the value of each type.

// The resolver's patterns, each matched against the whole value ("$" also lets a final line
// feed through). The empty value, which is null, is tested apart.
constinit const Regex BOOL_PATTERN{
    "^(?:yes|Yes|YES|no|No|NO|true|True|TRUE|false|False|FALSE|on|On|ON|off|Off|OFF)$"};
constinit const Regex FLOAT_PATTERN{
    R"re(^(?:[-+]?(?:[0-9][0-9_]*)\.[0-9_]*(?:[eE][-+][0-9]+)?|\.[0-9][0-9_]*(?:[eE][-+][0-9]+)?)re"
    R"re(|[-+]?[0-9][0-9_]*(?::[0-5]?[0-9])+\.[0-9_]*|[-+]?\.(?:inf|Inf|INF)|\.(?:nan|NaN|NAN))$)re"};
constinit const Regex INT_PATTERN{
    R"re(^(?:[-+]?0b[0-1_]+|[-+]?0[0-7_]+|[-+]?(?:0|[1-9][0-9_]*)|[-+]?0x[0-9a-fA-F_]+)re"
    R"re(|[-+]?[1-9][0-9_]*(?::[0-5]?[0-9])+)$)re"};
constinit const Regex MERGE_PATTERN{"^(?:<<)$"};
constinit const Regex NULL_PATTERN{"^(?:~|null|Null|NULL)$"};
constinit const Regex TIMESTAMP_PATTERN{
    R"re(^(?:[0-9][0-9][0-9][0-9]-[0-9][0-9]-[0-9][0-9]|[0-9][0-9][0-9][0-9]-[0-9][0-9]?-[0-9][0-9]?)re"
    R"re((?:[Tt]|[ \t]+)[0-9][0-9]?:[0-9][0-9]:[0-9][0-9](?:\.[0-9]*)?)re"
    R"re((?:[ \t]*(?:Z|[-+][0-9][0-9]?(?::[0-9][0-9])?))?)$)re"};

enum class Tag {
  STR,
  INT,
  FLOAT,
  BOOL,
  NUL,
  TIMESTAMP,
  BINARY,
  SEQ,
  MAP,
  SET,
  OMAP,
  PAIRS,
  MERGE,
  OTHER
};

constexpr std::string_view STANDARD = "tag:yaml.org,2002:";

constexpr std::pair<std::string_view, Tag> STANDARD_TAGS[] = {
    {"str", Tag::STR},       {"int", Tag::INT},   {"float", Tag::FLOAT},
    {"bool", Tag::BOOL},     {"null", Tag::NUL},  {"timestamp", Tag::TIMESTAMP},
    {"binary", Tag::BINARY}, {"seq", Tag::SEQ},   {"map", Tag::MAP},
    {"set", Tag::SET},       {"omap", Tag::OMAP}, {"pairs", Tag::PAIRS},
};

Tag explicit_tag(std::string_view name) {
  if (!name.starts_with(STANDARD)) return Tag::OTHER;
  for (const auto& [suffix, tag] : STANDARD_TAGS) {
    if (name.substr(STANDARD.size()) == suffix) return tag;
  }
  return Tag::OTHER;
}

// A resolver's pattern, and the characters that a value it matches can start with: only the
// resolvers for a value's first character are tried.
struct Resolver {
  const Regex* pattern;
  Tag tag;
  std::string_view first_characters;
};

constexpr Resolver RESOLVERS[] = {
    {&BOOL_PATTERN, Tag::BOOL, "yYnNtTfFoO"}, {&FLOAT_PATTERN, Tag::FLOAT, "-+0123456789."},
    {&INT_PATTERN, Tag::INT, "-+0123456789"}, {&MERGE_PATTERN, Tag::MERGE, "<"},
    {&NULL_PATTERN, Tag::NUL, "~nN"},         {&TIMESTAMP_PATTERN, Tag::TIMESTAMP, "0123456789"},
};

Tag implicit_tag(std::string_view value) {
  if (value.empty()) return Tag::NUL;
  for (const auto& [pattern, tag, first_characters] : RESOLVERS) {
    if (first_characters.find(value.front()) != std::string_view::npos && pattern->search(value)) {
      return tag;
    }
  }
  return Tag::STR;
}

std::optional<bool> bool_value(std::string_view text) {
  const std::string lower = ascii_lower(text);
  if (lower == "yes" || lower == "true" || lower == "on") return true;
  if (lower == "no" || lower == "false" || lower == "off") return false;
  return std::nullopt;
}

// 1:30 is 90: decimal parts, each a digit in base 60; only the first may exceed 59.
std::optional<Limbs> sexagesimal_int(std::string_view text) {
  Limbs value;
  for (const std::string_view part : split(text, ':')) {
    const auto digit = read_int(part, 10);
    if (!digit || (digit->negative && !digit->magnitude.empty())) return std::nullopt;
    multiply_add(value, 60, 0);
    add(value, digit->magnitude);
  }
  return value;
}

std::optional<Integer> int_value(std::string_view written) {
  const std::string text = without_underscores(written);
  bool negative = false;
  const std::string_view digits = without_sign(text, negative);
  std::optional<Signed> number;
  if (digits == "0") {
    number = Signed{};
  } else if (digits.starts_with("0b")) {
    number = read_int(digits.substr(2), 2);
  } else if (digits.starts_with("0x")) {
    number = read_int(digits.substr(2), 16);
  } else if (digits.starts_with('0')) {
    number = read_int(digits, 8);
  } else if (digits.find(':') != std::string_view::npos) {
    if (auto magnitude = sexagesimal_int(digits)) number = Signed{false, *std::move(magnitude)};
  } else {
    number = read_int(digits, 10);
  }
  if (!number) return std::nullopt;
  const bool below_zero = negative != number->negative && !number->magnitude.empty();
  std::string decimal_text(below_zero ? "-" : "");
  decimal_text += decimal(number->magnitude);
  return Integer{std::move(decimal_text)};
}

// 1:30.5 is 90.5, summed from the last part as the loader sums it, each part times its power
// of 60 rounded to a double.
std::optional<double> sexagesimal_float(std::string_view text) {
  const std::vector<std::string_view> parts = split(text, ':');
  double value = 0;
  Limbs power{1};
  for (auto part = parts.rbegin(); part != parts.rend(); ++part) {
    const auto digit = read_float(*part);
    const auto scale = to_double(power);
    if (!digit || !scale) return std::nullopt;
    value += *digit * *scale;
    multiply_add(power, 60, 0);
  }
  return value;
}

std::optional<double> float_value(std::string_view written) {
  const std::string text = ascii_lower(without_underscores(written));
  bool negative = false;
  const std::string_view number = without_sign(text, negative);
  std::optional<double> magnitude;
  if (number == ".inf") {
    magnitude = std::numeric_limits<double>::infinity();
  } else if (number == ".nan") {
    return std::numeric_limits<double>::quiet_NaN();
  } else if (number.find(':') != std::string_view::npos) {
    magnitude = sexagesimal_float(number);
  } else {
    magnitude = read_float(number);
  }
  if (!magnitude) return std::nullopt;
  return negative ? -*magnitude : *magnitude;
}

// Reads `min` to `max` ASCII digits at `pos`, as many as there are.
std::optional<int> read_digits(std::string_view text, std::size_t& pos, std::size_t min,
                               std::size_t max) {
  int value = 0;
  std::size_t count = 0;
  for (; count < max && pos < text.size() && text[pos] >= '0' && text[pos] <= '9'; ++count) {
    value = value * 10 + (text[pos++] - '0');
  }
  if (count < min) return std::nullopt;
  return value;
}

bool skip(std::string_view text, std::size_t& pos, char c) {
  if (pos >= text.size() || text[pos] != c) return false;
  ++pos;
  return true;
}

// The end of a value, or just before a final line feed.
bool at_end(std::string_view text, std::size_t pos) {
  return pos == text.size() || (pos + 1 == text.size() && text[pos] == '\n');
}

bool is_leap(int year) {
  return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

bool is_date(int year, int month, int day) {
  constexpr int DAYS[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  if (year < 1 || month < 1 || month > 12 || day < 1) return false;
  return day <= DAYS[month - 1] + (month == 2 && is_leap(year));
}

// The time of day and zone after a date, up to the end of the value; true when they are valid.
bool read_time(std::string_view text, std::size_t pos) {
  if (!skip(text, pos, 'T') && !skip(text, pos, 't')) {
    if (!skip(text, pos, ' ') && !skip(text, pos, '\t')) return false;
    while (skip(text, pos, ' ') || skip(text, pos, '\t')) {
    }
  }
  const auto hour = read_digits(text, pos, 1, 2);
  if (!hour || !skip(text, pos, ':')) return false;
  const auto minute = read_digits(text, pos, 2, 2);
  if (!minute || !skip(text, pos, ':')) return false;
  const auto second = read_digits(text, pos, 2, 2);
  if (!second) return false;
  if (skip(text, pos, '.')) {
    while (pos < text.size() && text[pos] >= '0' && text[pos] <= '9') ++pos;
  }
  if (*hour > 23 || *minute > 59 || *second > 59) return false;
  if (at_end(text, pos)) return true;
  while (skip(text, pos, ' ') || skip(text, pos, '\t')) {
  }
  if (skip(text, pos, 'Z')) return at_end(text, pos);
  if (!skip(text, pos, '+') && !skip(text, pos, '-')) return false;
  const auto zone_hours = read_digits(text, pos, 1, 2);
  std::optional<int> zone_minutes = 0;
  if (skip(text, pos, ':')) zone_minutes = read_digits(text, pos, 2, 2);
  // A zone is an offset of less than a day.
  return zone_hours && zone_minutes && *zone_hours * 60 + *zone_minutes < 24 * 60 &&
         at_end(text, pos);
}

// A date, or a date with a time; none for what is not a valid one.
std::optional<Opaque> timestamp_value(std::string_view text) {
  std::size_t pos = 0;
  const auto year = read_digits(text, pos, 4, 4);
  if (!year || !skip(text, pos, '-')) return std::nullopt;
  const auto month = read_digits(text, pos, 1, 2);
  if (!month || !skip(text, pos, '-')) return std::nullopt;
  const auto day = read_digits(text, pos, 1, 2);
  if (!day || !is_date(*year, *month, *day)) return std::nullopt;
  if (at_end(text, pos)) return Opaque::DATE;
  if (!read_time(text, pos)) return std::nullopt;
  return Opaque::TIMESTAMP;
}

int base64_value(char c) {
  if (c >= 'A' && c <= 'Z') return c - 'A';
  if (c >= 'a' && c <= 'z') return c - 'a' + 26;
  if (c >= '0' && c <= '9') return c - '0' + 52;
  if (c == '+') return 62;
  if (c == '/') return 63;
  return -1;
}

// Base64 as the loader decodes it: ASCII only, other characters skipped, and the data ends at
// the padding that completes a group of four; a group left incomplete is an error.
bool is_base64(std::string_view text) {
  const auto is_ascii = [](char c) { return static_cast<unsigned char>(c) < 0x80; };
  if (!std::all_of(text.begin(), text.end(), is_ascii)) return false;
  int position = 0, pads = 0;
  for (const char c : text) {
    if (c == '=') {
      if (position >= 2 && position + ++pads >= 4) return true;
      continue;
    }
    if (base64_value(c) < 0) continue;
    pads = 0;
    position = (position + 1) % 4;
  }
  return position == 0;
}

// ---------------------------------------------------------------------------------------------
// The node graph.

enum class Shape { SCALAR, SEQUENCE, MAPPING };

struct Mark {
  std::size_t line;
  std::size_t column;
};

std::string where(Mark mark) {
  return fmt::format("line {}, column {}", mark.line + 1, mark.column + 1);
}

using NodeId = std::size_t;

// Children are indices into the document's nodes: a sequence's items, or a mapping's keys and
// values alternating, in the order written.
struct YamlNode {
  Shape shape;
  Tag tag;
  std::string tag_name;  // as written, kept for the message about a tag nobody constructs
  std::string value;
  std::vector<NodeId> children;
  Mark mark;
};

struct Document {
  std::vector<YamlNode> nodes;
  std::optional<NodeId> root;  // none for a stream without a document
};

// Why a body does not load, in one line.
struct Failure {
  std::string description;
};

std::string_view shape_name(Shape shape) {
  switch (shape) {
    case Shape::SCALAR:
      return "scalar";
    case Shape::SEQUENCE:
      return "sequence";
    case Shape::MAPPING:
      return "mapping";
  }
  return {};
}

// ---------------------------------------------------------------------------------------------
// Composing: libyaml's events into the node graph, without recursion.

class Parser {
 public:
  explicit Parser(std::string_view body) {
    if (!yaml_parser_initialize(&parser_)) throw std::bad_alloc();
    // libyaml wants a pointer even for no input.
    const char* input = body.empty() ? "" : body.data();
    yaml_parser_set_input_string(&parser_, reinterpret_cast<const unsigned char*>(input),
                                 body.size());
    yaml_parser_set_encoding(&parser_, YAML_UTF8_ENCODING);
  }
  ~Parser() { yaml_parser_delete(&parser_); }
  Parser(const Parser&) = delete;
  Parser& operator=(const Parser&) = delete;

  bool next(yaml_event_t& event) { return yaml_parser_parse(&parser_, &event) != 0; }

  // libyaml's own account of the problem that stopped it.
  Failure failure() const {
    if (parser_.error == YAML_MEMORY_ERROR) throw std::bad_alloc();
    const Mark problem{parser_.problem_mark.line, parser_.problem_mark.column};
    if (parser_.error == YAML_READER_ERROR && parser_.problem_value != -1) {
      return {fmt::format("{} (#x{:X} at byte {})", parser_.problem, parser_.problem_value,
                          parser_.problem_offset)};
    }
    if (parser_.error == YAML_READER_ERROR) {
      return {fmt::format("{} (at byte {})", parser_.problem, parser_.problem_offset)};
    }
    if (parser_.context) {
      const Mark context{parser_.context_mark.line, parser_.context_mark.column};
      return {fmt::format("{} ({}): {} ({})", parser_.context, where(context), parser_.problem,
                          where(problem))};
    }
    return {fmt::format("{} ({})", parser_.problem, where(problem))};
  }

 private:
  yaml_parser_t parser_;
};

struct Event {
  Event() = default;
  ~Event() { yaml_event_delete(&event); }
  Event(const Event&) = delete;
  Event& operator=(const Event&) = delete;
  yaml_event_t event{};
};

std::string_view chars(const yaml_char_t* text) {
  return text ? reinterpret_cast<const char*>(text) : std::string_view{};
}

class Composer {
 public:
  std::variant<Document, Failure> compose(std::string_view body) {
    Parser parser(body);
    bool in_stream = true;
    while (in_stream) {
      Event next;
      if (!parser.next(next.event)) return parser.failure();
      const yaml_event_t& event = next.event;
      const Mark mark{event.start_mark.line, event.start_mark.column};
      std::optional<Failure> failure;
      switch (event.type) {
        case YAML_DOCUMENT_START_EVENT:
          if (started_) {
            failure = Failure{fmt::format(
                "expected a single document in the stream, but found another document ({})",
                where(mark))};
          }
          started_ = true;
          break;
        case YAML_ALIAS_EVENT:
          failure = alias(chars(event.data.alias.anchor), mark);
          break;
        case YAML_SCALAR_EVENT:
          failure = scalar(event, mark);
          break;
        case YAML_SEQUENCE_START_EVENT:
          failure = collection(Shape::SEQUENCE, event.data.sequence_start.anchor,
                               event.data.sequence_start.tag, mark);
          break;
        case YAML_MAPPING_START_EVENT:
          failure = collection(Shape::MAPPING, event.data.mapping_start.anchor,
                               event.data.mapping_start.tag, mark);
          break;
        case YAML_SEQUENCE_END_EVENT:
        case YAML_MAPPING_END_EVENT:
          open_.pop_back();
          break;
        case YAML_STREAM_END_EVENT:
          in_stream = false;
          break;
        default:
          break;
      }
      if (failure) return *std::move(failure);
    }
    return std::move(document_);
  }

 private:
  // A plain scalar without a tag, or one of any style with the non-specific tag "!", is typed by
  // the resolver; any other scalar without a tag is text.
  std::optional<Failure> scalar(const yaml_event_t& event, Mark mark) {
    const auto& scalar = event.data.scalar;
    const std::string_view tag = chars(scalar.tag);
    std::string value(reinterpret_cast<const char*>(scalar.value), scalar.length);
    const Tag resolved = (!scalar.tag && scalar.plain_implicit) || tag == "!" ? implicit_tag(value)
                         : scalar.tag                                         ? explicit_tag(tag)
                                                                              : Tag::STR;
    return add(YamlNode{Shape::SCALAR, resolved, std::string(tag), std::move(value), {}, mark},
               chars(scalar.anchor));
  }

  std::optional<Failure> collection(Shape shape, const yaml_char_t* anchor, const yaml_char_t* tag,
                                    Mark mark) {
    if (open_.size() >= MAX_YAML_DEPTH) {
      return Failure{
          fmt::format("collections nest deeper than {} levels ({})", MAX_YAML_DEPTH, where(mark))};
    }
    const std::string_view name = chars(tag);
    const Tag resolved =
        !tag || name == "!" ? (shape == Shape::SEQUENCE ? Tag::SEQ : Tag::MAP) : explicit_tag(name);
    auto failure = add(YamlNode{shape, resolved, std::string(name), {}, {}, mark}, chars(anchor));
    if (!failure) open_.push_back(document_.nodes.size() - 1);
    return failure;
  }

  std::optional<Failure> alias(std::string_view anchor, Mark mark) {
    const auto found = anchors_.find(std::string(anchor));
    if (found == anchors_.end()) {
      return Failure{fmt::format("found undefined alias '{}' ({})", anchor, where(mark))};
    }
    attach(found->second);
    return std::nullopt;
  }

  // Adds a node under the open collection, known by its anchor from here on (inside itself
  // too, for a collection).
  std::optional<Failure> add(YamlNode node, std::string_view anchor) {
    const NodeId id = document_.nodes.size();
    if (!anchor.empty() && !anchors_.emplace(anchor, id).second) {
      return Failure{fmt::format("found duplicate anchor '{}' ({})", anchor, where(node.mark))};
    }
    document_.nodes.push_back(std::move(node));
    attach(id);
    return std::nullopt;
  }

  void attach(NodeId id) {
    if (open_.empty()) {
      document_.root = id;
    } else {
      document_.nodes[open_.back()].children.push_back(id);
    }
  }

  Document document_;
  std::vector<NodeId> open_;
  std::unordered_map<std::string, NodeId> anchors_;
  bool started_ = false;
};

// ---------------------------------------------------------------------------------------------
// Constructing: every node that safe loading would construct is typed and checked.

std::optional<Value> scalar_value(const YamlNode& node, Tag tag) {
  switch (tag) {
    case Tag::STR:
      return node.value;
    case Tag::NUL:
      return nullptr;
    case Tag::BOOL:
      if (const auto value = bool_value(node.value)) return *value;
      return std::nullopt;
    case Tag::INT:
      if (auto value = int_value(node.value)) return *std::move(value);
      return std::nullopt;
    case Tag::FLOAT:
      if (const auto value = float_value(node.value)) return *value;
      return std::nullopt;
    case Tag::TIMESTAMP:
      if (const auto value = timestamp_value(node.value)) return *value;
      return std::nullopt;
    case Tag::BINARY:
      if (is_base64(node.value)) return Opaque::BINARY;
      return std::nullopt;
    default:
      return std::nullopt;
  }
}

// What a scalar tag stands for; none for the tags of collections and keys.
std::optional<std::string_view> scalar_kind(Tag tag) {
  switch (tag) {
    case Tag::STR:
      return "string";
    case Tag::NUL:
      return "null";
    case Tag::BOOL:
      return "boolean";
    case Tag::INT:
      return "integer";
    case Tag::FLOAT:
      return "float";
    case Tag::TIMESTAMP:
      return "timestamp";
    case Tag::BINARY:
      return "base64 binary";
    default:
      return std::nullopt;
  }
}

// The tag a node is constructed with. A plain `<<` merges only as the key of a mapping, where
// the mapping's pairs read it; anywhere else it is the text it reads, like any scalar that no
// other type claims.
Tag constructed_tag(const YamlNode& node) {
  return node.tag == Tag::MERGE ? Tag::STR : node.tag;
}

// What is left to check: a node to construct as a value, one to construct as a mapping key,
// or a mapping whose pairs, merged ones included, are constructed.
enum class Role { VALUE, KEY, PAIRS };

class Checker {
 public:
  explicit Checker(const Document& document)
      : document_(document), constructed_(document.nodes.size()), paired_(document.nodes.size()) {}

  std::optional<Failure> check(NodeId root) {
    pending_.push_back({root, Role::VALUE});
    while (!pending_.empty()) {
      const auto [id, role] = pending_.back();
      pending_.pop_back();
      const YamlNode& node = document_.nodes[id];
      std::optional<Failure> failure;
      if (role == Role::PAIRS) {
        if (!paired_[id]) failure = pairs(node);
        paired_[id] = true;
      } else if (role == Role::KEY && node.shape != Shape::SCALAR) {
        failure = fail("found unhashable key", node);
      } else if (!constructed_[id]) {
        failure = construct(node, id);
        constructed_[id] = !failure;
      }
      if (failure) return failure;
    }
    return std::nullopt;
  }

 private:
  static Failure fail(std::string_view problem, const YamlNode& node) {
    return {fmt::format("{} ({})", problem, where(node.mark))};
  }

  static Failure expected(std::string_view what, const YamlNode& node) {
    return fail(fmt::format("expected {}, but found {}", what, shape_name(node.shape)), node);
  }

  void push_all(const std::vector<NodeId>& ids, Role role) {
    for (const NodeId id : ids) pending_.push_back({id, role});
  }

  std::optional<Failure> construct(const YamlNode& node, NodeId id) {
    const Tag tag = constructed_tag(node);
    if (const auto kind = scalar_kind(tag)) {
      if (node.shape != Shape::SCALAR) return expected("a scalar node", node);
      if (!scalar_value(node, tag)) return fail(fmt::format("not a valid {}", *kind), node);
      return std::nullopt;
    }
    switch (tag) {
      case Tag::SEQ:
        if (node.shape != Shape::SEQUENCE) return expected("a sequence node", node);
        push_all(node.children, Role::VALUE);
        return std::nullopt;
      case Tag::MAP:
      case Tag::SET:
        if (node.shape != Shape::MAPPING) return expected("a mapping node", node);
        pending_.push_back({id, Role::PAIRS});
        return std::nullopt;
      case Tag::OMAP:
      case Tag::PAIRS:
        return ordered_pairs(node);
      default:
        return fail(
            fmt::format("could not determine a constructor for the tag '{}'", node.tag_name), node);
    }
  }

  // An ordered map or a list of pairs: a sequence of one-pair mappings, constructed as they are.
  std::optional<Failure> ordered_pairs(const YamlNode& node) {
    if (node.shape != Shape::SEQUENCE) return expected("a sequence", node);
    for (const NodeId id : node.children) {
      const YamlNode& item = document_.nodes[id];
      if (item.shape != Shape::MAPPING) return expected("a mapping of length 1", item);
      if (item.children.size() != 2) return fail("expected a single mapping item", item);
      push_all(item.children, Role::VALUE);
    }
    return std::nullopt;
  }

  std::optional<Failure> pairs(const YamlNode& mapping) {
    for (std::size_t i = 0; i + 1 < mapping.children.size(); i += 2) {
      const NodeId key = mapping.children[i], value = mapping.children[i + 1];
      if (document_.nodes[key].tag == Tag::MERGE) {
        if (auto failure = merged(document_.nodes[value], value)) return failure;
      } else {
        pending_.push_back({key, Role::KEY});
        pending_.push_back({value, Role::VALUE});
      }
    }
    return std::nullopt;
  }

  // The value of a merge key: a mapping, or a sequence of mappings.
  std::optional<Failure> merged(const YamlNode& node, NodeId id) {
    if (node.shape == Shape::MAPPING) {
      pending_.push_back({id, Role::PAIRS});
      return std::nullopt;
    }
    if (node.shape != Shape::SEQUENCE)
      return expected("a mapping or list of mappings for merging", node);
    for (const NodeId item : node.children) {
      if (document_.nodes[item].shape != Shape::MAPPING) {
        return expected("a mapping for merging", document_.nodes[item]);
      }
      pending_.push_back({item, Role::PAIRS});
    }
    return std::nullopt;
  }

  const Document& document_;
  std::vector<std::pair<NodeId, Role>> pending_;
  std::vector<bool> constructed_;
  std::vector<bool> paired_;
};

// ---------------------------------------------------------------------------------------------
// Looking up: the value of a key in a mapping as its merges make it, without copying.

bool is_key(const YamlNode& node, std::string_view key) {
  return node.shape == Shape::SCALAR && node.tag == Tag::STR && node.value == key;
}

// A mapping's own pairs win over merged ones; among merge keys the last wins, and within a
// merged sequence the first mapping. So the mappings are searched depth first in that order,
// each at most once, which also keeps a mapping that merges itself from looping.
std::optional<NodeId> find(const Document& document, NodeId mapping, std::string_view key) {
  std::vector<NodeId> pending{mapping};
  std::vector<bool> seen(document.nodes.size());
  while (!pending.empty()) {
    const NodeId id = pending.back();
    pending.pop_back();
    if (seen[id]) continue;
    seen[id] = true;
    const std::vector<NodeId>& children = document.nodes[id].children;
    std::vector<NodeId> merges;
    for (std::size_t i = children.size(); i >= 2; i -= 2) {
      const YamlNode& k = document.nodes[children[i - 2]];
      if (k.tag == Tag::MERGE) {
        merges.push_back(children[i - 1]);
      } else if (is_key(k, key)) {
        return children[i - 1];
      }
    }
    // Pushed lowest first, so that the first to search is on top.
    for (auto merge = merges.rbegin(); merge != merges.rend(); ++merge) {
      const YamlNode& source = document.nodes[*merge];
      if (source.shape == Shape::MAPPING) {
        pending.push_back(*merge);
      } else {
        pending.insert(pending.end(), source.children.rbegin(), source.children.rend());
      }
    }
  }
  return std::nullopt;
}

Value value_of(const YamlNode& node) {
  switch (node.tag) {
    case Tag::SEQ:
    case Tag::OMAP:
    case Tag::PAIRS:
      return Opaque::LIST;
    case Tag::SET:
      return Opaque::SET;
    case Tag::MAP:
      return Opaque::MAPPING;
    default:
      return *scalar_value(node, constructed_tag(node));
  }
}

std::variant<Document, Failure> load(std::string_view body) {
  auto composed = Composer().compose(body);
  if (const Document* document = std::get_if<Document>(&composed); document && document->root) {
    if (auto failure = Checker(*document).check(*document->root)) return *std::move(failure);
  }
  return composed;
}

}  // namespace

Fields yaml_fields(std::string_view body, std::string_view prefix, const Logger& log) {
  const auto loaded = load(body);
  if (const Failure* failure = std::get_if<Failure>(&loaded)) {
    log.debug(fmt::format(fmt::runtime(NOT_YAML), prefix, failure->description));
    return {};
  }
  const Document& document = std::get<Document>(loaded);
  if (!document.root) return {};
  const YamlNode& top = document.nodes[*document.root];
  if (top.shape != Shape::MAPPING || top.tag != Tag::MAP) return {};
  Fields fields;
  for (const std::string_view key : {TITLE, DESCRIPTION}) {
    const auto found = find(document, *document.root, key);
    fields.emplace(key, found ? value_of(document.nodes[*found]) : Value{});
  }
  return fields;
}

}  // namespace tarnwick::engines::markdown::detail
