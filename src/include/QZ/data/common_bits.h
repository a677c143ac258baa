#pragma once

/// How many bits two bit sets have in common, by the best means of the machine at hand.

#include <cstddef>

namespace QZ {

/// Counts the bits of a[i] & b[i] over `words` words.
using CommonBits = unsigned long (*)(const unsigned long* a, const unsigned long* b,
                                     std::size_t words);

/// A counter, and up to how many states a variable is better kept as bit sets than as numbers: with
/// S states a pair costs (S - 1)^2 counts over rows / 64 words, and one addition per row otherwise.
struct BitCounting {
  CommonBits common;
  unsigned long most_states;
};

/// By shifts and additions alone, which compilers turn into vector code on any machine.
inline unsigned long common_bits_portable(const unsigned long* a, const unsigned long* b,
                                          std::size_t words) {
  constexpr unsigned long pairs = 0x5555555555555555;
  constexpr unsigned long nibbles = 0x3333333333333333;
  constexpr unsigned long bytes = 0x0f0f0f0f0f0f0f0f;
  constexpr unsigned long shorts = 0x00ff00ff00ff00ff;
  unsigned long lanes = 0;
  for (std::size_t i = 0; i < words; ++i) {
    unsigned long x = a[i] & b[i];
    x -= x >> 1 & pairs;
    x = (x & nibbles) + (x >> 2 & nibbles);
    x = (x + (x >> 4)) & bytes;
    x = (x & shorts) + (x >> 8 & shorts);
    x += x >> 16;
    lanes += (x + (x >> 32)) & 0xff;
  }
  return lanes;
}

#if defined(__x86_64__)

[[gnu::target("popcnt")]] inline unsigned long common_bits_popcnt(const unsigned long* a,
                                                                  const unsigned long* b,
                                                                  std::size_t words) {
  unsigned long even = 0;
  unsigned long odd = 0;
  std::size_t i = 0;
  for (; i + 2 <= words; i += 2) {
    even += static_cast<unsigned long>(__builtin_popcountl(a[i] & b[i]));
    odd += static_cast<unsigned long>(__builtin_popcountl(a[i + 1] & b[i + 1]));
  }
  if (i < words) even += static_cast<unsigned long>(__builtin_popcountl(a[i] & b[i]));
  return even + odd;
}

[[gnu::target("avx512f,avx512vpopcntdq")]] inline unsigned long common_bits_avx512(
    const unsigned long* a, const unsigned long* b, std::size_t words) {
  unsigned long count = 0;
  for (std::size_t i = 0; i < words; ++i) {
    count += static_cast<unsigned long>(__builtin_popcountl(a[i] & b[i]));
  }
  return count;
}

/// The choice for this machine, made once.
inline BitCounting bit_counting() {
  static const BitCounting chosen = [] {
    __builtin_cpu_init();
    if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512vpopcntdq")) {
      return BitCounting{common_bits_avx512, 18};
    }
    if (__builtin_cpu_supports("popcnt")) return BitCounting{common_bits_popcnt, 10};
    return BitCounting{common_bits_portable, 6};
  }();
  return chosen;
}

#else

/// The choice for this machine.
inline BitCounting bit_counting() { return {common_bits_portable, 6}; }

#endif

}  // namespace QZ
