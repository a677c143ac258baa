#pragma once

/// Exceptions of the threads of a team. One that left a parallel region would end the process.

#include <atomic>
#include <chrono>
#include <exception>
#include <thread>
#include <utility>

#include "QZ/support/assertion.h"

namespace QZ {

/// Keeps the first exception that any thread of a team meets, for the thread that opened the
/// region. Made before the region and asked behind it. What that thread wants done about broken
/// invariants holds for the others too.
class FirstException {
 public:
  FirstException() = default;
  /// With `ends_process`, an exception is passed on only to callers that must go on whatever
  /// happens, which are those that have set `assertion_handler`; otherwise it ends the process.
  explicit FirstException(bool ends_process)
      : ends_process_(ends_process && assertion_handler == nullptr) {}
  FirstException(const FirstException&) = delete;
  FirstException& operator=(const FirstException&) = delete;

  /// Does `work` and keeps what it throws. Neither barriers nor work shared with the other threads
  /// may follow in `work` behind what can throw: they would wait for this thread.
  template <class Work>
  void guard(Work&& work) noexcept {
    const auto own_handler = std::exchange(assertion_handler, handler_);
    try {
      std::forward<Work>(work)();
    } catch (...) {
      const bool first = !met_.exchange(true);
      if (ends_process_) end_process(first);
      if (first) exception_ = std::current_exception();
    }
    assertion_handler = own_handler;
  }

  /// Whether some thread has met one, so that the others need not go on.
  bool met() const { return met_.load(std::memory_order_relaxed); }

  /// Behind the region: throws what was kept, if anything was.
  void rethrow() const {
    if (exception_) std::rethrow_exception(exception_);
  }

 private:
  /// The first thread says what happened. The others wait for the end: a second call would cut the
  /// first one's message short.
  [[noreturn]] static void end_process(bool first) noexcept {
    if (first) std::terminate();
    while (true) std::this_thread::sleep_for(std::chrono::seconds(1));
  }

  const AssertionHandler handler_ = assertion_handler;
  const bool ends_process_ = false;
  std::atomic<bool> met_{false};
  std::exception_ptr exception_;
};

}  // namespace QZ
