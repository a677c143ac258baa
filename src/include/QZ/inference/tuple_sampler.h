#pragma once

/// Random tuples of parameters that agree with each other.

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <random>
#include <vector>

#include "QZ/comb/counting.h"
#include "QZ/comb/partitions.h"
#include "QZ/comb/permutations.h"
#include "QZ/graph/abstract_graph.h"
#include "QZ/support/conversions.h"
#include "QZ/support/random.h"

namespace QZ {

/// Draws a length d from given weights, and then a d-tuple of edges together with a configuration
/// of their vertices, uniformly among all pairs of tuple and configuration of the tuple's own
/// vertices.
///
/// A d-tuple over m edges is a set of j distinct edges, a partition of the d positions into j
/// blocks and an order of the blocks, so that there are stirling2(d, j) * binom(m, j) * j! of them;
/// j is drawn with that weight, and then each of the three by its number. The time for a draw does
/// not depend on the number of configurations. The lists of partitions end at 15 positions, and at
/// 8 for an 8-bit `idx_t`: a longer draw stops at their assertions.
template <class idx_t>
class TupleSampler {
  static constexpr std::size_t longest = 15;
  using Choice = std::discrete_distribution<unsigned long>;

 public:
  /// All three are borrowed. `weight_offsets` is the table of the engine.
  TupleSampler(const AbstractGraph<idx_t>* graph, const idx_t* states, const idx_t* weight_offsets,
               std::size_t degree);

  /// Sets the weights of the lengths 0 to degree. Without a positive finite sum only 0 is drawn.
  void set_length_weights(const std::vector<double>& weights);

  /// Writes a tuple of parameter numbers, with 0 behind it up to the degree, and its length `d`.
  void draw(idx_t* tuple, idx_t& d, std::mt19937& rng) const;

 private:
  /// Numbers of edges, ascending.
  using Edges = std::array<idx_t, longest>;

  std::size_t draw_edges(std::size_t d, Edges& edges, std::mt19937& rng) const;
  void draw_states(const Edges& edges, std::size_t count, std::array<idx_t, longest>& local,
                   std::mt19937& rng) const;

