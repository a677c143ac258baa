#pragma once

/// A polynomial that stands in for a function on an interval.

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <functional>
#include <memory>
#include <type_traits>

#include "QZ/support/conversions.h"

namespace QZ {

/// A function of one variable, handed over by the caller.
template <class val_t>
using RealFunction = std::function<val_t(const val_t&)>;

/// The polynomial p(x) = sum over i of c_i x^i of a given degree on [lower, upper], and its
/// distance from the function that it approximates, as the largest absolute difference.
///
/// A degree of all ones stands for no terms at all, and p is 0 then.
template <class idx_t, class val_t>
class PolyApproximation {
  static_assert(std::is_unsigned_v<idx_t> && std::is_floating_point_v<val_t>);

 public:
  PolyApproximation(const val_t& lower, const val_t& upper, const idx_t& degree);
  PolyApproximation(const PolyApproximation&) = delete;
  PolyApproximation& operator=(const PolyApproximation&) = delete;

  /// Measures the distance from `f` at steps of 1/n of the interval, starting with the lower end,
  /// and keeps it. Whether the upper end is met depends on the rounding of the running sum. 0 if
  /// the interval is empty. Where a step is too small to move, the scan ends.
  virtual val_t error(RealFunction<val_t>& f, const idx_t& n);

  virtual ~PolyApproximation();

  /// The coefficients c_0 to c_degree, owned by this object.
  virtual val_t* coefficients() { return coefficients_; }

  /// The distance as last measured or solved for.
  virtual val_t error() { return error_; }

  virtual val_t evaluate(const val_t& x) const;

  /// Fits the polynomial to `f` with the derivatives `f1` and `f2`, in so many iterations.
  virtual void apx(RealFunction<val_t>& f, RealFunction<val_t>& f1, RealFunction<val_t>& f2,
                   const idx_t& iterations) = 0;

 protected:
  /// Number of coefficients.
  std::size_t terms() const { return wrapping_cast<idx_t>(degree_ + idx_t(1)); }

  val_t error_ = 0;
  val_t lower_;
  val_t upper_;
  /// terms() * terms() entries, all -1: room that each class of approximation has for a basis.
  val_t* aux_matrix_;
  idx_t degree_;
  val_t* coefficients_;
};

template <class idx_t, class val_t>
PolyApproximation<idx_t, val_t>::PolyApproximation(const val_t& lower, const val_t& upper,
                                                   const idx_t& degree)
    : lower_(lower), upper_(upper), degree_(degree) {
  auto matrix = std::make_unique<val_t[]>(terms() * terms());
  std::fill_n(matrix.get(), terms() * terms(), val_t(-1));
  coefficients_ = std::make_unique<val_t[]>(terms()).release();
  aux_matrix_ = matrix.release();
}

template <class idx_t, class val_t>
PolyApproximation<idx_t, val_t>::~PolyApproximation() {
  delete[] aux_matrix_;
  delete[] coefficients_;
}

template <class idx_t, class val_t>
val_t PolyApproximation<idx_t, val_t>::error(RealFunction<val_t>& f, const idx_t& n) {
  const val_t step = (upper_ - lower_) / static_cast<val_t>(n);
  error_ = 0;
  val_t x = lower_;
  while (x <= upper_) {
    error_ = std::max(error_, std::abs(f(x) - evaluate(x)));
    const val_t next = x + step;
    if (next == x) break;
    x = next;
  }
  return error_;
}

template <class idx_t, class val_t>
val_t PolyApproximation<idx_t, val_t>::evaluate(const val_t& x) const {
  val_t sum = 0;
  for (std::size_t i = 0; i < terms(); ++i) {
    sum = std::fma(coefficients_[i], std::pow(x, static_cast<val_t>(i)), sum);
  }
  return sum;
}

}  // namespace QZ
