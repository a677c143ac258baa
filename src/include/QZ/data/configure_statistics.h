#pragma once

/// Statistics of all single vertices and all pairs of vertices, with offsets for all small subsets.

#include <algorithm>
#include <atomic>
#include <memory>
#include <new>
#include <random>
#include <vector>

#include "QZ/comb/subsets.h"
#include "QZ/data/categorical_data.h"
#include "QZ/data/column_block.h"
#include "QZ/data/imputation.h"
#include "QZ/data/pair_counting.h"
#include "QZ/data/statistics.h"
#include "QZ/graph/abstract_graph.h"
#include "QZ/support/conversions.h"
#include "QZ/support/first_exception.h"
#include "QZ/support/parallel.h"
#include "QZ/support/progress.h"

namespace QZ {

/// The subsets of n vertices with 1 to k members: those of one order follow those of the order
/// below, by their number in `QZ/comb/subsets.h`.
template <class idx_t>
class SubsetOrders {
 public:
  /// Throws logic_error if the index type cannot number the subsets.
  SubsetOrders(unsigned long n, unsigned long k) : n_(n), k_(std::min(n, k)) {
    unsigned __int128 total = 0;
    for (unsigned long order = 0; order <= k_; ++order) total += subset_count(n, order);
    if (total > std::numeric_limits<idx_t>::max()) statistics_too_wide();
    places_ = static_cast<idx_t>(total);
  }

  /// The subsets with 0 to k members.
  idx_t places() const { return places_; }

  /// Writes the product of the members' state counts of each subset to its place in `sizes`,
  /// counted from 1, and returns the sum of those of orders 1 and 2. Wraps in `idx_t`. Thread 0 of
  /// the team reports (place of the subsets done, places - 1).
  idx_t write_sizes(const idx_t* states, idx_t* sizes, const Progress& progress) const {
    idx_t length = 0;
    std::vector<idx_t> members(k_ * static_cast<unsigned long>(omp_get_max_threads()));
    unsigned long base = 1;
    for (unsigned long order = 1; order <= k_; ++order) {
      const unsigned long count = subset_count(n_, order);
      std::atomic<unsigned long> done{0};
      FirstException failure;
#pragma omp parallel
      failure.guard([&] {
        const bool reports = omp_get_thread_num() == 0;
        idx_t* const own = members.data() + k_ * omp_get_thread_num();
        idx_t sum = 0;
        const auto [first, last] = my_share<unsigned long>(count);
        for (unsigned long rank = first; rank < last; ++rank) {
          if (reports) progress(base + done.load(std::memory_order_relaxed), places_ - 1ul);
          unrank(n_, order, rank, own);
          idx_t product = 1;
          for (unsigned long i = 0; i < order; ++i) product = wrapping_mul(product, states[own[i]]);
          sizes[base + rank] = product;
          if (order < 3) sum = wrapping_add(sum, product);
          done.fetch_add(1, std::memory_order_relaxed);
        }
        atomic_add(length, sum);
      });
      failure.rethrow();
      base += count;
    }
    return length;
  }

 private:
  unsigned long n_;
  unsigned long k_;
  idx_t places_ = 0;
};

/// Throws logic_error if the index type cannot address the blocks of all vertices and, with
/// `pairs`, all pairs of vertices.
template <class idx_t>
void require_pair_offsets(unsigned long n, bool pairs, const idx_t* states) {
  ExactLength length;
  for (unsigned long v = 0; v < n; ++v) {
    length.add(states[v], 1);
    for (unsigned long w = v + 1; pairs && w < n; ++w) length.add(states[v], states[w]);
  }
  if (!length.fits<idx_t>()) statistics_too_wide();
}

/// Counts the rows of `data` by the states of each vertex of `graph` and of each pair of vertices,
/// whether or not the graph joins them, and lays out offsets for all subsets of up to `k` vertices.
///
/// Offsets: a new array with one entry for each subset of 0 to k vertices. Entry j is the start of
/// subset j, counted from the single vertices on, and the last entry is the end. Single vertices
/// are numbered like all subsets, so that vertex n - 1 comes first. Beyond pairs the offsets only
/// tell sizes, and wrap in `idx_t`.
///
/// Statistics: a new array of `length` counts, for single vertices and pairs only. The block of the
/// pair a < b holds x[b] + x[a] * states[b] and is that of the same edge in `sumStats` on `Kn`.
/// With k = 1 there is no room for pairs, and only vertices are counted.
///
/// Table: missing cells are drawn as in `sumStats`, passed through a double and cut to 16 bits.
///
/// Progress: may be null. Called by one thread as (step, steps, tag), with the tags "STATE" and
/// "IDX  " for the offsets and "STATS" for each row.
///
/// False if memory ran out; an offset array that was complete by then stays with the caller, as
/// both arrays do on success. Throws and asserts as `sumStats` does.
template <class idx_t, class val_t>
bool configureStats(CategoricalData* data, const AbstractGraph<idx_t>* graph, idx_t* states,
                    std::mt19937* rng, idx_t& k, val_t*& stats, idx_t*& offsets, idx_t& numOffsets,
                    idx_t& length, ProgressCallback progress) try {
  const unsigned long n = graph->vertices();
  const SubsetOrders<idx_t> subsets(n, k);
  if (data->N > 0) require_pair_offsets(n, k >= 2, states);
  auto new_offsets = std::make_unique<idx_t[]>(subsets.places());
  const idx_t entries = subsets.write_sizes(states, new_offsets.get(), {progress, "STATE"});
  const Progress summing{progress, "IDX  "};
  for (unsigned long j = 1; j < subsets.places(); ++j) {
    summing(j, subsets.places() - 1ul);
    new_offsets[j] = wrapping_add(new_offsets[j], new_offsets[j - 1]);
  }
  offsets = new_offsets.release();
  numOffsets = subsets.places();
  length = entries;
  auto new_stats = std::make_unique<val_t[]>(entries);
  const Progress counting{progress, "STATS"};
  const auto draw = [&](unsigned long c) {
    return signed_cast<unsigned short>(static_cast<double>(draw_state(*rng, states[c])));
  };
  const auto column_of = [&](unsigned long rank) { return n - 1 - rank; };
  const auto pair_of = [&](unsigned long rank) {
    const ElementPair pair = unrank_pair(n, rank);
    return Endpoints<unsigned long>{pair.low, pair.high};
  };
  ColumnBlock block(*data, k > 0 ? n : 0, states);
  for (unsigned long begin = 0; begin < data->N; begin += block.capacity()) {
    const unsigned long end = std::min(begin + block.capacity(), data->N);
    for (unsigned long row = begin; row < end; ++row) {
      counting(row, data->N - 1);
      impute(*data, n, row, row + 1, draw);
    }
    block.load(begin, end);
    add_counts(block, column_of, k >= 2 ? subset_count(n, 2) : 0, pair_of, offsets,
               new_stats.get());
  }
  stats = new_stats.release();
  return true;
} catch (const std::bad_alloc&) {
  return false;
}

}  // namespace QZ
