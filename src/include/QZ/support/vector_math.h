#pragma once

/// Exponentials and logarithms of whole arrays.
///
/// The bodies are straight-line arithmetic on one number, written so that a compiler turns a loop
/// over them into vector instructions on any machine; where the processor has wider ones, another
/// copy of the same loop uses them and gives the same bits. Errors stay below 2 units in the last
/// place. Numbers outside the range of the straight-line form go through the standard functions.

#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <type_traits>

#include "QZ/support/wide_registers.h"

namespace QZ {

namespace vector_math {

/// What the straight-line forms need to know about a floating type.
template <class val_t>
struct Format;

template <>
struct Format<double> {
  using word_t = std::uint64_t;
  static constexpr int mantissa_bits = 52;
  static constexpr word_t bias = 1023;
  static constexpr double log2_high = 0x1.62e42fefa38p-1;
  static constexpr double log2_low = 0x1.ef35793c7673p-45;
  /// Arguments of exp within these bounds have normal results.
  static constexpr double exp_limit = 708;
  static constexpr int exp_terms = 13;
  static constexpr int log_terms = 11;
};

template <>
struct Format<float> {
  using word_t = std::uint32_t;
  static constexpr int mantissa_bits = 23;
  static constexpr word_t bias = 127;
  static constexpr float log2_high = 0x1.62ep-1f;
  static constexpr float log2_low = 0x1.0bfbe8p-15f;
  static constexpr float exp_limit = 87;
  static constexpr int exp_terms = 7;
  static constexpr int log_terms = 5;
};

/// Coefficients 1 / k! of the exponential series.
template <class val_t, int k>
constexpr val_t exp_coefficient() {
  double factorial = 1;
  for (int i = 2; i <= k; ++i) factorial *= i;
  return static_cast<val_t>(1 / factorial);
}

template <class val_t, int k>
[[gnu::always_inline]] inline val_t exp_series(val_t r) {
  if constexpr (k == Format<val_t>::exp_terms) {
    return exp_coefficient<val_t, k>();
  } else {
    return exp_coefficient<val_t, k>() + r * exp_series<val_t, k + 1>(r);
  }
}

/// sum over k of z^k / (2k + 3), the tail of the series of atanh.
template <class val_t, int k>
[[gnu::always_inline]] inline val_t log_series(val_t z) {
  constexpr val_t coefficient = static_cast<val_t>(1.0 / (2 * k + 3));
  if constexpr (k == Format<val_t>::log_terms) {
    return coefficient;
  } else {
    return coefficient + z * log_series<val_t, k + 1>(z);
  }
}

/// exp(x) for |x| <= exp_limit: x = k log 2 + r, the series of exp(r), and 2^k by its bits.
template <class val_t>
[[gnu::always_inline]] inline val_t exp_lane(val_t x) {
  using format = Format<val_t>;
  using word_t = typename format::word_t;
  // Adding this number rounds to an integer and leaves it in the low bits.
  constexpr val_t shift = static_cast<val_t>(word_t(3) << (format::mantissa_bits - 1));
  constexpr val_t log2_inverse = static_cast<val_t>(1.44269504088896340736);
  const val_t shifted = x * log2_inverse + shift;
  const val_t k = shifted - shift;
  const val_t r = (x - k * format::log2_high) - k * format::log2_low;
  const word_t scale = (std::bit_cast<word_t>(shifted) + format::bias) << format::mantissa_bits;
  return exp_series<val_t, 0>(r) * std::bit_cast<val_t>(scale);
}

/// log(x) for positive normal x: x = 2^k m with m around 1, and log m = 2 atanh((m - 1) / (m + 1)).
template <class val_t>
[[gnu::always_inline]] inline val_t log_lane(val_t x) {
  using format = Format<val_t>;
  using word_t = typename format::word_t;
  constexpr word_t one = format::bias << format::mantissa_bits;
  constexpr word_t fraction = (word_t(1) << format::mantissa_bits) - 1;
  constexpr word_t root_half = std::bit_cast<word_t>(static_cast<val_t>(0.70710678118654752440));
  // An integer or'ed into the low bits of 2^mantissa_bits is that number plus the integer.
  constexpr val_t whole = static_cast<val_t>(word_t(1) << format::mantissa_bits);
  const word_t moved = std::bit_cast<word_t>(x) + (one - root_half);
  const word_t exponent = moved >> format::mantissa_bits;
  const val_t k = std::bit_cast<val_t>(std::bit_cast<word_t>(whole) | exponent) -
                  (whole + static_cast<val_t>(format::bias));
  const val_t f = std::bit_cast<val_t>((moved & fraction) + root_half) - 1;
  const val_t s = f / (2 + f);
  const val_t z = s * s;
  // f - s * (f - tail) keeps the leading term exact.
  const val_t tail = 2 * z * log_series<val_t, 0>(z);
  return k * format::log2_high + (f - (s * (f - tail) - k * format::log2_low));
}

template <class val_t>
[[gnu::always_inline]] inline void exp_body(const val_t* in, val_t* out, std::size_t n) {
  for (std::size_t i = 0; i < n; ++i) out[i] = exp_lane(in[i]);
}

template <class val_t>
[[gnu::always_inline]] inline void log_body(const val_t* in, val_t* out, std::size_t n) {
  for (std::size_t i = 0; i < n; ++i) out[i] = log_lane(in[i]);
}

/// Words whose highest bit is set if the straight-line form does not cover x. Positive numbers are
/// ordered as their bits are.
template <class val_t>
[[gnu::always_inline]] inline auto beyond_exp(val_t x) {
  using word_t = typename Format<val_t>::word_t;
  constexpr word_t limit = std::bit_cast<word_t>(Format<val_t>::exp_limit);
  constexpr word_t magnitude = ~word_t(0) >> 1;
  return limit - (std::bit_cast<word_t>(x) & magnitude);
}
template <class val_t>
[[gnu::always_inline]] inline auto beyond_log(val_t x) {
  using word_t = typename Format<val_t>::word_t;
  constexpr word_t low = std::bit_cast<word_t>(std::numeric_limits<val_t>::min());
  constexpr word_t high = std::bit_cast<word_t>(std::numeric_limits<val_t>::max());
  const word_t word = std::bit_cast<word_t>(x);
  return (word - low) | (high - word);
}

/// Claims that no number sets the highest bit of what `beyond` makes of it.
template <class val_t, class Beyond>
bool all_covered(const val_t* in, std::size_t n, const Beyond& beyond) {
  using word_t = typename Format<val_t>::word_t;
  word_t found = 0;
  on_widest_registers([ in, n, &found, &beyond ]() __attribute__((always_inline)) {
    word_t words = 0;
    for (std::size_t i = 0; i < n; ++i) words |= beyond(in[i]);
    found = words;
  });
  return found >> (8 * sizeof(word_t) - 1) == 0;
}

}  // namespace vector_math

/// Numbers of this magnitude and below have normal exponentials, and so have sums of a few of them.
template <class val_t>
inline constexpr val_t safe_exponent = sizeof(val_t) == sizeof(float) ? val_t(80) : val_t(700);

/// out[i] = exp(in[i]). `out` may be `in`.
template <class val_t>
void exp_all(const val_t* in, val_t* out, std::size_t n) {
  const auto beyond = [](val_t x) __attribute__((always_inline)) {
    return vector_math::beyond_exp(x);
  };
  if (!vector_math::all_covered(in, n, beyond)) {
    for (std::size_t i = 0; i < n; ++i) out[i] = std::exp(in[i]);
  } else {
    on_widest_registers([=]()
                            __attribute__((always_inline)) { vector_math::exp_body(in, out, n); });
  }
}

/// out[i] = log(in[i]). `out` may be `in`.
template <class val_t>
void log_all(const val_t* in, val_t* out, std::size_t n) {
  const auto beyond = [](val_t x) __attribute__((always_inline)) {
    return vector_math::beyond_log(x);
  };
  if (!vector_math::all_covered(in, n, beyond)) {
    for (std::size_t i = 0; i < n; ++i) out[i] = std::log(in[i]);
  } else {
    on_widest_registers([=]()
                            __attribute__((always_inline)) { vector_math::log_body(in, out, n); });
  }
}

}  // namespace QZ
