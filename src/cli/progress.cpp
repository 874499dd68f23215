#include "cli/progress.hpp"

#include <unistd.h>

#include <fmt/format.h>

#include <ostream>

namespace tarnwick::cli {

namespace {

constexpr auto DELAY = std::chrono::seconds(1);
constexpr auto INTERVAL = std::chrono::milliseconds(200);

}  // namespace

Progress::Progress(std::size_t total_files, std::ostream& out)
    : out_(out), enabled_(isatty(STDERR_FILENO) == 1), total_files_(total_files) {}

void Progress::advance(std::size_t bytes) {
  ++files_;
  bytes_ += bytes;
  if (!enabled_) return;
  const auto now = Clock::now();
  if (now - start_ < DELAY || now - last_shown_ < INTERVAL) return;
  last_shown_ = now;
  shown_ = true;
  const double seconds = std::chrono::duration<double>(now - start_).count();
  out_ << fmt::format("\r{}/{} files, {:.1f} MB/s", files_, total_files_, bytes_ / 1e6 / seconds)
       << std::flush;
}

void Progress::finish() {
  if (shown_) out_ << "\r\033[K" << std::flush;
}

}  // namespace tarnwick::cli
