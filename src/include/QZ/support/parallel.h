#pragma once

/// Work sharing among the threads of one OpenMP team.

#include <omp.h>

#include <atomic>

namespace QZ {

/// Half-open range of items.
template <class idx_t>
struct Range {
  idx_t begin;
  idx_t end;
};

/// The contiguous share of `items` that belongs to `thread` of `threads`: items / threads each, and
/// one more for the first items mod threads of them. No bound exceeds `items`, so all fit `idx_t`.
template <class idx_t>
constexpr Range<idx_t> static_share(idx_t items, int thread, int threads) {
  const unsigned long team = static_cast<unsigned long>(threads);
  const unsigned long rank = static_cast<unsigned long>(thread);
  const unsigned long base = items / team;
  const unsigned long extra = items % team;
  const unsigned long begin = rank * base + (rank < extra ? rank : extra);
  return {static_cast<idx_t>(begin), static_cast<idx_t>(begin + base + (rank < extra ? 1 : 0))};
}

/// The share of the calling thread in its current team.
template <class idx_t>
Range<idx_t> my_share(idx_t items) {
  return static_share<idx_t>(items, omp_get_thread_num(), omp_get_num_threads());
}

/// Adds to a value that other threads may add to at the same time.
template <class val_t>
void atomic_add(val_t& target, val_t amount) {
  std::atomic_ref<val_t>(target).fetch_add(amount, std::memory_order_relaxed);
}

/// Raises a value that other threads may raise at the same time. A NaN raises nothing.
template <class val_t>
void atomic_max(val_t& target, val_t candidate) {
  std::atomic_ref<val_t> shared(target);
  val_t seen = shared.load(std::memory_order_relaxed);
  while (candidate > seen && !shared.compare_exchange_weak(seen, candidate)) {
  }
}

}  // namespace QZ
