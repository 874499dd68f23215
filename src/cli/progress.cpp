#include "cli/progress.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>

#include <atomic>
#include <csignal>
#include <ostream>

namespace tarnwick::cli {

namespace {

constexpr auto DELAY = std::chrono::seconds(1);
constexpr auto INTERVAL = std::chrono::milliseconds(200);
constexpr std::string_view CLEAR_LINE = "\r\033[K";

// Whether a progress line is on the screen, for the interrupt handler: the one piece of state
// a signal handler can read.
std::atomic<bool> line_on_screen = false;

extern "C" void clear_and_stop(int signal) {
  if (line_on_screen) {
    [[maybe_unused]] const auto written =
        ::write(STDERR_FILENO, CLEAR_LINE.data(), CLEAR_LINE.size());
  }
  std::signal(signal, SIG_DFL);
  std::raise(signal);
}

// stderr is a terminal, and stdout is not the same one.
bool progress_fits() {
  if (::isatty(STDERR_FILENO) != 1) return false;
  if (::isatty(STDOUT_FILENO) != 1) return true;
  struct stat out {
  }, err{};
  return ::fstat(STDOUT_FILENO, &out) == 0 && ::fstat(STDERR_FILENO, &err) == 0 &&
         out.st_rdev != err.st_rdev;
}

std::string duration(double seconds) {
  const auto whole = static_cast<long>(seconds);
  return whole >= 60 ? fmt::format("{}m{:02}s", whole / 60, whole % 60)
                     : fmt::format("{:.1f}s", seconds);
}

}  // namespace

Progress::Progress(std::size_t total_files, std::ostream& err, bool quiet)
    : err_(err), enabled_(!quiet && progress_fits()), total_files_(total_files) {
  if (enabled_) {
    std::signal(SIGINT, clear_and_stop);
    std::signal(SIGTERM, clear_and_stop);
  }
}

Progress::~Progress() {
  clear();
  if (enabled_) {
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGTERM, SIG_DFL);
  }
}

void Progress::advance(std::size_t bytes) {
  ++files_;
  bytes_ += bytes;
  if (!enabled_) return;
  const auto now = Clock::now();
  if (now - start_ < DELAY || now - last_shown_ < INTERVAL) return;
  last_shown_ = now;
  shown_ = on_screen_ = true;
  const double seconds = std::chrono::duration<double>(now - start_).count();
  const double left = seconds * static_cast<double>(total_files_ - files_) / files_;
  err_ << fmt::format("{}{}/{} files, {:.1f} MB/s, {} elapsed, {} left", CLEAR_LINE, files_,
                      total_files_, bytes_ / 1e6 / seconds, duration(seconds), duration(left))
       << std::flush;
  line_on_screen = true;
}

void Progress::clear() {
  if (!on_screen_) return;
  line_on_screen = false;
  err_ << CLEAR_LINE << std::flush;
  on_screen_ = false;
}

void Progress::finish(const Summary& summary) {
  clear();
  if (!shown_) return;
  const double seconds = std::chrono::duration<double>(Clock::now() - start_).count();
  err_ << fmt::format("{} files, {} sections, {} links, {} errors in {}\n", summary.files,
                      summary.sections, summary.links, summary.errors, duration(seconds));
}

}  // namespace tarnwick::cli
