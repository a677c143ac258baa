#pragma once

/// Hears the callbacks of a run: feeds the progress bar and keeps the optimizer's iteration count,
/// which no register holds.

#include <cstddef>
#include <cstdint>

#include "context.h"
#include "progress_bar.h"

namespace qz_tool {

class RunMonitor {
 public:
  /// Hooks itself into `CBP` and `CBO` of `context`. The callbacks carry no caller's data, so one
  /// monitor can be alive at a time.
  RunMonitor(Context& context, ProgressBar& bar);
  ~RunMonitor();
  RunMonitor(const RunMonitor&) = delete;
  RunMonitor& operator=(const RunMonitor&) = delete;

  /// Iterations of the last ESTIMATE, 0 before the first one.
  std::uint64_t iterations() const { return iterations_; }

 private:
  static void on_progress(std::size_t done, std::size_t total, const char* tag);
  static void on_step(void* record);
  void step(const unsigned char* record);

  static RunMonitor* current_;

  Context& context_;
  ProgressBar& bar_;
  std::uint64_t iterations_ = 0;
};

}  // namespace qz_tool
