#pragma once

/// Inference by sampled moments of a polynomial.

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <mutex>
#include <set>
#include <stdexcept>
#include <utility>
#include <vector>

#include "QZ/comb/sparse_uint.h"
#include "QZ/inference/engine.h"
#include "QZ/inference/partial_configuration.h"
#include "QZ/inference/tuple_sampler.h"
#include "QZ/poly/remez.h"
#include "QZ/support/assertion.h"

namespace QZ {

/// Replaces the exponential by a polynomial and sums its moments, or samples them.
///
/// With E(x) the sum of the parameters that x selects, and a_d the coefficients of a polynomial
/// close to exp on the range of E,
///
///   Z = sum over x of exp(E(x)) ~ sum over d of a_d * sum over x of E(x)^d,
///
/// and the inner sum is one over ordered d-tuples of parameters: a tuple contributes the product of
/// its parameters times the number of configurations that select all of them, which is 0 if two of
/// them disagree on a vertex, and otherwise the number N of all configurations over that of the
/// tuple's vertices. `infer_slow` visits all tuples. `infer` draws them in proportion to |a_d| and
/// to that number, as often as it takes for every parameter to meet `max_iterations` of them.
///
/// `infer` runs on the calling thread. Where the range of E is wider than 64 it is scaled down for
/// the polynomial, which then no longer covers it.
template <class idx_t, class val_t>
class SQM : public InferenceAlgorithm<idx_t, val_t> {
  static_assert(std::is_floating_point_v<val_t>);
  using Base = InferenceAlgorithm<idx_t, val_t>;

 public:
  using Base::dim;
  using Base::edge_of_weight;
  using Base::graph;
  using Base::log_partition;
  using Base::max_iterations;
  using Base::moment_norms;
  using Base::moment_sums;
  using Base::states;
  using Base::weight_offsets;
  using Base::weights;

  /// As the base class, with the degree of the polynomial. Throws logic_error "the polynomial
  /// degree is too large" for a degree of all ones.
  SQM(AbstractGraph<idx_t>* graph, idx_t* states, val_t* weights, std::mt19937* rng,
      const idx_t& degree);
  ~SQM() override;

  /// The sum over all tuples, dim^degree of them. `log_partition` and the marginals are those of
  /// the polynomial in place of the exponential, so that a negative sum gives NaN.
  void infer_slow(const idx_t& mode) override;

  /// The plain estimate: the mean over the draws, a tuple counted as often as it is drawn. The mode
  /// is ignored. Of `moment_norms` only the first 2 * dim bytes start at 0, so that in a second run
  /// the parameters behind them, full from the first, collect nothing.
  void infer(const idx_t& mode) override;

  /// The mean over the edges of `v` of the edge marginal summed over the other end, with Z = 1. 0 /
  /// 0 for a vertex without edges.
  void vertex_marginal(const idx_t& v, const idx_t& x, val_t& q, val_t& Z) const override;

  /// The share of the entry in the block of its edge; uniform where the block is all 0, and before
  /// the first `infer`.
  void edge_marginal(const idx_t& e, const idx_t& xs, const idx_t& xt, val_t& q,
                     val_t& Z) const override;

  /// The range for the polynomial: the sums of the m smallest and of the m largest parameters with
  /// m the number of edges, moved apart if equal, and scaled to a width of 64 if wider.
  virtual void lowerupper(val_t& lower, val_t& upper) const;

  /// Fits the polynomial to the current weights and forgets the tuples drawn.
  virtual void init_sqm();

  /// Draws a tuple of parameter numbers and its length `d`; `tuple` has `degree` entries. Needs
  /// `init_sqm` first. A length above 15, or above 8 for an 8-bit `idx_t`, stops at the assertions
  /// of the lists of partitions.
  void sample(idx_t*& tuple, idx_t& d) const { sampler_.draw(tuple, d, *this->rng); }

  /// Whether parameter `i` agrees with each of the `d` parameters of the tuple on their vertices.
  bool valid_pair(const idx_t& i, const idx_t* const& tuple, const idx_t& d) const;

  /// The endpoints of `d` edges, given by number plus 1. The caller deletes the set.
  std::set<idx_t>* vertex_set(const idx_t* const& edges, const idx_t& d) const;

  static val_t mexp(const val_t& x) { return std::exp(x); }

  /// a_d, and b_d = m^d * N.
  val_t* coefficients;
  val_t* degree_mass;
  /// The sum of |a_d| * b_d.
  val_t mass_total = 0;
  val_t approximation_error = 0;
  val_t sample_count = 0;
  val_t estimate_sum = 0;
  /// The number of configurations.
  sparse_uint_t configurations;
  /// Owned.
  PolyApproximation<idx_t, val_t>* approximation = nullptr;
  idx_t degree;

