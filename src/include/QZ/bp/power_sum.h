#pragma once

/// Sums of powers of two whose exponents may be of any size.

#include <algorithm>
#include <bit>
#include <cstddef>

#include "QZ/comb/sparse_uint.h"

namespace QZ {

/// A sum of powers of two as a 128-bit word above its smallest exponent, which holds it exactly as
/// long as the exponents lie close together. Otherwise it says so, and the sum has to be formed as
/// a `sparse_uint_t`.
class NarrowPowerSum {
 public:
  /// The sum over x below `count` of 2^exponent(x). Calls `exponent` twice for each x.
  template <class Exponent>
  NarrowPowerSum(std::size_t count, Exponent&& exponent) {
    unsigned long largest = 0;
    low_ = ~0ul;
    for (std::size_t x = 0; x < count; ++x) {
      const unsigned long e = exponent(x);
      low_ = std::min(low_, e);
      largest = std::max(largest, e);
    }
    // The sum is below count * 2^largest.
    exact_ =
        count > 0 && largest - low_ < 128ul - static_cast<unsigned long>(std::bit_width(count));
    if (!exact_) return;
    for (std::size_t x = 0; x < count; ++x) {
      sum_ += static_cast<unsigned __int128>(1) << (exponent(x) - low_);
    }
  }

  /// Whether the sum is held. The other members may be asked only then.
  bool exact() const { return exact_; }

  /// The position of the highest set bit, plus 1.
  unsigned long bit_length() const {
    const auto high = static_cast<unsigned long>(sum_ >> 64);
    const auto width =
        high != 0 ? 64 + std::bit_width(high) : std::bit_width(static_cast<unsigned long>(sum_));
    return low_ + static_cast<unsigned long>(width);
  }

  /// The sum shifted right by `k`, where that fits a word.
  unsigned long shifted(unsigned long k) const {
    if (k <= low_) return static_cast<unsigned long>(sum_) << (low_ - k);
    return k - low_ < 128 ? static_cast<unsigned long>(sum_ >> (k - low_)) : 0;
  }

 private:
  bool exact_ = false;
  unsigned long low_ = 0;
  unsigned __int128 sum_ = 0;
};

/// The bit length of the sum over x below `count`, which is not 0, of 2^exponent(x).
template <class Exponent>
unsigned long power_sum_length(std::size_t count, Exponent&& exponent) {
  const NarrowPowerSum narrow(count, exponent);
  if (narrow.exact()) return narrow.bit_length();
  sparse_uint_t sum;
  for (std::size_t x = 0; x < count; ++x) sum.p2x(exponent(x));
  return *sum.positions().rbegin() + 1;
}

}  // namespace QZ
