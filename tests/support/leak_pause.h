#pragma once

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#endif

namespace qz_test {

/// While it lives, what this thread allocates counts as no leak. For programs that lose memory by
/// design, such as those that fail midway; does nothing without the address sanitizer.
class LeakPause {
 public:
#ifdef __SANITIZE_ADDRESS__
  LeakPause() { __lsan_disable(); }
  ~LeakPause() { __lsan_enable(); }
#else
  LeakPause() = default;
  ~LeakPause() {}
#endif
  LeakPause(const LeakPause&) = delete;
  LeakPause& operator=(const LeakPause&) = delete;
};

}  // namespace qz_test