  const AbstractGraph<idx_t>* graph_;
  const idx_t* states_;
  const idx_t* weight_offsets_;
  std::size_t degree_;
  Choice::param_type length_weights_;
  /// Entry d holds the weights of 1 to d distinct edges.
  std::vector<Choice::param_type> distinct_weights_;
};

template <class idx_t>
TupleSampler<idx_t>::TupleSampler(const AbstractGraph<idx_t>* graph, const idx_t* states,
                                  const idx_t* weight_offsets, std::size_t degree)
    : graph_(graph),
      states_(states),
      weight_offsets_(weight_offsets),
      degree_(degree),
      distinct_weights_(1) {
  const unsigned long m = graph->edges();
  for (unsigned long d = 1; d <= std::min(degree, longest); ++d) {
    std::vector<double> weights;
    double orders = 1;
    for (unsigned long j = 1; j <= d; ++j) {
      orders *= static_cast<double>(j);
      weights.push_back(stirling2<unsigned long, double>(d, j) *
                        binom<unsigned long, double>(m, j) * orders);
    }
    distinct_weights_.emplace_back(weights.begin(), weights.end());
  }
}

template <class idx_t>
void TupleSampler<idx_t>::set_length_weights(const std::vector<double>& weights) {
  double sum = 0;
  for (double weight : weights) sum += weight;
  if (sum > 0 && std::isfinite(sum)) {
    length_weights_ = Choice::param_type(weights.begin(), weights.end());
  } else {
    length_weights_ = Choice::param_type();
  }
}

template <class idx_t>
void TupleSampler<idx_t>::draw(idx_t* tuple, idx_t& d, std::mt19937& rng) const {
  std::fill_n(tuple, degree_, idx_t(0));
  const std::size_t length = Choice()(rng, length_weights_);
  d = static_cast<idx_t>(length);
  if (length == 0) return;
  // The list of partitions has the last word on the lengths that can be drawn.
  if (length > longest) getUnorderedkPartition<idx_t>(length, 1, 0);

  Edges edges;
  const unsigned long count = draw_edges(length, edges, rng);
  unsigned long orders = 1;
  for (unsigned long j = 2; j <= count; ++j) orders *= j;
  const unsigned long partitions =
      saturating_cast<unsigned long>(stirling2<unsigned long, double>(length, count));
  const unsigned long r = draw_uniform<unsigned long>(rng, 0, orders * partitions - 1);
  const idx_t* const partition = getUnorderedkPartition<idx_t>(length, count, r / orders);
  const idx_t* const order = getPermutation<idx_t>(count, r % orders);

  std::array<idx_t, longest> local;
  draw_states(edges, count, local, rng);
  // Both lists count from 1.
  for (std::size_t p = 0; p < length; ++p) {
    const std::size_t i = static_cast<std::size_t>(order[partition[p] - 1]) - 1;
    tuple[p] = wrapping_add(weight_offsets_[edges[i]], local[i]);
  }
}

/// Draws a set of edges for a tuple of length `d`, and returns their number.
template <class idx_t>
std::size_t TupleSampler<idx_t>::draw_edges(std::size_t d, Edges& edges, std::mt19937& rng) const {
  const unsigned long count = Choice()(rng, distinct_weights_[d]) + 1;
  const unsigned long m = graph_->edges();
  const unsigned long subsets =
      saturating_cast<unsigned long>(binom<unsigned long, double>(m, count));
  const unsigned long rank = draw_uniform<unsigned long>(rng, 1, subsets);
  // A narrow `idx_t` holds the numbers of the edges but not that of the subset.
  std::array<unsigned long, longest> chosen;
  chosen[0] = rank;
  if (count > 1) comb<unsigned long>(m, count, rank, chosen.data());
  for (std::size_t i = 0; i < count; ++i) edges[i] = static_cast<idx_t>(chosen[i] - 1);
  return count;
}

/// Draws states for all vertices of the edges, lowest vertex fastest, and sets the place of each
/// edge's state pair within its block.
template <class idx_t>
void TupleSampler<idx_t>::draw_states(const Edges& edges, std::size_t count,
                                      std::array<idx_t, longest>& local, std::mt19937& rng) const {
  std::array<idx_t, 2 * longest> vertices;
  std::size_t n = 0;
  for (std::size_t i = 0; i < count; ++i) {
    const auto [s, t] = endpoints(*graph_, edges[i]);
    vertices[n++] = s;
    vertices[n++] = t;
  }
  const auto first = vertices.begin();
  std::sort(first, first + n);
  n = static_cast<std::size_t>(std::unique(first, first + n) - first);

  unsigned long combinations = 1;
  bool fits = true;
  for (std::size_t i = 0; i < n; ++i) {
    const unsigned long states = states_[vertices[i]];
    fits = fits && !__builtin_mul_overflow(combinations, states, &combinations);
  }
  unsigned long pick = fits ? draw_uniform<unsigned long>(rng, 0, combinations - 1) : 0;
  std::array<idx_t, 2 * longest> state;
  for (std::size_t i = 0; i < n; ++i) {
    const unsigned long states = states_[vertices[i]];
    // No word holds the number of the configuration, so each state is drawn by itself.
    if (!fits) pick = draw_uniform<unsigned long>(rng, 0, states - 1);
    state[i] = static_cast<idx_t>(pick % states);
    pick /= states;
  }
  const auto state_of = [&](idx_t v) {
    return state[static_cast<std::size_t>(std::lower_bound(first, first + n, v) - first)];
  };
  for (std::size_t i = 0; i < count; ++i) {
    const auto [s, t] = endpoints(*graph_, edges[i]);
    local[i] = wrapping_add(state_of(t), wrapping_mul(state_of(s), states_[t]));
  }
}

}  // namespace QZ
