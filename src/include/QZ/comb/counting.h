#pragma once

/// Binomial coefficients, Stirling numbers of the second kind, and lexicographic unranking, all by
/// logarithms and floating point: the cost does not grow with the result, and results above 2^53
/// are approximate. Where a count must be exact, use `QZ/comb/subsets.h`.

#include <cmath>
#include <cstddef>
#include <type_traits>

#include "QZ/support/assertion.h"
#include "QZ/support/conversions.h"

namespace QZ {

/// Natural logarithm in `val_t` for floating types. An integer type takes its logarithms in double
/// and cuts only the running sum.
template <class val_t, class idx_t>
auto counting_log(idx_t x) {
  using real_t = std::conditional_t<std::is_floating_point_v<val_t>, val_t, double>;
  return std::log(static_cast<real_t>(x));
}

/// n over k. With an integer `val_t` the running sum of logarithms is an integer as well, so that
/// only the cases k = 0, 1, n - 1, n and n < k are exact; code that needs an integer computes in
/// double and converts.
template <class idx_t, class val_t>
val_t binom(const idx_t& n, idx_t k) {
  if (k == 0 || n == k) return 1;
  if (k == 1 || k == n - 1) return static_cast<val_t>(n);
  if (n < k) return 0;
  const idx_t r = n - k < k ? wrapping_sub(n, k) : k;
  val_t sum = 0;
  for (idx_t i = 1; i <= r; ++i) {
    const idx_t top = wrapping_cast<idx_t>(n - r + i);
    const auto grown = sum + (counting_log<val_t>(top) - counting_log<val_t>(i));
    if constexpr (std::is_floating_point_v<val_t>) {
      sum = grown;
    } else {
      sum = saturating_cast<val_t>(grown);
    }
  }
  if constexpr (std::is_floating_point_v<val_t>) {
    return std::round(std::exp(sum));
  } else {
    return saturating_cast<val_t>(std::round(std::exp(static_cast<double>(sum))));
  }
}

/// The number of partitions of n elements into k non-empty blocks, by the alternating sum over the
/// surjections. Cancellation makes that sum negative for large arguments: asserts "sum>=0".
template <class idx_t, class val_t>
val_t stirling2(const idx_t& n, const idx_t& k) {
  static_assert(std::is_floating_point_v<val_t>);
  if (k == 0) return n == 0 ? 1 : 0;
  if (n == k || k == 1) return 1;
  const val_t elements = static_cast<val_t>(n);
  if (k == 2) return std::pow(val_t(2), elements - 1) - 1;
  if (n == k + 1) return binom<idx_t, val_t>(n, 2);
  val_t sum = 0;
  for (std::size_t j = 0; j <= k; ++j) {
    const val_t sign = std::pow(val_t(-1), static_cast<val_t>(k - j));
    const val_t ways = sign * binom<idx_t, val_t>(k, static_cast<idx_t>(j));
    sum = std::fma(ways, std::pow(static_cast<val_t>(j), elements), sum);
  }
  assert_that(sum >= 0, "sum>=0", door::comb);
  val_t factorial = 1;
  for (std::size_t j = 2; j <= k; ++j) factorial *= static_cast<val_t>(j);
  return std::round(sum / factorial);
}

/// Writes the L-th p-subset of 1..n, counted from 1 in lexicographic order, ascending into `c`.
///
/// With p = 1 the entry is formed on top of the word in front of `c`, which the caller sets to 0.
/// Asserts "R!=0" when there are fewer than L such subsets.
/// Source: Buckles and Lybanon 1977, Generation of a vector from the lexicographical index.
template <class idx_t>
void comb(const idx_t& n, const idx_t& p, const idx_t& L, idx_t* c) {
  if (p == 0) return;
  idx_t k = 0;
  idx_t r = 0;
  for (idx_t i = 0; i + 1 < p; ++i) {
    for (;;) {
      c[i] = wrapping_add<idx_t>(r, 1);
      r = c[i];
      const idx_t m = wrapping_sub(n, r);
      const idx_t q = wrapping_cast<idx_t>(p - i - 1);
      const double R = m < q ? 0 : binom<idx_t, double>(m, q);
      assert_that(R != 0, "R!=0", door::comb);
      // The narrow types could not hold the count passed, so it is compared before it is stored.
      const double passed = static_cast<double>(k) + R;
      if (saturating_cast<idx_t>(passed) >= L) {
        k = saturating_cast<idx_t>(passed - R);
        break;
      }
      k = saturating_cast<idx_t>(passed);
    }
  }
  const idx_t* before = c + (p - 1) - 1;
  c[p - 1] = wrapping_cast<idx_t>(*before + L - k);
}

}  // namespace QZ
