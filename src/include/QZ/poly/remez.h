#pragma once

/// Best polynomial approximation in the maximum norm.

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <memory>
#include <numbers>
#include <numeric>

#include "QZ/poly/matrix_inverse.h"
#include "QZ/poly/polynomial.h"

namespace QZ {

/// What the approximations from Chebyshev points have in common.
template <class idx_t, class val_t>
class ChebyshevApproximation : public PolyApproximation<idx_t, val_t> {
 public:
  ChebyshevApproximation(const val_t& lower, const val_t& upper, const idx_t& degree)
      : PolyApproximation<idx_t, val_t>(lower, upper, degree) {
    const std::size_t entries = this->terms() * this->terms();
    cheb_matrix_ = new val_t[entries];
    std::fill_n(cheb_matrix_, entries, val_t(-1));
  }
  ~ChebyshevApproximation() override { delete[] cheb_matrix_; }

 protected:
  /// As `aux_matrix_`.
  val_t* cheb_matrix_;
};

/// The exchange with degree + 2 reference points ("nodes"), ascending from the lower end to the
/// upper.
///
/// Each iteration solves p(x_j) + (-1)^j E = f(x_j) for the coefficients and the level E, and then
/// moves every inner node by a damped Newton step toward an extremum of |f - p|, one node at a time
/// against the fixed coefficients, so that a node sees where the ones before it have gone. The
/// error is |E|, which falls short of the true distance until the nodes have settled. Source: Remez
/// 1934, Sur le calcul effectif des polynomes d'approximation de Tchebichef.
template <class idx_t, class val_t>
class ChebyshevApproximationRemez : public ChebyshevApproximation<idx_t, val_t> {
  using Base = ChebyshevApproximation<idx_t, val_t>;
  using Base::coefficients_;
  using Base::lower_;
  using Base::upper_;

 public:
  ChebyshevApproximationRemez(const val_t& lower, const val_t& upper, const idx_t& degree);
  ~ChebyshevApproximationRemez() override;

  /// Runs `iterations` rounds from where the nodes stand; there is no test of convergence. The step
  /// length shrinks with the square root of the round. Throws bad_function_call for an empty
  /// function; stops at the assertion "false" if nodes coincide.
  void apx(RealFunction<val_t>& f, RealFunction<val_t>& f1, RealFunction<val_t>& f2,
           const idx_t& iterations) override;

  /// The degree + 2 reference points.
  const val_t* nodes() const { return nodes_; }

 protected:
  /// Coefficients and level of the last solve.
  val_t* solution_;
  /// Row j holds the powers 0 to degree of node j and the sign of its deviation.
  val_t* system_;
  /// The function at the nodes.
  val_t* node_values_;
  val_t* nodes_;

