#pragma once

/// Evolution with one parent and one child.

#include <cmath>
#include <cstddef>

#include "QZ/opt/optimizer.h"
#include "QZ/support/conversions.h"
#include "QZ/support/random.h"

namespace QZ {

/// Flips each bit of each parameter with such a probability that one flip per step is expected. A
/// flip that would reach `k_limit` is not made.
///
/// Selection is the loop's: with `restore` a child that does not lower the gradient norm is undone.
/// One draw is taken for every bit whether it flips or not, so a step always consumes the same part
/// of the random stream.
///
/// Source: Droste, Jansen, Wegener 2002, On the analysis of the (1+1) evolutionary algorithm.
template <class idx_t>
class EA11 : public Optimizer<idx_t, idx_t, true> {
 public:
  EA11(idx_t k_limit, std::mt19937* engine) : k_limit(k_limit), bits(bits_below(k_limit)) {
    this->rng = engine;
  }
  ~EA11() override { delete flip_probability; }
  EA11(const EA11&) = delete;
  EA11& operator=(const EA11&) = delete;

  void update(Function<idx_t, idx_t>* f, OptState<idx_t, idx_t>&) override {
    idx_t* x = f->current_point();
    if (dim_seen != f->dim) {
      dim_seen = f->dim;
      if (flip_probability == nullptr) flip_probability = new double;
      *flip_probability = 1.0 / static_cast<double>(wrapping_mul(f->dim, bits));
    }
    for (idx_t i = 0; i < f->dim; ++i) {
      for (idx_t b = 0; b < bits; ++b) {
        const double u = draw_canonical(*this->rng);
        if (*flip_probability > u) flip(x[i], b);
      }
    }
  }

  /// Exclusive upper bound of a parameter.
  idx_t k_limit;
  /// Bits per parameter.
  idx_t bits;
  /// Owned; null before the first step.
  double* flip_probability = nullptr;
  /// The dimension that `flip_probability` belongs to.
  idx_t dim_seen = 0;

 private:
  /// The bit length of k_limit - 1, through the natural logarithm. Where that is not finite, what
  /// saturation makes of it.
  static idx_t bits_below(idx_t k_limit) {
    const double largest = static_cast<double>(wrapping_sub<idx_t>(k_limit, 1));
    return saturating_cast<idx_t>(std::floor(std::log(largest) / 0.6931471805599453) + 1);
  }

  /// The mask is a 32-bit word: a wider parameter keeps its upper half.
  void flip(idx_t& weight, idx_t bit) const {
    const idx_t flipped = wrapping_cast<idx_t>(weight ^ (1u << (bit % 32)));
    if (flipped < k_limit) weight = flipped;
  }
};

}  // namespace QZ
