#pragma once

/// The objective of models whose parameters are small unsigned integers.

#include <algorithm>
#include <cstddef>
#include <vector>

#include "QZ/bp/edge_fractions.h"
#include "QZ/mrf/mrf.h"
#include "QZ/support/assertion.h"
#include "QZ/support/conversions.h"

namespace QZ {

/// Compares model and data on a fixed-point scale of probabilities, with integers alone.
///
/// A gradient entry says only which way its weight should go: 1 raises it, all ones (the word for
/// -1) lowers it, 0 leaves it. Differences of at most `tolerance` on the scale count as agreement.
/// The objective is the largest difference, and so is `gradient_norm`. The sign is opposite to that
/// of the real-valued gradient: 1 means that the data holds the state pair more often.
///
/// `emp` holds counts, `samples` the number of rows behind them.
template <class idx_t>
class IntegerMRF : public MRF<idx_t, idx_t> {
 public:
  IntegerMRF(InferenceAlgorithm<idx_t, idx_t>* engine, idx_t k_limit)
      : MRF<idx_t, idx_t>(engine), k_limit(k_limit) {
    this->lipschitz = 1;
  }

  void decode_weights() override {}

  idx_t eval() override { return this->gradient_norm; }

  /// Sequential over the edges. Asserts that neither the model's nor the data's numerator wraps
  /// below itself on the scale, which only the 32-bit and 64-bit widths can do.
  idx_t* comp_gradient() override {
    this->engine()->infer(0);
    idx_t largest = 0;
    for (idx_t e = 0; e < this->graph->edges(); ++e) {
      const std::size_t begin = this->engine()->weight_offsets[e];
      const std::size_t end = this->engine()->weight_offsets[std::size_t{e} + 1];
      read_edge_fractions(*this->engine(), e, numerators_, normalisers_);
      for (std::size_t i = begin; i < end; ++i) {
        const idx_t model = model_frequency(numerators_[i - begin], normalisers_[i - begin]);
        largest = std::max(largest, compare(i, model, data_frequency(i)));
      }
    }
    this->gradient_norm = largest;
    return this->gradient;
  }

  /// Exclusive bound of a parameter, for callers.
  idx_t k_limit;
  /// The number that stands for probability 1.
  idx_t scale = 255;

 private:
  static constexpr idx_t tolerance = 9;

  idx_t model_frequency(idx_t a, idx_t b) const {
    // The narrow widths multiply in int, where nothing wraps; the wide ones in idx_t.
    const auto scaled = a * scale;
    assert_that(a <= b && scaled >= a, "a<=b && a*scale>=a", door::mrf);
    return b != 0 ? wrapping_cast<idx_t>(scaled / b) : idx_t(0);
  }

  idx_t data_frequency(std::size_t i) const {
    const auto scaled = this->emp[i] * scale;
    assert_that(scaled >= this->emp[i], "emp[i]*scale>=emp[i]", door::mrf);
    return this->samples != 0 ? wrapping_cast<idx_t>(scaled / this->samples) : idx_t(0);
  }

  /// Sets the direction of entry `i` and returns the difference.
  idx_t compare(std::size_t i, idx_t model, idx_t data) {
    const bool raise = data > model;
    const idx_t difference = raise ? wrapping_sub(data, model) : wrapping_sub(model, data);
    if (difference <= tolerance) {
      this->gradient[i] = 0;
    } else {
      this->gradient[i] = raise ? idx_t(1) : all_ones<idx_t>;
    }
    return difference;
  }

  /// The marginals of one edge.
  std::vector<idx_t> numerators_;
  std::vector<idx_t> normalisers_;
};

}  // namespace QZ