  /// Keys of the tuples drawn, and the probability that they cover: one table for all objects of
  /// this type, so that two of them at work disturb each other.
  inline static std::set<idx_t> KNOWN;
  inline static val_t PSUM = 0;
  inline static std::mutex KNOWN_MTX;

 protected:
  using Partial = PartialConfiguration<idx_t>;

  /// `PSUM`, for engines in several threads.
  static std::atomic_ref<val_t> covered() { return std::atomic_ref<val_t>(PSUM); }

  /// Calls visit(i, r) for every parameter i that agrees with `fixed`, with r the share of the
  /// configurations of `fixed` that select i as well.
  template <class Visit>
  void for_each_agreeing(const Partial& fixed, Visit&& visit) const;

  /// Fixes the vertices of the tuple. False if two of its parameters disagree.
  bool fix(Partial& fixed, const idx_t* tuple, std::size_t d) const;

  /// The probability of drawing a tuple of length `d` with the vertices of `fixed`.
  val_t mass(const Partial& fixed, std::size_t d) const;

  /// mass_total with the sign of a_d, times the tuple's parameters: the term of the tuple over its
  /// mass.
  val_t signed_term(const idx_t* tuple, std::size_t d) const;

  /// Adds an estimate to the moments of all agreeing parameters that are not full, and to the sum
  /// over the draws unless that is full.
  void add_estimate(const Partial& fixed, val_t estimate);

  /// The smallest moment count. Without parameters there is nothing to wait for: all ones.
  idx_t lowest_norm() const;

  void start_sums();

  void forget_tuples() {
    const std::lock_guard lock(KNOWN_MTX);
    KNOWN.clear();
    covered().store(0);
  }

  /// Endpoints of every edge.
  std::vector<Endpoints<idx_t>> ends_;

