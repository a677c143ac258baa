#pragma once

/// Random draws: the standard library's engine and distributions, in one place.

#include <algorithm>
#include <cstddef>
#include <random>

namespace QZ {

/// A uniform number in [0, 1) with 53 random bits, made of two outputs of the engine.
inline double draw_canonical(std::mt19937& rng) { return std::generate_canonical<double, 53>(rng); }

namespace random_blocks {

/// (a + b 2^32) / 2^64 of two outputs a, b, which rounds to 1 at the upper end.
[[gnu::always_inline]] inline void canonical_body(std::mt19937& rng, double* out, std::size_t n) {
  for (std::size_t i = 0; i < n; ++i) {
    const double a = static_cast<double>(rng());
    const double b = static_cast<double>(rng());
    out[i] = std::min((a + b * 0x1p32) * 0x1p-64, 0x1.fffffffffffffp-1);
  }
}

#ifdef __x86_64__
/// The same, with the engine's own loops drawn in and compiled for wide registers: its refill then
/// takes a fifth of the time.
[[gnu::flatten, gnu::target("avx2")]] inline void canonical_wide(std::mt19937& rng, double* out,
                                                                 std::size_t n) {
  canonical_body(rng, out, n);
}
#endif

}  // namespace random_blocks

/// Fills `out` with what `n` calls of `draw_canonical` would give, and leaves the engine where they
/// would.
inline void draw_canonicals(std::mt19937& rng, double* out, std::size_t n) {
#ifdef __x86_64__
  static const bool wide = __builtin_cpu_supports("avx2");
  if (wide) return random_blocks::canonical_wide(rng, out, n);
#endif
  random_blocks::canonical_body(rng, out, n);
}

/// A uniform integer from `low` to `high`, both included.
template <class int_t>
int_t draw_uniform(std::mt19937& rng, int_t low, int_t high) {
  return std::uniform_int_distribution<int_t>(low, high)(rng);
}

}  // namespace QZ
