#include "lsp/positions.hpp"

#include <algorithm>
#include <cstring>
#include <limits>

#include "text/utf8.hpp"

namespace tarnwick::lsp {

namespace {

// Whether a line starts at byte `at` (past 0) of `bytes`: after "\n", or after "\r" that no
// "\n" follows.
bool starts_line(std::string_view bytes, std::size_t at) {
  const char before = bytes[at - 1];
  return before == '\n' || (before == '\r' && (at == bytes.size() || bytes[at] != '\n'));
}

std::vector<std::size_t> line_starts_of(std::string_view bytes) {
  std::vector<std::size_t> starts{0};
  if (bytes.find('\r') == std::string_view::npos) {
    // The common case, a line feed at a time.
    for (const char* at = bytes.data();
         const void* found =
             std::memchr(at, '\n', static_cast<std::size_t>(bytes.data() + bytes.size() - at));) {
      at = static_cast<const char*>(found) + 1;
      starts.push_back(static_cast<std::size_t>(at - bytes.data()));
    }
    return starts;
  }
  for (std::size_t at = 1; at <= bytes.size(); ++at) {
    if (starts_line(bytes, at)) starts.push_back(at);
  }
  return starts;
}

// The code point (or ill-formed subpart) at `pos`: its length in bytes and in the encoding's
// units.
struct Step {
  std::size_t bytes;
  std::uint32_t units;
};
Step step_at(std::string_view bytes, std::size_t pos, PositionEncoding encoding) {
  const int length = text::sequence_length(bytes, pos);
  const auto size = static_cast<std::size_t>(length < 0 ? -length : length);
  if (encoding == PositionEncoding::utf8) return {size, static_cast<std::uint32_t>(size)};
  return {size, length == 4 ? 2u : 1u};
}

std::uint32_t read_uinteger(const Json& json) {
  constexpr auto max = std::numeric_limits<std::uint32_t>::max();
  if (!json.is_number()) throw Json::type_error::create(302, "a position holds numbers", nullptr);
  if (json.is_number_float()) {
    return static_cast<std::uint32_t>(std::clamp(json.get<double>(), 0.0, double{max}));
  }
  if (json.is_number_unsigned()) {
    return static_cast<std::uint32_t>(std::min<std::uint64_t>(json.get<std::uint64_t>(), max));
  }
  return static_cast<std::uint32_t>(std::clamp<std::int64_t>(json.get<std::int64_t>(), 0, max));
}

}  // namespace

std::uint32_t units_between(std::string_view bytes, std::size_t from, std::size_t to,
                            PositionEncoding encoding) {
  std::uint32_t units = 0;
  for (std::size_t pos = from; pos < to;) {
    // Runs of ASCII, most of any Markdown, count a unit a byte in either encoding.
    const std::size_t ascii_from = pos;
    while (pos < to && static_cast<unsigned char>(bytes[pos]) < 0x80) ++pos;
    units += static_cast<std::uint32_t>(pos - ascii_from);
    if (pos == to) break;
    const Step step = step_at(bytes, pos, encoding);
    if (pos + step.bytes > to) break;
    units += step.units;
    pos += step.bytes;
  }
  return units;
}

std::string_view encoding_name(PositionEncoding encoding) {
  return encoding == PositionEncoding::utf8 ? "utf-8" : "utf-16";
}

void to_json(Json& json, const Position& position) {
  json = {{"line", position.line}, {"character", position.character}};
}

void from_json(const Json& json, Position& position) {
  position.line = read_uinteger(json.at("line"));
  position.character = read_uinteger(json.at("character"));
}

void to_json(Json& json, const Range& range) {
  json = {{"start", range.start}, {"end", range.end}};
}

void from_json(const Json& json, Range& range) {
  range.start = json.at("start").get<Position>();
  range.end = json.at("end").get<Position>();
}

void from_json(const Json& json, ContentChange& change) {
  change.text = json.at("text").get<std::string>();
  if (const auto range = json.find("range"); range != json.end()) {
    change.range = range->get<Range>();
  }
}

Text::Text(std::string bytes) : bytes_(std::move(bytes)), line_starts_(line_starts_of(bytes_)) {}

std::size_t Text::line_end(std::size_t line) const {
  if (line + 1 >= line_starts_.size()) return bytes_.size();
  const std::size_t next = line_starts_[line + 1];
  const bool crlf =
      bytes_[next - 1] == '\n' && next >= line_starts_[line] + 2 && bytes_[next - 2] == '\r';
  return next - (crlf ? 2 : 1);
}

std::string_view Text::line(std::size_t line) const {
  return std::string_view(bytes_).substr(line_starts_[line], line_end(line) - line_starts_[line]);
}

std::uint32_t Text::line_length(std::size_t line, PositionEncoding encoding) const {
  std::uint32_t units = 0;
  for (std::size_t pos = line_starts_[line], end = line_end(line); pos < end;) {
    const Step step = step_at(bytes_, pos, encoding);
    units += step.units;
    pos += step.bytes;
  }
  return units;
}

std::size_t Text::offset(Position position, PositionEncoding encoding) const {
  if (position.line >= line_starts_.size()) return bytes_.size();
  std::size_t pos = line_starts_[position.line];
  std::uint32_t units = 0;
  for (const std::size_t end = line_end(position.line); pos < end;) {
    const Step step = step_at(bytes_, pos, encoding);
    if (units + step.units > position.character) break;
    units += step.units;
    pos += step.bytes;
  }
  return pos;
}

Position Text::position(std::size_t offset, PositionEncoding encoding) const {
  offset = std::min(offset, bytes_.size());
  const auto line =
      static_cast<std::size_t>(std::upper_bound(line_starts_.begin(), line_starts_.end(), offset) -
                               line_starts_.begin() - 1);
  return {static_cast<std::uint32_t>(line),
          units_between(bytes_, line_starts_[line], std::min(offset, line_end(line)), encoding)};
}

Range Text::range(std::size_t begin, std::size_t end, PositionEncoding encoding) const {
  return {position(begin, encoding), position(end, encoding)};
}

Text Text::changed(const ContentChange& change, PositionEncoding encoding) const {
  if (!change.range) return Text(change.text);
  std::size_t begin = offset(change.range->start, encoding);
  std::size_t end = offset(change.range->end, encoding);
  if (end < begin) std::swap(begin, end);
  std::string bytes;
  bytes.reserve(bytes_.size() - (end - begin) + change.text.size());
  bytes.append(bytes_, 0, begin).append(change.text).append(bytes_, end);

  // Lines that start before the change keep their starts, those that start after it move by
  // the change in length; only the starts within the new text are looked for again (a start
  // depends on the byte before it and, after "\r", on the byte at it).
  std::vector<std::size_t> starts{0};
  const auto kept = std::lower_bound(line_starts_.begin() + 1, line_starts_.end(), begin);
  starts.insert(starts.end(), line_starts_.begin() + 1, kept);
  const std::size_t inserted_end = begin + change.text.size();
  for (std::size_t at = std::max<std::size_t>(begin, 1); at <= inserted_end; ++at) {
    if (starts_line(bytes, at)) starts.push_back(at);
  }
  for (auto moved = std::upper_bound(kept, line_starts_.end(), end); moved != line_starts_.end();
       ++moved) {
    starts.push_back(*moved - end + inserted_end);
  }
  return Text(std::move(bytes), std::move(starts));
}

}  // namespace tarnwick::lsp
