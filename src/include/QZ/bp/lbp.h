#pragma once

/// Loopy belief propagation on natural logarithms.

#include <algorithm>
#include <atomic>
#include <cmath>
#include <limits>
#include <memory>

#include "QZ/bp/linear_propagation.h"
#include "QZ/bp/pairwise_bp.h"
#include "QZ/support/vector_math.h"

namespace QZ {

/// Sum-product and max-product propagation for float and double. What it holds after a run are
/// logarithms: messages whose linear values sum to 1, beliefs of mean 0.
///
/// A run goes through linear values (`LinearPropagation`) wherever no clamp of the logarithmic rule
/// can bite, and through that rule otherwise; the two agree to rounding. `infer_continue` always
/// takes the logarithmic rule.
template <class idx_t, class val_t>
class LBP : public PairwiseBP<idx_t, val_t> {
  static_assert(std::is_floating_point_v<val_t>);

 public:
  using Base = PairwiseBP<idx_t, val_t>;
  using Base::belief_offsets;
  using Base::beliefs;
  using Base::edge_centre;
  using Base::edge_partition;
  using Base::graph;
  using Base::messages;
  using Base::states;
  using Base::vertex_partition;
  using Base::weight_offsets;
  using Base::weights;

  /// As `PairwiseBP`.
  LBP(AbstractGraph<idx_t>* graph, idx_t* states, val_t* weights, std::mt19937* rng,
      unsigned char tree_flag = 0)
      : Base(graph, states, weights, rng, tree_flag) {}

  void infer(const idx_t& mode) override;
  void infer_continue(const idx_t& mode) override { this->infer_as(*this, mode, true); }

  void vertex_marginal(const idx_t& v, const idx_t& x, val_t& q, val_t& Z) const override;
  void edge_marginal(const idx_t& e, const idx_t& xs, const idx_t& xt, val_t& q,
                     val_t& Z) const override;

  /// The probabilities q / Z of all state pairs of edge `e`, row-major with states[s] rows of
  /// states[t] entries, as `edge_marginal` gives them one by one. Costs one exponential per entry,
  /// in vector form. Safe to call from several threads after `infer` has returned.
  void edge_marginals(const idx_t& e, val_t* probabilities) const {
    edge_marginals(Range<idx_t>{e, wrapping_add<idx_t>(e, 1)}, probabilities);
  }
  /// The same for a run of edges, one block after the other. Small blocks make whole vectors
  /// together.
  void edge_marginals(const Range<idx_t>& edges, val_t* probabilities) const;

  void compute_edge_normalization() final;
  void post_process() final;

  /// The Bethe estimate of the log partition function. Opens two parallel regions.
  val_t A_local() const final;

  /// 0 for 0, the natural logarithm otherwise.
  val_t map_logarithm(const val_t& x) const final { return x == 0 ? x : std::log(x); }

  /// The exponential, held between the smallest normal and the largest number.
  val_t map_exponential(const val_t& x) const final { return clamp(std::exp(x)); }

  /// The larger number; a number wins over a NaN.
  val_t map_other(const val_t& a, const val_t& b) const final {
    return static_cast<val_t>(std::fmax(static_cast<double>(a), static_cast<double>(b)));
  }

 private:
  using Linear = LinearPropagation<idx_t, val_t>;

  static val_t clamp(val_t linear) {
    if (linear == 0) return std::numeric_limits<val_t>::min();
    return linear > std::numeric_limits<val_t>::max() ? std::numeric_limits<val_t>::max() : linear;
  }

  /// The log table of an edge: cavity(s, xs) + w(xs, xt) + cavity(t, xt).
  struct EdgeTable {
    const val_t* belief_s;
    const val_t* belief_t;
    const val_t* to_s;
    const val_t* to_t;
    const val_t* block;
    std::size_t rows;
    std::size_t columns;

    val_t cavity_s(std::size_t x) const { return belief_s[x] - to_s[x]; }
    val_t cavity_t(std::size_t x) const { return belief_t[x] - to_t[x]; }
    val_t at(std::size_t xs, std::size_t xt) const {
      return cavity_s(xs) + block[xs * columns + xt] + cavity_t(xt);
    }
  };
  EdgeTable edge_table(idx_t e) const;

