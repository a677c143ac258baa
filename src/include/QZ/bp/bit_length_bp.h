#pragma once

/// Belief propagation on unsigned integers.

#include <omp.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <vector>

#include "QZ/bp/bit_length_propagation.h"
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
/// A run goes through machine words (`BitLengthPropagation`) wherever the model can be arranged for
/// them, and edge by edge otherwise, as `infer_continue` always does, with the same bits. Sums
/// whose exponents lie close together are formed in machine words there too; the others, exactly as
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
    using Words = BitLengthPropagation<idx_t, unsigned int>;
    if (!arranged_) {
      arranged_ = true;
      if (Words::suits(this->model())) words_ = std::make_unique<Words>(this->model());
    }
    if (!words_) return this->infer_as(*this, mode, false);
    const idx_t* all = weights + weight_offsets[graph->edges()];
    const idx_t largest = weights == all ? idx_t(0) : *std::max_element<const idx_t*>(weights, all);
    if (words_->suits_words(largest)) return infer_in_words(*words_, largest, mode != 0);
    if constexpr (sizeof(idx_t) == 8) {
      using LongWords = BitLengthPropagation<idx_t, unsigned long>;
      if (!long_words_) long_words_ = std::make_unique<LongWords>(this->model());
      infer_in_words(*long_words_, largest, mode != 0);
    }
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
    scaled_fractions(states[v], exponent, x, 1, &q, &Z);
  }

  void edge_marginal(const idx_t& e, const idx_t& xs, const idx_t& xt, idx_t& q,
                     idx_t& Z) const override {
    const EdgeTable table = edge_table(e);
    if (wrapping_mul<idx_t>(table.rows, table.columns) == 1) {
      q = Z = 1;
      return;
    }
    const auto exponent = [&](std::size_t pair) {
      return table.at(pair / table.columns, pair % table.columns);
    };
    scaled_fractions(std::size_t{table.rows} * table.columns, exponent, xs * table.columns + xt, 1,
                     &q, &Z);
  }

  /// All marginals of an edge, row-major with states[s] rows of states[t] entries, as
  /// `edge_marginal` gives them one by one. The sum behind them is formed once.
  void edge_marginals(const idx_t& e, idx_t* q, idx_t* Z) const {
    const EdgeTable table = edge_table(e);
    if (wrapping_mul<idx_t>(table.rows, table.columns) == 1) {
      q[0] = Z[0] = 1;
      return;
    }
    // The exponents stand where their terms are going to.
    idx_t* next = q;
    for (std::size_t i = 0; i < table.rows; ++i) {
      for (std::size_t j = 0; j < table.columns; ++j) *next++ = table.at(i, j);
    }
    const std::size_t count = std::size_t{table.rows} * table.columns;
    scaled_fractions(
        count, [q](std::size_t pair) { return q[pair]; }, 0, count, q, Z);
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

  /// As `infer_as`, from empty messages.
  template <class Words>
  void infer_in_words(Words& words, idx_t largest_weight, bool max) {
    this->message_count = static_cast<idx_t>(this->message_storage / 2);
    words.begin(largest_weight);
#pragma omp parallel
    {
      words.iterate(this->model(), this->observed, max, this->max_iterations);
      words.show(
          [&](std::size_t message, const auto* entries, std::size_t count) {
            idx_t* fresh = messages + this->message_offsets[message];
            for (std::size_t x = 0; x < count; ++x) {
              fresh[x] = fresh[x + this->message_count] = wrapping_cast<idx_t>(entries[x]);
            }
          },
          [&](std::size_t v, const auto* entries, std::size_t count) {
            idx_t* belief = beliefs + belief_offsets[v];
            for (std::size_t x = 0; x < count; ++x) belief[x] = wrapping_cast<idx_t>(entries[x]);
            this->vertex_partition[v] = all_ones<idx_t>;
          });
    }
    this->delta = words.moved();
    this->iterations = words.iterations();
    this->log_partition = A_local();
  }

  static unsigned long bit_length(const sparse_uint_t& x) {
    return x.positions().empty() ? 1 : *x.positions().rbegin() + 1;
  }

  static void lower_to_zero(idx_t* entries, std::size_t count) {
    idx_t smallest = all_ones<idx_t>;
    for (std::size_t i = 0; i < count; ++i) smallest = std::min(smallest, entries[i]);
    for (std::size_t i = 0; i < count; ++i) entries[i] = wrapping_sub(entries[i], smallest);
  }

  /// The exponents of the state pairs of an edge: cavity(s, i) + parameter + cavity(t, j).
  struct EdgeTable {
    const idx_t* belief_s;
    const idx_t* belief_t;
    const idx_t* to_s;
    const idx_t* to_t;
    const idx_t* block;
    idx_t rows;
    idx_t columns;

    idx_t at(std::size_t i, std::size_t j) const {
      return wrapping_cast<idx_t>(belief_s[i] - to_s[i] + block[i * columns + j] + belief_t[j] -
                                  to_t[j]);
    }
  };

  EdgeTable edge_table(idx_t e) const {
    const auto [s, t] = endpoints(*graph, e);
    return {beliefs + belief_offsets[s],
            beliefs + belief_offsets[t],
            messages + this->message_at(e, true),
            messages + this->message_at(e, false),
            weights + weight_offsets[e],
            states[s],
            states[t]};
  }

  /// The shares of `taken` terms from the given one on in the sum of 2^exponent over `count` terms.
  /// `exponent` is not asked again for a term whose share is written.
  template <class Exponent>
  void scaled_fractions(std::size_t count, Exponent&& exponent, std::size_t first,
                        std::size_t taken, idx_t* q, idx_t* Z) const {
    const NarrowPowerSum narrow(count, exponent);
    if (!narrow.exact()) return scaled_large_fractions(count, exponent, first, taken, q, Z);
    for (std::size_t i = 0; i < taken; ++i) {
      const unsigned long e = exponent(first + i);
      const unsigned long shift = scaling(narrow.bit_length(), e);
      q[i] = wrapping_cast<idx_t>(e < shift ? 0ul : 1ul << (e - shift));
      Z[i] = wrapping_cast<idx_t>(narrow.shifted(shift));
    }
  }

  /// The same for a sum of any size.
  template <class Exponent>
  void scaled_large_fractions(std::size_t count, Exponent&& exponent, std::size_t first,
                              std::size_t taken, idx_t* q, idx_t* Z) const {
    for (std::size_t x = 0; x < count; ++x) map_other(exponent(x), x == 0);
    const sparse_uint_t& sum = thread_sums[omp_get_thread_num()];
    for (std::size_t i = 0; i < taken; ++i) {
      const unsigned long e = exponent(first + i);
      const unsigned long shift = scaling(bit_length(sum), e);
      sparse_uint_t share;
      share.p2x(e);
      share >>= shift;
      sparse_uint_t whole(sum);
      whole >>= shift;
      q[i] = wrapping_cast<idx_t>(share.to_uint64());
      Z[i] = wrapping_cast<idx_t>(whole.to_uint64());
    }
  }

  /// How far to shift a sum of this bit length and its term 2^exponent to the right: until the sum
  /// fits `idx_t`, and then, if the term is still there, until 255 times the term fits.
  static unsigned long scaling(unsigned long length, unsigned long exponent) {
    const unsigned long first = length > width ? length - width : 0;
    if (exponent < first) return first;
    const unsigned long product_length = exponent - first + scale_bits;
    return product_length > width ? first + product_length - width : first;
  }

  /// Whether the first run has tried to arrange the model, and what it got.
  bool arranged_ = false;
  std::unique_ptr<BitLengthPropagation<idx_t, unsigned int>> words_;
  std::unique_ptr<BitLengthPropagation<idx_t, unsigned long>> long_words_;
};

}  // namespace QZ
