#pragma once

/// Giving the container a learned graph.

#include <algorithm>
#include <cstddef>
#include <limits>
#include <memory>
#include <set>
#include <stdexcept>

#include "QZ/comb/subsets.h"
#include "QZ/data/statistics.h"
#include "QZ/graph/graph.h"
#include "QZ/io/model_container.h"
#include "QZ/support/conversions.h"

namespace QZ {

/// The graph of a symmetric 0/1 matrix, its edges numbered by a scan of the strict upper triangle.
template <class idx_t>
std::unique_ptr<Graph<idx_t>> graph_of_matrix(const idx_t* adjacency, idx_t n) {
  const std::size_t cells = static_cast<std::size_t>(n) * n;
  std::size_t sum = 0;
  for (std::size_t i = 0; i < cells; ++i) sum += adjacency[i];
  if (sum / 2 > std::numeric_limits<idx_t>::max()) {
    throw std::logic_error("the index type is too narrow for this graph");
  }
  return std::make_unique<Graph<idx_t>>(adjacency, n, static_cast<idx_t>(sum / 2));
}

/// Counts the joint states of the pair with number `rank` among those of n vertices into `block`.
template <class idx_t, class val_t>
void count_pair_block(const StatFunction<idx_t, val_t>& count, std::size_t n, idx_t rank,
                      idx_t size, val_t* block) {
  if (rank >= subset_count(n, 2)) {
    throw std::logic_error("there are no statistics of a learned edge");
  }
  const ElementPair pair = unrank_pair(n, rank);
  std::set<idx_t> members{static_cast<idx_t>(pair.low), static_cast<idx_t>(pair.high)};
  std::set<idx_t>* const handle = &members;
  const std::unique_ptr<val_t[]> counts(count(reinterpret_cast<unsigned long>(&handle), size));
  std::copy_n(counts.get(), size, block);
}

template <class idx_t, class val_t>
void IO<idx_t, val_t>::reconfigure(idx_t* adjacency, EdgeIndexFunction<idx_t> edgeIndex,
                                   StatFunction<idx_t, val_t> statFunction) {
  const std::size_t n = graph->vertices();
  auto learned = graph_of_matrix<idx_t>(adjacency, graph->vertices());
  const std::size_t edges = learned->edges();
  idx_t places = 0;
  auto starts = statistics_offsets<idx_t>(*learned, states, true, places);
  // The vertex blocks stay as they are, whichever order their counter gave them.
  std::copy_n(offsets, n + 1, starts.get());
  auto counts = std::make_unique<val_t[]>(starts[n + edges]);
  const idx_t new_dim = wrapping_sub(starts[n + edges], starts[n]);
  auto zeroes = std::make_unique<val_t[]>(new_dim);
  std::copy_n(stats, offsets[n], counts.get());
  for (std::size_t e = 0; e < edges; ++e) {
    const auto [s, t] = endpoints<idx_t>(*learned, static_cast<idx_t>(e));
    const std::size_t r = edgeIndex(s, t);
    const idx_t size = wrapping_mul(states[s], states[t]);
    val_t* block = counts.get() + starts[n + e];
    if (statFunction) {
      count_pair_block<idx_t>(statFunction, n, r, size, block);
    } else {
      if (n + r + 1 >= numOffsets || size > statsLength - offsets[n + r]) {
        throw std::logic_error("there are no statistics of a learned edge");
      }
      std::copy_n(stats + offsets[n + r], size, block);
    }
  }

  numOffsets = places;
  dim = new_dim;
  statsLength = starts[n + edges];
  delete graph;
  delete[] stats;
  delete[] offsets;
  delete[] weights;
  graph = learned.release();
  stats = counts.release();
  offsets = starts.release();
  weights = zeroes.release();
}

}  // namespace QZ
