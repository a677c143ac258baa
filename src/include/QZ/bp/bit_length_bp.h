#pragma once

/// Belief propagation on unsigned integers.

#include <omp.h>

#include <cstddef>
#include <memory>
#include <vector>

#include "QZ/bp/pairwise_bp.h"
#include "QZ/bp/power_sum.h"
#include "QZ/comb/sparse_uint.h"

namespace QZ {

/// Belief propagation for models whose parameters are base-2 exponents: a potential is 2 to the
/// power of its parameter. In place of the logarithm of a sum of exponentials stands the bit length
/// of an exact sum of powers of two, an integer bound on the base-2 logarithm from above. A message
/// update uses no floating point, and messages, beliefs and parameters wrap at the width of
/// `idx_t`.
///
/// A run ends when no message changes or at `max_iterations`. Beliefs are plain sums. Beliefs and
/// messages are exponents, so the smallest entry of a message is 0.
///
/// Sums whose exponents lie close together are formed in machine words; the others, exactly as
/// well, in `thread_sums`.
template <class idx_t>
class BitLengthBP : public PairwiseBP<idx_t, idx_t> {
 public:
  using Base = PairwiseBP<idx_t, idx_t>;
  using Base::belief_offsets;
  using Base::beliefs;
  using Base::graph;
  using Base::messages;
  using Base::states;
  using Base::weight_offsets;
  using Base::weights;

  BitLengthBP(AbstractGraph<idx_t>* graph, idx_t* states, idx_t* weights, std::mt19937* rng)
      : Base(graph, states, weights, rng, 0),
        thread_sums(std::make_unique<sparse_uint_t[]>(omp_get_max_threads())) {
    this->epsilon = 0;
  }

  void infer(const idx_t& mode) override {
    if (mode == 10) return this->infer_slow(mode);
    this->infer_as(*this, mode, false);
  }
  void infer_continue(const idx_t& mode) override { this->infer_as(*this, mode, true); }

  /// q and Z are scaled together until Z fits `idx_t` and so does 255 * q. Bits that are shifted
  /// out are lost, so an unlikely state may have q = 0.
  void vertex_marginal(const idx_t& v, const idx_t& x, idx_t& q, idx_t& Z) const override {
    if (states[v] == 1) {
      q = Z = 1;
      return;
    }
    const auto exponent = [&](std::size_t y) {
      return this->get_log_prod(v, static_cast<idx_t>(y), all_ones<idx_t>, 0);
    };
    scaled_fraction(states[v], exponent, x, q, Z);
  }

  void edge_marginal(const idx_t& e, const idx_t& xs, const idx_t& xt, idx_t& q,
                     idx_t& Z) const override {
    const auto [s, t] = endpoints(*graph, e);
    if (wrapping_mul(states[s], states[t]) == 1) {
      q = Z = 1;
      return;
    }
    const std::size_t columns = states[t];
    const idx_t* to_s = messages + this->message_at(e, true);
    const idx_t* to_t = messages + this->message_at(e, false);
    const idx_t* at_s = beliefs + belief_offsets[s];
    const idx_t* at_t = beliefs + belief_offsets[t];
    const idx_t* block = weights + weight_offsets[e];
    const auto exponent = [&](std::size_t pair) {
      const std::size_t i = pair / columns;
      const std::size_t j = pair % columns;
      return wrapping_cast<idx_t>(at_s[i] - to_s[i] + block[pair] + at_t[j] - to_t[j]);
    };
    scaled_fraction(states[s] * columns, exponent, xs * columns + xt, q, Z);
  }

  void compute_edge_normalization() final {}

  /// Brings the smallest entry of every message to 0.
  void post_process() final {
    const auto share = my_share<idx_t>(graph->edges());
    for (idx_t e = share.begin; e < share.end; ++e) {
      const auto [s, t] = endpoints(*graph, e);
      lower_to_zero(messages + this->message_at(e, false), states[t]);
      lower_to_zero(messages + this->message_at(e, true), states[s]);
    }
#pragma omp barrier
  }

  /// The bit length of the sum of 2^belief over the states of vertex 0; 0 without states.
  idx_t A_local() const final {
    if (graph->vertices() == 0) return 0;
    return sum_length(states[0], [&](std::size_t x) { return beliefs[belief_offsets[0] + x]; });
  }

  idx_t map_logarithm(const idx_t& x) const final { return x; }
  idx_t map_exponential(const idx_t& x) const final { return x; }

  /// Adds 2^a to the calling thread's sum, which is emptied before if `first` is not 0. Returns the
  /// sum's bit length.
  idx_t map_other(const idx_t& a, const idx_t& first) const final {
    sparse_uint_t& sum = thread_sums[omp_get_thread_num()];
    if (first != 0) sum = 0;
    sum.p2x(a);
    return wrapping_cast<idx_t>(bit_length(sum));
  }

  /// The bit length of the sum of 2^exponent(x) over all x below `count`; 0 for no x at all.
  template <class Exponent>
  idx_t sum_length(std::size_t count, Exponent&& exponent) const {
    const NarrowPowerSum narrow(count, exponent);
    if (narrow.exact()) return wrapping_cast<idx_t>(narrow.bit_length());
    idx_t length = 0;
    for (std::size_t x = 0; x < count; ++x) length = map_other(exponent(x), x == 0);
    return length;
  }

  /// One accumulator per thread that a team could have at construction.
  std::unique_ptr<sparse_uint_t[]> thread_sums;

 private:
  static constexpr unsigned long width = sizeof(idx_t) * 8;
  /// The fixed-point scale that q is to be multiplied by, and its own bits.
  static constexpr unsigned long scale_bits = 8;

  static unsigned long bit_length(const sparse_uint_t& x) {
    return x.positions().empty() ? 1 : *x.positions().rbegin() + 1;
  }

  static void lower_to_zero(idx_t* entries, std::size_t count) {
    idx_t smallest = all_ones<idx_t>;
    for (std::size_t i = 0; i < count; ++i) smallest = std::min(smallest, entries[i]);
    for (std::size_t i = 0; i < count; ++i) entries[i] = wrapping_sub(entries[i], smallest);
  }

  /// The share of term `x` in the sum of 2^exponent over `count` terms.
  template <class Exponent>
  void scaled_fraction(std::size_t count, Exponent&& exponent, std::size_t x, idx_t& q,
                       idx_t& Z) const {
    const NarrowPowerSum narrow(count, exponent);
    if (narrow.exact()) {
      const unsigned long shift = scaling(narrow.bit_length(), exponent(x));
      q = wrapping_cast<idx_t>(exponent(x) < shift ? 0ul : 1ul << (exponent(x) - shift));
      Z = wrapping_cast<idx_t>(narrow.shifted(shift));
      return;
    }
    sum_length(count, exponent);
    sparse_uint_t& sum = thread_sums[omp_get_thread_num()];
    const unsigned long shift = scaling(bit_length(sum), exponent(x));
    sparse_uint_t share;
    share.p2x(exponent(x));
    share >>= shift;
    sum >>= shift;
    q = wrapping_cast<idx_t>(share.to_uint64());
    Z = wrapping_cast<idx_t>(sum.to_uint64());
  }

  /// How far to shift a sum of this bit length and its term 2^exponent to the right: until the sum
  /// fits `idx_t`, and then, if the term is still there, until 255 times the term fits.
  static unsigned long scaling(unsigned long length, unsigned long exponent) {
    const unsigned long first = length > width ? length - width : 0;
    if (exponent < first) return first;
    const unsigned long product_length = exponent - first + scale_bits;
    return product_length > width ? first + product_length - width : first;
  }
};

}  // namespace QZ
