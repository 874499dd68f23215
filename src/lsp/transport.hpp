// Messages over a byte stream, each a header block ("Content-Length: N", and optionally
// "Content-Type: ...", lines ended by "\r\n", then an empty line) and a body of N bytes.
#pragma once

#include <cstddef>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "lsp/protocol.hpp"

namespace tarnwick::lsp {

// The largest body read; a longer one is refused as malformed, not buffered.
inline constexpr std::size_t MAX_CONTENT_LENGTH = std::size_t{256} << 20;
// The longest header line; a longer one is malformed.
inline constexpr std::size_t MAX_HEADER_LINE = 4096;

// A message's body, or why the header block before it could not be read.
struct Frame {
  std::string body;
  std::optional<std::string> error;
};

// Cuts a byte stream into frames as bytes arrive. Header names are read in any letter case,
// lines may end with "\n" alone, and blank lines between messages are skipped. After a
// malformed header block, what follows is skipped up to the next line that starts with a
// Content-Length header, where reading starts again.
class FrameDecoder {
 public:
  void feed(std::string_view bytes);
  // The next frame, or none until more bytes are fed.
  std::optional<Frame> next();
  // Skips to the next line that starts with a Content-Length header (after a body that was
  // not a message, so that the rest of a body shorter than its length is not read as headers).
  void resynchronise();

 private:
  enum class State { headers, body, skipping };
  // Starts skipping after a malformed header block; `at_line_start` when a line just ended.
  Frame fail(std::string error, bool at_line_start = true);
  void compact();

  std::string buffer_;  // bytes fed and not yet consumed, from `pos_`
  std::size_t pos_ = 0;
  State state_ = State::headers;
  bool at_line_start_ = true;          // while skipping: whether `pos_` starts a line
  bool in_header_block_ = false;       // a header line of the current block was read
  std::optional<std::size_t> length_;  // the current block's Content-Length
};

// Reads frames from a file descriptor. Not thread-safe: one reader thread owns it.
class MessageReader {
 public:
  // `wake` is a descriptor that becomes readable when reading should stop (or -1).
  MessageReader(int input, int wake) : input_(input), wake_(wake) {}
  // The next frame; none at the end of the input, on a read error, or when woken.
  std::optional<Frame> next();
  void resynchronise() { decoder_.resynchronise(); }

 private:
  int input_;
  int wake_;
  FrameDecoder decoder_;
};

// Writes messages to a file descriptor; any thread may write, a whole message at a time.
class MessageWriter {
 public:
  explicit MessageWriter(int output) : output_(output) {}
  // False when the output is closed or broken (the message, and every later one, is dropped).
  bool write(const Json& message);
  // The same for a message already written as JSON text.
  bool write_body(std::string_view body);

 private:
  int output_;
  std::mutex mutex_;
  bool broken_ = false;  // guarded by mutex_
};

}  // namespace tarnwick::lsp
