// A progress line on a terminal: files done and throughput, shown once indexing has taken
// more than a second, and never when stderr is a pipe or a file.
#pragma once

#include <chrono>
#include <cstddef>
#include <iosfwd>

namespace tarnwick::cli {

class Progress {
 public:
  Progress(std::size_t total_files, std::ostream& out);
  void advance(std::size_t bytes);
  void finish();

 private:
  using Clock = std::chrono::steady_clock;
  std::ostream& out_;
  bool enabled_;
  bool shown_ = false;
  std::size_t total_files_;
  std::size_t files_ = 0;
  std::size_t bytes_ = 0;
  Clock::time_point start_ = Clock::now();
  Clock::time_point last_shown_ = start_;
};

}  // namespace tarnwick::cli