 private:
  std::size_t points() const { return this->terms() + 1; }
  void fill_powers(std::size_t j);
  void solve(val_t*& inverse);
  val_t newton_candidate(val_t x, val_t damp, RealFunction<val_t>& f, RealFunction<val_t>& f1,
                         RealFunction<val_t>& f2) const;
  bool accepts(std::size_t j, val_t candidate) const;
};

template <class idx_t, class val_t>
ChebyshevApproximationRemez<idx_t, val_t>::ChebyshevApproximationRemez(const val_t& lower,
                                                                       const val_t& upper,
                                                                       const idx_t& degree)
    : Base(lower, upper, degree) {
  const std::size_t n = points();
  auto solution = std::make_unique<val_t[]>(n);
  auto system = std::make_unique<val_t[]>(n * n);
  auto values = std::make_unique<val_t[]>(n);
  nodes_ = std::make_unique<val_t[]>(n).release();
  solution_ = solution.release();
  system_ = system.release();
  node_values_ = values.release();

  const double points = static_cast<double>(n);
  for (std::size_t i = 0; i < n; ++i) {
    const double angle = (points - static_cast<double>(i) - 0.5) * std::numbers::pi / points;
    nodes_[i] = static_cast<val_t>(lower + ((upper - lower) / 2) * (std::cos(angle) + 1));
  }
  nodes_[0] = lower;
  nodes_[n - 1] = upper;
  for (std::size_t i = 0; i < n; ++i) {
    fill_powers(i);
    system_[i * n + n - 1] = i % 2 == 0 ? val_t(1) : val_t(-1);
  }
}

template <class idx_t, class val_t>
ChebyshevApproximationRemez<idx_t, val_t>::~ChebyshevApproximationRemez() {
  delete[] solution_;
  delete[] system_;
  delete[] node_values_;
  delete[] nodes_;
}

template <class idx_t, class val_t>
void ChebyshevApproximationRemez<idx_t, val_t>::apx(RealFunction<val_t>& f, RealFunction<val_t>& f1,
                                                    RealFunction<val_t>& f2,
                                                    const idx_t& iterations) {
  const std::size_t n = points();
  for (std::size_t j = 0; j < n; ++j) node_values_[j] = f(nodes_[j]);
  auto work = std::make_unique<val_t[]>(n * n);
  val_t* inverse = work.get();
  for (idx_t k = 0; k < iterations; ++k) {
    solve(inverse);
    const val_t damp = std::sqrt(static_cast<val_t>(k) + 1);
    for (std::size_t j = 0; j < n; ++j) {
      const val_t candidate = newton_candidate(nodes_[j], damp, f, f1, f2);
      if (!accepts(j, candidate)) continue;
      nodes_[j] = candidate;
      node_values_[j] = f(candidate);
      fill_powers(j);
    }
  }
}

template <class idx_t, class val_t>
void ChebyshevApproximationRemez<idx_t, val_t>::fill_powers(std::size_t j) {
  val_t* const row = system_ + j * points();
  for (std::size_t c = 0; c < this->terms(); ++c) {
    row[c] = std::pow(nodes_[j], static_cast<val_t>(c));
  }
}

template <class idx_t, class val_t>
void ChebyshevApproximationRemez<idx_t, val_t>::solve(val_t*& inverse) {
  const std::size_t n = points();
  const val_t* const system = system_;
  invert(inverse, system, n);
  for (std::size_t i = 0; i < n; ++i) {
    const val_t* const row = inverse + i * n;
    solution_[i] = std::inner_product(row, row + n, node_values_, val_t(0));
  }
  std::copy_n(solution_, n - 1, coefficients_);
  this->error_ = std::abs(solution_[n - 1]);
}

/// One Newton step from `x` toward a zero of g, the derivative of |r|; h is the derivative of g.
template <class idx_t, class val_t>
val_t ChebyshevApproximationRemez<idx_t, val_t>::newton_candidate(val_t x, val_t damp,
                                                                  RealFunction<val_t>& f,
                                                                  RealFunction<val_t>& f1,
                                                                  RealFunction<val_t>& f2) const {
  val_t p1 = 0;
  val_t p2 = 0;
  for (std::size_t i = 1; i < this->terms(); ++i) {
    const val_t power = static_cast<val_t>(i);
    const val_t first = coefficients_[i] * power;
    p1 = std::fma(first, std::pow(x, power - 1), p1);
    if (i > 1) p2 = std::fma(first * (power - 1), std::pow(x, power - 2), p2);
  }
  const val_t r = f(x) - this->evaluate(x);
  const val_t r1 = f1(x) - p1;
  const val_t r2 = f2(x) - p2;
  const val_t g = (r * r1) / std::abs(r);
  const val_t h = ((r1 * r1 + r2 * r) - g * g) / std::abs(r);
  return x - (1 / damp) * (g / h);
}

/// Whether node `j` may go to `candidate`: the end nodes stay, and the order of the nodes too. A
/// candidate that is not a number, as from a node where p meets f, fails the comparisons.
template <class idx_t, class val_t>
bool ChebyshevApproximationRemez<idx_t, val_t>::accepts(std::size_t j, val_t candidate) const {
  if (j == 0 || j + 1 == points()) return false;
  return candidate >= lower_ && candidate <= upper_ && candidate > nodes_[j - 1] &&
         candidate < nodes_[j + 1];
}

}  // namespace QZ
