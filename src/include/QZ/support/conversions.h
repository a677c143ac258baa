#pragma once

/// Conversions that carry meaning. A bare cast between numbers of different kinds hides which of
/// these was meant, so none stands elsewhere.

#include <limits>
#include <type_traits>

namespace QZ {

/// The nearest value of the unsigned type `to_t`, truncated toward zero: 0 for a negative number or
/// a NaN, the largest value for a number above the range. A free vertex, stored as -1.0, becomes
/// state 0.
template <class to_t, class from_t>
constexpr to_t saturating_cast(from_t x) {
  static_assert(std::is_unsigned_v<to_t>);
  if constexpr (std::is_floating_point_v<from_t>) {
    // The bound is a power of two and exact in either floating type.
    constexpr from_t bound = static_cast<from_t>(to_t(1) << (sizeof(to_t) * 8 - 1)) * 2;
    if (!(x > 0)) return 0;
    if (x >= bound) return std::numeric_limits<to_t>::max();
    return static_cast<to_t>(x);
  } else {
    if (std::is_signed_v<from_t> && x < from_t(0)) return 0;
    using wide_t = std::make_unsigned_t<from_t>;
    return static_cast<wide_t>(x) > std::numeric_limits<to_t>::max()
               ? std::numeric_limits<to_t>::max()
               : static_cast<to_t>(x);
  }
}

/// A real number as a value of the library: rounded to float, unchanged as double, saturated as an
/// unsigned integer.
template <class val_t>
constexpr val_t value_cast(double x) {
  if constexpr (std::is_integral_v<val_t>) {
    return saturating_cast<val_t>(x);
  } else {
    return static_cast<val_t>(x);
  }
}

/// The low bits of the number as a signed 64-bit integer. A free vertex, stored as -1.0, becomes
/// all ones, which no state count reaches. A number outside the signed range, or a NaN, counts as
/// the smallest signed number.
template <class to_t, class from_t>
constexpr to_t signed_cast(from_t x) {
  static_assert(std::is_unsigned_v<to_t>);
  if constexpr (std::is_floating_point_v<from_t>) {
    constexpr from_t bound = static_cast<from_t>(1ul << 63);
    const long whole =
        x >= -bound && x < bound ? static_cast<long>(x) : std::numeric_limits<long>::min();
    return static_cast<to_t>(whole);
  } else {
    return static_cast<to_t>(x);
  }
}

/// The low bits of an integer: what is left of a wider result in a narrower word. The narrow types
/// are promoted to int by the language, so a sum or product is cut after every operation.
template <class to_t, class from_t>
constexpr to_t wrapping_cast(from_t x) {
  static_assert(std::is_unsigned_v<to_t> && std::is_integral_v<from_t>);
  return static_cast<to_t>(x);
}

template <class word_t>
constexpr word_t wrapping_add(word_t a, word_t b) {
  return wrapping_cast<word_t>(static_cast<unsigned long>(a) + static_cast<unsigned long>(b));
}

template <class word_t>
constexpr word_t wrapping_sub(word_t a, word_t b) {
  return wrapping_cast<word_t>(static_cast<unsigned long>(a) - static_cast<unsigned long>(b));
}

template <class word_t>
constexpr word_t wrapping_mul(word_t a, word_t b) {
  return wrapping_cast<word_t>(static_cast<unsigned long>(a) * static_cast<unsigned long>(b));
}

/// The word that stands for "no vertex", "no edge" or "free" in an index type.
template <class idx_t>
inline constexpr idx_t all_ones = std::numeric_limits<idx_t>::max();

}  // namespace QZ