  bool has_exact_moment(std::size_t k) const {
    return this->moment_norms[0] != free_state<val_t> && this->moment_norms[k] > 0;
  }
  /// q and Z from the tables that `infer_slow` left, for parameter k of edge e.
  void exact_marginal(const idx_t& e, std::size_t k, val_t& q, val_t& Z) const;

  void normalize_edge(idx_t e);
  /// The sum of p log p over the states of v.
  val_t vertex_term(idx_t v) const;
  /// The sum of p (log p - w) over the state pairs of e.
  val_t edge_term(idx_t e) const;

  bool infer_linear(bool max);
  void show_messages(Range<std::size_t> vertices);
  val_t show_vertex(idx_t v, val_t* scratch);
  val_t show_edge(idx_t e, val_t* scratch);

  std::unique_ptr<Linear> linear_;
};

template <class idx_t, class val_t>
auto LBP<idx_t, val_t>::edge_table(idx_t e) const -> EdgeTable {
  const auto [s, t] = endpoints(*graph, e);
  return {beliefs + belief_offsets[s],
          beliefs + belief_offsets[t],
          messages + this->message_at(e, true),
          messages + this->message_at(e, false),
          weights + weight_offsets[e],
          states[s],
          states[t]};
}

template <class idx_t, class val_t>
void LBP<idx_t, val_t>::exact_marginal(const idx_t& e, std::size_t k, val_t& q, val_t& Z) const {
  q = this->moment_sums[k];
  for (std::size_t i = weight_offsets[e]; i < weight_offsets[std::size_t{e} + 1]; ++i) {
    Z += this->moment_sums[i] / this->moment_norms[k];
  }
}

template <class idx_t, class val_t>
void LBP<idx_t, val_t>::vertex_marginal(const idx_t& v, const idx_t& x, val_t& q, val_t& Z) const {
  const val_t* belief = beliefs + belief_offsets[v];
  q = map_exponential(belief[x]);
  // Several threads may ask for one vertex; they would all store the same sum.
  std::atomic_ref<val_t> cache(vertex_partition[v]);
  const val_t known = cache.load(std::memory_order_relaxed);
  if (known != free_state<val_t>) {
    Z = known;
    return;
  }
  for (std::size_t y = 0; y < states[v]; ++y) Z += map_exponential(belief[y]);
  cache.store(Z, std::memory_order_relaxed);
}

template <class idx_t, class val_t>
void LBP<idx_t, val_t>::edge_marginal(const idx_t& e, const idx_t& xs, const idx_t& xt, val_t& q,
                                      val_t& Z) const {
  const EdgeTable table = edge_table(e);
  const std::size_t k = std::size_t{weight_offsets[e]} + xs * table.columns + xt;
  if (has_exact_moment(k)) return exact_marginal(e, k, q, Z);
  q = map_exponential(table.at(xs, xt) - edge_centre[e]);
  Z = edge_partition[e];
}

template <class idx_t, class val_t>
void LBP<idx_t, val_t>::edge_marginals(const Range<idx_t>& edges, val_t* probabilities) const {
  val_t* next = probabilities;
  for (idx_t e = edges.begin; e < edges.end; ++e) {
    const EdgeTable table = edge_table(e);
    const val_t centre = edge_centre[e];
    for (std::size_t xs = 0; xs < table.rows; ++xs) {
      for (std::size_t xt = 0; xt < table.columns; ++xt) *next++ = table.at(xs, xt) - centre;
    }
  }
  exp_all(probabilities, probabilities, static_cast<std::size_t>(next - probabilities));
  const bool holds_exact_moments = this->moment_norms[0] != free_state<val_t>;
  next = probabilities;
  for (idx_t e = edges.begin; e < edges.end; ++e) {
    const std::size_t begin = weight_offsets[e];
    const std::size_t pairs = weight_offsets[std::size_t{e} + 1] - begin;
    const val_t partition = edge_partition[e];
    for (std::size_t i = 0; i < pairs; ++i) next[i] = clamp(next[i]) / partition;
    for (std::size_t i = 0; holds_exact_moments && i < pairs; ++i) {
      if (!has_exact_moment(begin + i)) continue;
      val_t q = 0;
      val_t Z = 0;
      exact_marginal(e, begin + i, q, Z);
      next[i] = q / Z;
    }
    next += pairs;
  }
}

template <class idx_t, class val_t>
void LBP<idx_t, val_t>::post_process() {
  const auto share = my_share<idx_t>(graph->edges());
  for (idx_t e = share.begin; e < share.end; ++e) {
    const auto [s, t] = endpoints(*graph, e);
    for (const bool to_first : {false, true}) {
      val_t* entry = messages + this->message_at(e, to_first);
      const std::size_t count = to_first ? states[s] : states[t];
      if (count == 0) continue;
      val_t sum = 0;
      for (std::size_t y = 0; y < count; ++y) sum += entry[y];
      const val_t mean = sum / static_cast<val_t>(count);
      val_t z = 0;
      for (std::size_t y = 0; y < count; ++y) {
        entry[y] -= mean;
        z += map_exponential(entry[y]);
      }
      const val_t log_z = map_logarithm(z);
      for (std::size_t y = 0; y < count; ++y) entry[y] -= log_z;
    }
  }
#pragma omp barrier
}

template <class idx_t, class val_t>
void LBP<idx_t, val_t>::normalize_edge(idx_t e) {
  const EdgeTable table = edge_table(e);
  val_t sum = 0;
  for (std::size_t xs = 0; xs < table.rows; ++xs) {
    for (std::size_t xt = 0; xt < table.columns; ++xt) sum += table.at(xs, xt);
  }
  const val_t centre = sum / static_cast<val_t>(table.rows * table.columns);
  val_t partition = 0;
  for (std::size_t xs = 0; xs < table.rows; ++xs) {
    for (std::size_t xt = 0; xt < table.columns; ++xt) {
      partition += map_exponential(table.at(xs, xt) - centre);
    }
  }
  edge_centre[e] = centre;
  edge_partition[e] = partition;
}

template <class idx_t, class val_t>
void LBP<idx_t, val_t>::compute_edge_normalization() {
  const auto share = my_share<idx_t>(graph->edges());
  for (idx_t e = share.begin; e < share.end; ++e) normalize_edge(e);
#pragma omp barrier
}

template <class idx_t, class val_t>
val_t LBP<idx_t, val_t>::vertex_term(idx_t v) const {
  val_t h = 0;
  for (idx_t x = 0; x < states[v]; ++x) {
    val_t q = 0;
    val_t Z = 0;
    vertex_marginal(v, x, q, Z);
    const val_t p = q / Z;
    h = std::fma(p, map_logarithm(p), h);
  }
  return h;
}

template <class idx_t, class val_t>
val_t LBP<idx_t, val_t>::edge_term(idx_t e) const {
  const EdgeTable table = edge_table(e);
  val_t sum = 0;
  for (idx_t xs = 0; xs < table.rows; ++xs) {
    for (idx_t xt = 0; xt < table.columns; ++xt) {
      val_t q = 0;
      val_t Z = 0;
      edge_marginal(e, xs, xt, q, Z);
      const val_t p = q / Z;
      sum += p * (map_logarithm(p) - table.block[xs * table.columns + xt]);
    }
  }
  return sum;
}

template <class idx_t, class val_t>
val_t LBP<idx_t, val_t>::A_local() const {
  val_t total = 0;
#pragma omp parallel
  {
    const auto share = my_share<idx_t>(graph->vertices());
    val_t mine = 0;
    for (idx_t v = share.begin; v < share.end; ++v) {
      // An isolated vertex counts -1 times.
      const long others = static_cast<long>(graph->num_neighbors(v)) - 1;
      mine += static_cast<val_t>(others) * vertex_term(v);
    }
    atomic_add(total, mine);
  }
#pragma omp parallel
  {
    const auto share = my_share<idx_t>(graph->edges());
    val_t mine = 0;
    for (idx_t e = share.begin; e < share.end; ++e) mine -= edge_term(e);
    atomic_add(total, mine);
  }
  return total;
}

}  // namespace QZ

#include "QZ/bp/lbp_linear.h"
