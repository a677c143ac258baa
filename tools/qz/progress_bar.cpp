#include "progress_bar.h"

#include <algorithm>
#include <cstdio>
#include <iostream>

namespace qz_tool {

namespace {

constexpr std::size_t bar_width = 30;
constexpr auto redraw_every = std::chrono::milliseconds(100);

std::string rate_text(double per_second) {
  constexpr const char* units[] = {"/s", "k/s", "M/s", "G/s"};
  std::size_t unit = 0;
  while (per_second >= 1000 && unit < 3) {
    per_second /= 1000;
    ++unit;
  }
  char text[32];
  std::snprintf(text, sizeof text, "%.1f%s", per_second, units[unit]);
  return text;
}

}  // namespace

std::string progress_line(const std::string& tag, std::size_t done, std::size_t total,
                          double per_second) {
  const double share = total == 0 ? 1.0 : static_cast<double>(done) / static_cast<double>(total);
  const auto filled = static_cast<std::size_t>(std::clamp(share, 0.0, 1.0) * bar_width);
  return tag + " [" + std::string(filled, '#') + std::string(bar_width - filled, '.') + "] " +
         std::to_string(done) + "/" + std::to_string(total) + " " + rate_text(per_second);
}

void ProgressBar::show(std::size_t done, std::size_t total, const std::string& tag) {
  if (!enabled_) return;
  const Clock::time_point now = Clock::now();
  if (tag != tag_ || done < last_done_) {
    tag_ = tag;
    first_done_ = done;
    start_ = now;
  } else if (visible_ && now - drawn_ < redraw_every && done < total) {
    last_done_ = done;
    return;
  }
  last_done_ = done;
  drawn_ = now;
  visible_ = true;
  const double seconds = std::chrono::duration<double>(now - start_).count();
  const double rate = seconds > 0 ? static_cast<double>(done - first_done_) / seconds : 0;
  // Back to the start of the line, and away with what a longer text left there.
  std::cerr << '\r' << progress_line(tag, done, total, rate) << "\033[K" << std::flush;
}

void ProgressBar::clear() {
  if (visible_) std::cerr << "\r\033[K" << std::flush;
  visible_ = false;
}

}  // namespace qz_tool
