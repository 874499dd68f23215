// A progress line for a person watching a long run: files done, throughput, time elapsed and
// left. It is shown only when stderr is a terminal that stdout is not, so it never mixes with
// the output, and is cleared before any other line goes to stderr, at the end and on an
// interrupt.
#pragma once

#include <chrono>
#include <cstddef>
#include <iosfwd>

namespace tarnwick::cli {

// What a run did, for the line that follows the progress line at the end.
struct Summary {
  std::size_t files = 0;
  std::size_t sections = 0;
  std::size_t links = 0;
  std::size_t errors = 0;
};

class Progress {
 public:
  Progress(std::size_t total_files, std::ostream& err, bool quiet);
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  ~Progress();

  void advance(std::size_t bytes);
  // Clears the line, so that another line can be written to stderr.
  void clear();
  // Clears the line; if it was ever shown, writes the summary in its place.
  void finish(const Summary& summary);

 private:
  using Clock = std::chrono::steady_clock;
  std::ostream& err_;
  bool enabled_;
  bool shown_ = false;
  bool on_screen_ = false;
  std::size_t total_files_;
  std::size_t files_ = 0;
  std::size_t bytes_ = 0;
  Clock::time_point start_ = Clock::now();
  Clock::time_point last_shown_ = start_;
};

}  // namespace tarnwick::cli
