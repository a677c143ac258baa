#pragma once

/// Progress reports to the caller.

#include <cstddef>

namespace QZ {

/// Called with the steps done, the steps in all, and a short tag that names the work.
using ProgressCallback = void (*)(std::size_t done, std::size_t total, const char* tag);

/// A callback, which may be null, together with the tag of the current work.
struct Progress {
  ProgressCallback callback = nullptr;
  const char* tag = "";

  void operator()(std::size_t done, std::size_t total) const {
    if (callback != nullptr) callback(done, total, tag);
  }
};

}  // namespace QZ
