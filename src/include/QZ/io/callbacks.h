#pragma once

/// What the container and its learners are given to ask for counts and block numbers.

#include <functional>

namespace QZ {

/// Counts the joint states of a vertex set. The handle is the address of a pointer to an ordered
/// set of vertices; the result is a new array of `size` counts, the largest vertex as the fastest
/// digit, and belongs to the caller.
template <class idx_t, class val_t>
using StatFunction = std::function<val_t*(unsigned long handle, const idx_t& size)>;

/// The number of the statistics block that belongs to a pair of vertices.
template <class idx_t>
using EdgeIndexFunction = std::function<idx_t(const idx_t& a, const idx_t& b)>;

}  // namespace QZ
