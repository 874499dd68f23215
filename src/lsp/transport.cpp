#include "lsp/transport.hpp"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>

#include "text/white_space.hpp"

namespace tarnwick::lsp {

namespace {

constexpr std::string_view CONTENT_LENGTH = "content-length";
constexpr std::size_t READ_SIZE = 64 * 1024;

bool equals_ignoring_case(std::string_view text, std::string_view lowercase) {
  return text.size() == lowercase.size() &&
         std::equal(text.begin(), text.end(), lowercase.begin(), [](char a, char b) {
           return (a >= 'A' && a <= 'Z' ? static_cast<char>(a - 'A' + 'a') : a) == b;
         });
}

// Whether `text` could be, or is, the start of a Content-Length header line: "none" when it
// cannot, "maybe" when it is too short to tell.
enum class Match { none, maybe, yes };
Match content_length_line(std::string_view text) {
  constexpr std::string_view header = "content-length:";
  const std::size_t n = std::min(text.size(), header.size());
  if (!equals_ignoring_case(text.substr(0, n), header.substr(0, n))) return Match::none;
  return n == header.size() ? Match::yes : Match::maybe;
}

std::optional<std::size_t> parse_length(std::string_view value) {
  value = text::strip(value);
  std::size_t length = 0;
  const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), length);
  if (value.empty() || error != std::errc() || end != value.data() + value.size()) {
    return std::nullopt;
  }
  return length;
}

}  // namespace

void FrameDecoder::feed(std::string_view bytes) {
  compact();
  buffer_.append(bytes);
}

void FrameDecoder::compact() {
  if (pos_ > 0 && pos_ >= buffer_.size() / 2) {
    buffer_.erase(0, pos_);
    pos_ = 0;
  }
}

Frame FrameDecoder::fail(std::string error, bool at_line_start) {
  state_ = State::skipping;
  at_line_start_ = at_line_start;
  in_header_block_ = false;
  length_.reset();
  return Frame{{}, std::move(error)};
}

void FrameDecoder::resynchronise() {
  state_ = State::skipping;
  at_line_start_ = true;
  in_header_block_ = false;
  length_.reset();
}

std::optional<Frame> FrameDecoder::next() {
  for (;;) {
    const std::string_view rest = std::string_view(buffer_).substr(pos_);
    if (state_ == State::body) {
      if (rest.size() < *length_) return std::nullopt;
      Frame frame{std::string(rest.substr(0, *length_)), std::nullopt};
      pos_ += *length_;
      state_ = State::headers;
      in_header_block_ = false;
      length_.reset();
      return frame;
    }
    if (state_ == State::skipping) {
      if (at_line_start_) {
        const Match match = content_length_line(rest);
        if (match == Match::maybe) return std::nullopt;
        if (match == Match::yes) {
          state_ = State::headers;
          continue;
        }
      }
      const std::size_t end = rest.find('\n');
      at_line_start_ = end != std::string_view::npos;
      pos_ = at_line_start_ ? pos_ + end + 1 : buffer_.size();
      if (!at_line_start_) return std::nullopt;
      continue;
    }
    const std::size_t end = rest.find('\n');
    if (end == std::string_view::npos) {
      if (rest.size() <= MAX_HEADER_LINE) return std::nullopt;
      pos_ = buffer_.size();
      return fail("a header line is longer than " + std::to_string(MAX_HEADER_LINE) + " bytes",
                  false);
    }
    std::string_view line = rest.substr(0, end);
    if (line.ends_with('\r')) line.remove_suffix(1);
    pos_ += end + 1;
    if (line.size() > MAX_HEADER_LINE) {
      return fail("a header line is longer than " + std::to_string(MAX_HEADER_LINE) + " bytes");
    }
    if (line.empty()) {
      if (!in_header_block_) continue;  // a blank line between messages
      if (!length_) return fail("a header block without a Content-Length header");
      state_ = State::body;
      continue;
    }
    in_header_block_ = true;
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos) {
      return fail("a header line without ':': \"" + std::string(line.substr(0, 80)) + "\"");
    }
    const std::string_view name = text::strip(line.substr(0, colon));
    const std::string_view value = line.substr(colon + 1);
    if (equals_ignoring_case(name, CONTENT_LENGTH)) {
      const auto length = parse_length(value);
      if (!length) {
        return fail("a Content-Length that is not a number: \"" +
                    std::string(text::strip(value).substr(0, 40)) + "\"");
      }
      if (*length > MAX_CONTENT_LENGTH) {
        return fail("a Content-Length of " + std::to_string(*length) + " bytes, more than the " +
                    std::to_string(MAX_CONTENT_LENGTH) + " read");
      }
      if (length_ && *length_ != *length) return fail("two different Content-Length headers");
      length_ = *length;
    }
    // Other headers, Content-Type among them, say nothing the body does not.
  }
}

std::optional<Frame> MessageReader::next() {
  std::array<char, READ_SIZE> chunk;
  for (;;) {
    if (auto frame = decoder_.next()) return frame;
    std::array<pollfd, 2> watched{{{input_, POLLIN, 0}, {wake_, POLLIN, 0}}};
    const int ready = ::poll(watched.data(), wake_ >= 0 ? 2 : 1, -1);
    if (ready < 0) {
      if (errno == EINTR) continue;
      return std::nullopt;
    }
    if (wake_ >= 0 && watched[1].revents != 0) return std::nullopt;
    const ssize_t n = ::read(input_, chunk.data(), chunk.size());
    if (n < 0 && (errno == EINTR || errno == EAGAIN)) continue;
    if (n <= 0) return std::nullopt;
    decoder_.feed(std::string_view(chunk.data(), static_cast<std::size_t>(n)));
  }
}

bool MessageWriter::write(const Json& message) {
  return write_body(serialize(message));
}

bool MessageWriter::write_body(std::string_view body) {
  std::string bytes = "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n";
  bytes.append(body);
  const std::lock_guard lock(mutex_);
  for (std::size_t written = 0; !broken_ && written < bytes.size();) {
    const ssize_t n = ::write(output_, bytes.data() + written, bytes.size() - written);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0)
      broken_ = true;
    else
      written += static_cast<std::size_t>(n);
  }
  return !broken_;
}

}  // namespace tarnwick::lsp
