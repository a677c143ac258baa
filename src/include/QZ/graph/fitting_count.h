#pragma once

#include <limits>
#include <stdexcept>

namespace QZ {

/// A count of vertices or edges as `idx_t`. Throws logic_error if `idx_t` cannot number them: the
/// lists of a graph would be shorter than what is written to them.
template <class idx_t>
idx_t fitting_count(unsigned __int128 count) {
  if (count > std::numeric_limits<idx_t>::max()) {
    throw std::logic_error("the index type is too narrow for this graph");
  }
  return static_cast<idx_t>(count);
}

}  // namespace QZ
