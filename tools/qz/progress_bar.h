#pragma once

/// One line on a terminal that says how far the current work has come.

#include <chrono>
#include <cstddef>
#include <string>

namespace qz_tool {

class ProgressBar {
 public:
  /// A bar that is not `enabled` writes nothing at all.
  explicit ProgressBar(bool enabled) : enabled_(enabled) {}
  ~ProgressBar() { clear(); }
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;

  /// Redraws the line, ten times a second at most. A new tag starts the clock anew.
  void show(std::size_t done, std::size_t total, const std::string& tag);
  /// Wipes the line, so that other output starts on a clean one.
  void clear();

 private:
  using Clock = std::chrono::steady_clock;

  bool enabled_;
  bool visible_ = false;
  std::string tag_;
  std::size_t first_done_ = 0;
  std::size_t last_done_ = 0;
  Clock::time_point start_;
  Clock::time_point drawn_;
};

/// The text of the bar: tag, a bar of fixed width, done/total and steps per second.
std::string progress_line(const std::string& tag, std::size_t done, std::size_t total,
                          double per_second);

}  // namespace qz_tool
