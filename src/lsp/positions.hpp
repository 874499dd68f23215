// Positions in a text as the protocol counts them: lines end at "\n", "\r\n" or "\r", and a
// character is a UTF-16 code unit or, when the client and server agree on it, a UTF-8 byte.
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "lsp/protocol.hpp"

namespace tarnwick::lsp {

enum class PositionEncoding { utf8, utf16 };

// The encoding's name in the protocol ("utf-8", "utf-16").
std::string_view encoding_name(PositionEncoding encoding);

struct Position {
  std::uint32_t line = 0;
  std::uint32_t character = 0;
  auto operator<=>(const Position&) const = default;
};

struct Range {
  Position start;
  Position end;
  bool operator==(const Range&) const = default;
};

// From and to their JSON objects. Reading throws Json::exception on a value of the wrong type;
// a negative number reads as 0 and one past 2^32 - 1 as that.
void to_json(Json& json, const Position& position);
void from_json(const Json& json, Position& position);
void to_json(Json& json, const Range& range);
void from_json(const Json& json, Range& range);

// The characters in the encoding's units of the bytes [from, to) of a line of `bytes` (a
// code point that `to` cuts counts not).
std::uint32_t units_between(std::string_view bytes, std::size_t from, std::size_t to,
                            PositionEncoding encoding);

// A change the client made to a document: `range` replaced by `text`, or the whole text
// replaced when there is no range.
struct ContentChange {
  std::optional<Range> range;
  std::string text;
};
void from_json(const Json& json, ContentChange& change);

// A text and where its lines start. Immutable: a change makes a new text, so a background job
// may keep reading the one it was handed. Bytes that are not UTF-8 are counted as the client
// shows them: each maximal ill-formed subpart as one U+FFFD (one UTF-16 unit), and in UTF-8
// as the bytes they are.
class Text {
 public:
  explicit Text(std::string bytes);

  const std::string& bytes() const { return bytes_; }
  // At least 1: an empty text has one empty line, and a text ending in a line end has an
  // empty last line.
  std::size_t line_count() const { return line_starts_.size(); }
  std::size_t line_start(std::size_t line) const { return line_starts_[line]; }
  // The line's bytes without its line end.
  std::string_view line(std::size_t line) const;
  // The line's length in the encoding's units: the character of its end.
  std::uint32_t line_length(std::size_t line, PositionEncoding encoding) const;

  // The byte offset of a position, clamped as the protocol says: a character past the end of
  // its line stands for the line's end, a line past the last for the end of the text, and a
  // character inside a code point (half a surrogate pair, a byte inside a UTF-8 sequence) for
  // the code point's start.
  std::size_t offset(Position position, PositionEncoding encoding) const;
  // The position of a byte offset (past the end: the end; inside a line end: the line's end;
  // inside a code point: its start).
  Position position(std::size_t offset, PositionEncoding encoding) const;
  Range range(std::size_t begin, std::size_t end, PositionEncoding encoding) const;

  // The text with a change made: the range (its ends clamped, and swapped when the end comes
  // first) replaced, or all of it.
  Text changed(const ContentChange& change, PositionEncoding encoding) const;

 private:
  Text(std::string bytes, std::vector<std::size_t> line_starts)
      : bytes_(std::move(bytes)), line_starts_(std::move(line_starts)) {}
  std::size_t line_end(std::size_t line) const;

  std::string bytes_;
  std::vector<std::size_t> line_starts_;  // the byte offset of each line's start, from 0
};

}  // namespace tarnwick::lsp
