#pragma once

/// Passes over arrays with one rounding per product and sum.
///
/// A fused operation has one result on every machine, but as a library call it costs several times
/// an instruction. So each pass has a body for processors that have the instruction, chosen when it
/// runs, beside the portable one; the two agree to the bit.

#include <cmath>
#include <cstddef>

namespace QZ {

namespace fused {

inline bool has_instruction() {
  static const bool found = __builtin_cpu_supports("fma") && __builtin_cpu_supports("avx2");
  return found;
}

template <class val_t>
[[gnu::always_inline]] inline void add_scaled_body(val_t* out, const val_t* base, val_t factor,
                                                   const val_t* direction, std::size_t n) {
  for (std::size_t i = 0; i < n; ++i) out[i] = std::fma(factor, direction[i], base[i]);
}

template <class val_t>
[[gnu::always_inline]] inline void extrapolate_body(val_t* out, const val_t* now, val_t factor,
                                                    const val_t* before, std::size_t n) {
  for (std::size_t i = 0; i < n; ++i) out[i] = std::fma(factor, now[i] - before[i], now[i]);
}

template <class val_t>
[[gnu::always_inline]] inline val_t inner_product_body(const val_t* a, const val_t* b,
                                                       std::size_t n) {
  val_t sum = 0;
  for (std::size_t i = 0; i < n; ++i) sum = std::fma(a[i], b[i], sum);
  return sum;
}

template <class val_t>
[[gnu::target("avx2,fma")]] void add_scaled_wide(val_t* out, const val_t* base, val_t factor,
                                                 const val_t* direction, std::size_t n) {
  add_scaled_body(out, base, factor, direction, n);
}

template <class val_t>
[[gnu::target("avx2,fma")]] void extrapolate_wide(val_t* out, const val_t* now, val_t factor,
                                                  const val_t* before, std::size_t n) {
  extrapolate_body(out, now, factor, before, n);
}

template <class val_t>
[[gnu::target("avx2,fma")]] val_t inner_product_wide(const val_t* a, const val_t* b,
                                                     std::size_t n) {
  return inner_product_body(a, b, n);
}

}  // namespace fused

/// out[i] = base[i] + factor * direction[i], fused. `out` may be `base`.
template <class val_t>
void add_scaled(val_t* out, const val_t* base, val_t factor, const val_t* direction,
                std::size_t n) {
  if (fused::has_instruction()) return fused::add_scaled_wide(out, base, factor, direction, n);
  fused::add_scaled_body(out, base, factor, direction, n);
}

/// out[i] = now[i] + factor * (now[i] - before[i]), fused on the difference.
template <class val_t>
void extrapolate(val_t* out, const val_t* now, val_t factor, const val_t* before, std::size_t n) {
  if (fused::has_instruction()) return fused::extrapolate_wide(out, now, factor, before, n);
  fused::extrapolate_body(out, now, factor, before, n);
}

/// The sum of a[i] * b[i], fused, in index order from 0.
template <class val_t>
val_t inner_product(const val_t* a, const val_t* b, std::size_t n) {
  if (fused::has_instruction()) return fused::inner_product_wide(a, b, n);
  return fused::inner_product_body(a, b, n);
}

}  // namespace QZ