 private:
  void add_exact_term(const Partial& fixed, const idx_t* tuple, std::size_t d, val_t& Z);
  /// The state pair of a parameter.
  Endpoints<idx_t> state_pair(idx_t i) const;
  double configuration_count_ = 0;
  TupleSampler<idx_t> sampler_;
};

template <class idx_t, class val_t>
SQM<idx_t, val_t>::SQM(AbstractGraph<idx_t>* graph, idx_t* states, val_t* weights,
                       std::mt19937* rng, const idx_t& degree)
    : Base(graph, states, weights, rng),
      configurations(1),
      degree(degree),
      sampler_(graph, states, weight_offsets, degree) {
  if (degree == all_ones<idx_t>) throw std::logic_error("the polynomial degree is too large");
  for (idx_t e = 0; e < graph->edges(); ++e) ends_.push_back(endpoints(*graph, e));
  if (edge_of_weight[0] == all_ones<idx_t>) {
    for (std::size_t e = 0; e < ends_.size(); ++e) {
      std::fill(edge_of_weight + weight_offsets[e], edge_of_weight + weight_offsets[e + 1],
                static_cast<idx_t>(e));
    }
  }
  for (idx_t v = 0; v < graph->vertices(); ++v) configurations *= states[v];
  configuration_count_ = configurations.to_double();
  const std::size_t terms = std::size_t{degree} + 1;
  auto masses = std::make_unique<val_t[]>(terms);
  coefficients = std::make_unique<val_t[]>(terms).release();
  degree_mass = masses.release();
}

template <class idx_t, class val_t>
SQM<idx_t, val_t>::~SQM() {
  delete[] coefficients;
  delete[] degree_mass;
  delete approximation;
}

template <class idx_t, class val_t>
void SQM<idx_t, val_t>::lowerupper(val_t& lower, val_t& upper) const {
  std::vector<val_t> sorted(weights, weights + dim);
  const auto ascending = [](const void* a, const void* b) {
    const val_t x = *static_cast<const val_t*>(a);
    const val_t y = *static_cast<const val_t*>(b);
    return x < y ? -1 : x > y ? 1 : 0;
  };
  // Other than the sorts of the language's library, this one bears weights that are not numbers.
  if (!sorted.empty()) std::qsort(sorted.data(), sorted.size(), sizeof(val_t), ascending);
  const std::size_t m = std::min(ends_.size(), sorted.size());
  lower = 0;
  upper = 0;
  for (std::size_t i = 0; i < m; ++i) {
    lower += sorted[i];
    upper += sorted[sorted.size() - m + i];
  }
  if (lower == upper) {
    lower -= val_t(0.125);
    upper += val_t(0.125);
  }
  const val_t width = upper - lower;
  if (width > 64) {
    lower *= 64 / width;
    upper *= 64 / width;
  }
}

template <class idx_t, class val_t>
void SQM<idx_t, val_t>::init_sqm() {
  val_t lower = 0;
  val_t upper = 0;
  lowerupper(lower, upper);
  delete std::exchange(approximation, nullptr);
  approximation = new ChebyshevApproximationRemez<idx_t, val_t>(lower, upper, degree);
  RealFunction<val_t> exponential = mexp;
  approximation->apx(exponential, exponential, exponential, 100);
  mass_total = 0;
  approximation_error = approximation->error();
  forget_tuples();
  const double m = static_cast<double>(ends_.size());
  const std::size_t terms = std::size_t{degree} + 1;
  for (std::size_t d = 0; d < terms; ++d) {
    coefficients[d] = approximation->coefficients()[d];
    degree_mass[d] = static_cast<val_t>(std::pow(m, static_cast<double>(d)) * configuration_count_);
    mass_total += std::abs(coefficients[d]) * degree_mass[d];
  }
  std::vector<double> length_weights;
  for (std::size_t d = 0; d < terms; ++d) {
    length_weights.push_back(std::abs(coefficients[d]) * degree_mass[d] / mass_total);
  }
  sampler_.set_length_weights(length_weights);
}

template <class idx_t, class val_t>
Endpoints<idx_t> SQM<idx_t, val_t>::state_pair(idx_t i) const {
  const idx_t e = edge_of_weight[i];
  const idx_t offset = wrapping_sub(i, weight_offsets[e]);
  const idx_t columns = states[ends_[e].t];
  return {static_cast<idx_t>(offset / columns), static_cast<idx_t>(offset % columns)};
}

template <class idx_t, class val_t>
bool SQM<idx_t, val_t>::valid_pair(const idx_t& i, const idx_t* const& tuple,
                                   const idx_t& d) const {
  const auto [a, b] = ends_[edge_of_weight[i]];
  const auto [xa, xb] = state_pair(i);
  for (idx_t p = 0; p < d; ++p) {
    const auto [a2, b2] = ends_[edge_of_weight[tuple[p]]];
    const auto [ya, yb] = state_pair(tuple[p]);
    if ((b2 == b && yb != xb) || (a2 == b && ya != xb)) return false;
    if ((a2 == a && ya != xa) || (b2 == a && yb != xa)) return false;
  }
  return true;
}

template <class idx_t, class val_t>
std::set<idx_t>* SQM<idx_t, val_t>::vertex_set(const idx_t* const& edges, const idx_t& d) const {
  auto vertices = std::make_unique<std::set<idx_t>>();
  for (idx_t i = 0; i < d; ++i) {
    const auto [s, t] = ends_[static_cast<std::size_t>(edges[i]) - 1];
    vertices->insert(s);
    vertices->insert(t);
  }
  return vertices.release();
}

template <class idx_t, class val_t>
template <class Visit>
void SQM<idx_t, val_t>::for_each_agreeing(const Partial& fixed, Visit&& visit) const {
  for (std::size_t e = 0; e < ends_.size(); ++e) {
    const Endpoints<idx_t> ends = ends_[e];
    const val_t r = static_cast<val_t>(1 / fixed.open_combinations(ends));
    const auto [first_row, last_row] = fixed.choices(ends.s);
    const auto [first_column, last_column] = fixed.choices(ends.t);
    for (std::size_t xs = first_row; xs < last_row; ++xs) {
      const std::size_t row = weight_offsets[e] + xs * states[ends.t];
      for (std::size_t xt = first_column; xt < last_column; ++xt) visit(row + xt, r);
    }
  }
}

template <class idx_t, class val_t>
bool SQM<idx_t, val_t>::fix(Partial& fixed, const idx_t* tuple, std::size_t d) const {
  fixed.clear();
  for (std::size_t p = 0; p < d; ++p) {
    const auto [xs, xt] = state_pair(tuple[p]);
    if (!fixed.fix(ends_[edge_of_weight[tuple[p]]], xs, xt)) return false;
  }
  return true;
}

template <class idx_t, class val_t>
val_t SQM<idx_t, val_t>::mass(const Partial& fixed, std::size_t d) const {
  const double ratio =
      d == 0 ? 1
             : configuration_count_ / (fixed.combinations() * static_cast<double>(degree_mass[d]));
  return std::abs(coefficients[d] * degree_mass[d]) / mass_total * static_cast<val_t>(ratio);
}

template <class idx_t, class val_t>
val_t SQM<idx_t, val_t>::signed_term(const idx_t* tuple, std::size_t d) const {
  val_t term = coefficients[d] < 0 ? -mass_total : mass_total;
  for (std::size_t p = 0; p < d; ++p) term *= weights[tuple[p]];
  return term;
}

template <class idx_t, class val_t>
void SQM<idx_t, val_t>::infer_slow(const idx_t&) {
  init_sqm();
  start_sums();
  std::fill_n(moment_norms, dim, val_t(0));
  val_t Z = 0;
  Partial fixed(states, graph->vertices());
  std::vector<idx_t> tuple(degree, 0);
  for (std::size_t d = 0; d <= degree; ++d) {
    // Without parameters there is the empty tuple and no other.
    bool exhausted = d > 0 && dim == 0;
    while (!exhausted) {
      if (fix(fixed, tuple.data(), d)) add_exact_term(fixed, tuple.data(), d, Z);
      std::size_t p = 0;
      while (p < d && ++tuple[p] == dim) tuple[p++] = 0;
      exhausted = p == d;
    }
  }
  log_partition = std::log(Z);
}

template <class idx_t, class val_t>
void SQM<idx_t, val_t>::add_exact_term(const Partial& fixed, const idx_t* tuple, std::size_t d,
                                       val_t& Z) {
  const val_t share = mass(fixed, d);
  const val_t term = signed_term(tuple, d);
  Z = std::fma(share, term, Z);
  for_each_agreeing(fixed, [&](std::size_t i, val_t r) {
    moment_sums[i] += r * share * term;
    moment_norms[i] = 1;
  });
}

template <class idx_t, class val_t>
void SQM<idx_t, val_t>::start_sums() {
  std::fill_n(moment_sums, dim, val_t(0));
  sample_count = 0;
  estimate_sum = 0;
}

template <class idx_t, class val_t>
void SQM<idx_t, val_t>::add_estimate(const Partial& fixed, val_t estimate) {
  const val_t full = static_cast<val_t>(max_iterations);
  for_each_agreeing(fixed, [&](std::size_t i, val_t r) {
    if (moment_norms[i] >= full) return;
    moment_sums[i] = std::fma(estimate, r, moment_sums[i]);
    moment_norms[i] += 1;
  });
  if (sample_count < full) {
    sample_count += 1;
    estimate_sum += estimate;
  }
}

template <class idx_t, class val_t>
idx_t SQM<idx_t, val_t>::lowest_norm() const {
  if (dim == 0) return all_ones<idx_t>;
  return saturating_cast<idx_t>(*std::min_element(moment_norms, moment_norms + dim));
}

template <class idx_t, class val_t>
void SQM<idx_t, val_t>::infer(const idx_t&) {
  init_sqm();
  start_sums();
  std::memset(moment_norms, 0, std::size_t{dim} * 2);
  Partial fixed(states, graph->vertices());
  const auto room = std::make_unique<idx_t[]>(degree);
  idx_t* tuple = room.get();
  // Beyond this number a count in val_t no longer grows.
  const idx_t enough = std::min(
      max_iterations, saturating_cast<idx_t>(std::ldexp(1.0, std::numeric_limits<val_t>::digits)));
  for (idx_t lowest = 0; lowest < enough; lowest = lowest_norm()) {
    idx_t d = 0;
    sample(tuple, d);
    fix(fixed, tuple, d);
    add_estimate(fixed, signed_term(tuple, d));
  }
  if (estimate_sum == 0) estimate_sum = 1;
  log_partition = std::log(std::abs(estimate_sum) / sample_count);
}

template <class idx_t, class val_t>
void SQM<idx_t, val_t>::edge_marginal(const idx_t& e, const idx_t& xs, const idx_t& xt, val_t& q,
                                      val_t& Z) const {
  const auto [s, t] = ends_[e];
  const idx_t k = static_cast<idx_t>(weight_offsets[e] + xs * states[t] + xt);
  const val_t norm = moment_norms[k];
  if (norm > 0) {
    q = moment_sums[k] / norm;
    Z = 0;
    for (std::size_t i = weight_offsets[e]; i < weight_offsets[std::size_t{e} + 1]; ++i) {
      Z += moment_sums[i] / norm;
    }
  }
  if (Z != 0) return;
  q = 1;
  Z = static_cast<val_t>(states[s]) * static_cast<val_t>(states[t]);
}

template <class idx_t, class val_t>
void SQM<idx_t, val_t>::vertex_marginal(const idx_t& v, const idx_t& x, val_t& q, val_t& Z) const {
  q = 0;
  const idx_t degree_of_v = graph->num_neighbors(v);
  for (idx_t slot = 0; slot < degree_of_v; ++slot) {
    const idx_t e = graph->in_edge(v, slot);
    const auto [s, t] = ends_[e];
    const idx_t u = s == v ? t : s;
    for (idx_t y = 0; y < states[u]; ++y) {
      val_t share = 0;
      val_t total = 0;
      edge_marginal(e, s == v ? x : y, s == v ? y : x, share, total);
      q += share / total;
    }
  }
  q /= static_cast<val_t>(degree_of_v);
  Z = 1;
}

}  // namespace QZ
