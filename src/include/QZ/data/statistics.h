#pragma once

/// Sufficient statistics of a pairwise model: how often each state of each vertex and each pair of
/// states of each edge occurs in a table.

#include <limits>
#include <memory>
#include <random>
#include <stdexcept>

#include "QZ/data/categorical_data.h"
#include "QZ/data/column_block.h"
#include "QZ/data/imputation.h"
#include "QZ/data/pair_counting.h"
#include "QZ/graph/abstract_graph.h"
#include "QZ/support/conversions.h"

namespace QZ {

/// An index type in which the offsets of statistics would wrap cannot address them.
[[noreturn]] inline void statistics_too_wide() {
  throw std::logic_error("the index type is too narrow for the statistics");
}

/// An exact sum of products of state counts, which says whether an index type can hold it.
class ExactLength {
 public:
  void add(unsigned long s, unsigned long t) { sum_ += static_cast<unsigned __int128>(s) * t; }

  template <class idx_t>
  bool fits() const {
    return sum_ <= std::numeric_limits<idx_t>::max();
  }

 private:
  unsigned __int128 sum_ = 0;
};

/// The offset table of `sumStats`: vertex blocks first, then edge blocks, then the total length.
/// Throws logic_error if the index type cannot number the blocks, or, when there is something to
/// count, their entries.
template <class idx_t>
std::unique_ptr<idx_t[]> statistics_offsets(const AbstractGraph<idx_t>& graph, const idx_t* states,
                                            bool anything_to_count, idx_t& numOffsets) {
  const unsigned long n = graph.vertices();
  const unsigned long m = graph.edges();
  numOffsets = wrapping_cast<idx_t>(n + m + 1);
  if (numOffsets != n + m + 1) statistics_too_wide();
  auto offsets = std::make_unique<idx_t[]>(numOffsets);
  ExactLength length;
  idx_t end = 0;
  for (unsigned long v = 0; v < n; ++v) {
    end = wrapping_add(end, states[v]);
    offsets[v + 1] = end;
    length.add(states[v], 1);
  }
  for (unsigned long e = 0; e < m; ++e) {
    const auto [s, t] = endpoints(graph, static_cast<idx_t>(e));
    end = wrapping_add(end, wrapping_mul(states[s], states[t]));
    offsets[n + e + 1] = end;
    length.add(states[s], states[t]);
  }
  if (anything_to_count && !length.fits<idx_t>()) statistics_too_wide();
  return offsets;
}

/// Counts the rows of `data` by the states of the n vertices and m edges of `graph`; vertex v is
/// column v, a hidden one from the visible count on. Always true.
///
/// Offsets: a new array of n + m + 1 entries, the start of each vertex's block, of each edge's
/// block, and the total length, which also goes to `length`.
///
/// Statistics: a new array. stats[offsets[v] + x] rows have vertex v in state x, and
/// stats[offsets[n + e] + xs * states[t] + xt] rows have the endpoints (s, t) of edge e in (xs,
/// xt). Counts, as adding one by one in `val_t` gives them.
///
/// Table: missing cells of the n columns are drawn uniformly from the states of their vertex, row
/// by row with ascending columns, and stay filled.
///
/// The new arrays belong to the caller; arrays that the references held before are not released. On
/// an exception the references stay as they were. Throws logic_error if the index type is too
/// narrow for the layout or a cell is beyond the states of its vertex. Asserts what access to cells
/// asserts.
template <class idx_t, class val_t>
bool sumStats(CategoricalData* data, const AbstractGraph<idx_t>* graph, idx_t* states,
              std::mt19937* rng, val_t*& stats, idx_t*& offsets, idx_t& numOffsets, idx_t& length) {
  const unsigned long n = graph->vertices();
  const unsigned long m = graph->edges();
  idx_t places = 0;
  auto new_offsets = statistics_offsets(*graph, states, data->N > 0, places);
  const idx_t entries = new_offsets[n + m];
  auto new_stats = std::make_unique<val_t[]>(entries);
  const auto draw = [&](unsigned long c) {
    return wrapping_cast<unsigned short>(draw_state(*rng, states[c]));
  };
  const auto column_of = [](unsigned long v) { return v; };
  const auto pair_of = [&](unsigned long e) { return endpoints(*graph, static_cast<idx_t>(e)); };
  ColumnBlock block(*data, n, states);
  for (unsigned long begin = 0; begin < data->N; begin += block.capacity()) {
    const unsigned long end = std::min(begin + block.capacity(), data->N);
    impute(*data, n, begin, end, draw);
    block.load(begin, end);
    add_counts(block, column_of, m, pair_of, new_offsets.get(), new_stats.get());
  }
  stats = new_stats.release();
  offsets = new_offsets.release();
  numOffsets = places;
  length = entries;
  return true;
}

}  // namespace QZ
