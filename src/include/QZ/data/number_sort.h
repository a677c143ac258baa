#pragma once

/// Sorting of long columns of numbers.

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <memory>
#include <utility>

namespace QZ {

/// Sorts a long column in time linear in its length: by the digits of the numbers' bit patterns,
/// from the lowest digit up. Numbers that are all NaN keep some order.
class NumberSort {
 public:
  static void ascending(double* values, std::size_t n) {
    // The digit counts are worth it only for more numbers than there are digits.
    if (n < 4 * radix) {
      std::sort(values, values + n);
      return;
    }
    const std::unique_ptr<Key[]> memory(new Key[2 * n]);
    Key* from = memory.get();
    Key* to = from + n;
    Counts counts{};
    for (std::size_t i = 0; i < n; ++i) {
      from[i] = key_of(values[i]);
      for (unsigned int d = 0; d < digits; ++d) ++counts[d][digit(from[i], d)];
    }
    for (unsigned int d = 0; d < digits; ++d) {
      // A digit that all numbers share orders nothing.
      if (counts[d][digit(from[0], d)] == n) continue;
      distribute(from, to, n, d, counts[d]);
      std::swap(from, to);
    }
    for (std::size_t i = 0; i < n; ++i) values[i] = value_of(from[i]);
  }

 private:
  using Key = unsigned long;

  static constexpr unsigned int digit_bits = 11;
  static constexpr unsigned int digits = 6;
  static constexpr std::size_t radix = 1ul << digit_bits;
  static constexpr Key sign = 1ul << 63;

  using Counts = std::array<std::array<std::size_t, radix>, digits>;

  /// An integer with the order of the number: negative numbers are complemented, and stand below
  /// the others.
  static Key key_of(double x) {
    const Key bits = std::bit_cast<Key>(x);
    return (bits & sign) != 0 ? ~bits : bits | sign;
  }

  static double value_of(Key key) {
    return std::bit_cast<double>((key & sign) != 0 ? key & ~sign : ~key);
  }

  static std::size_t digit(Key key, unsigned int d) { return key >> digit_bits * d & (radix - 1); }

  static void distribute(const Key* from, Key* to, std::size_t n, unsigned int d,
                         std::array<std::size_t, radix>& count) {
    std::size_t start = 0;
    for (std::size_t& place : count) start += std::exchange(place, start);
    for (std::size_t i = 0; i < n; ++i) to[count[digit(from[i], d)]++] = from[i];
  }
};

}  // namespace QZ
