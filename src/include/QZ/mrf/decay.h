#pragma once

/// How the influence of a time step fades.

#include <cmath>

#include "QZ/mrf/reparam_type.h"
#include "QZ/support/assertion.h"
#include "QZ/support/conversions.h"

namespace QZ {

/// Maps `x` linearly from [a, b] to [l, u]. An interval of one point maps to one point: asserts
/// "x==a" and "l==u".
template <class val_t>
val_t project(val_t l, val_t u, val_t x, val_t a, val_t b) {
  if (a != b) return std::fma((x - a) / (b - a), u - l, l);
  assert_that(x == a, "x==a", door::mrf);
  assert_that(l == u, "l==u", door::mrf);
  return l;
}

/// The weight that the parameters of step `i` have at time `T`, with i <= T: 1 for i = T. The forms
/// with INV are the inverse functions of the plain ones, pulled back onto their range [c, 1]. A
/// kind that is no decay has weight 0.
template <class val_t, class idx_t>
val_t decay_coeff(const idx_t& i, const idx_t& T, ReparamType kind) {
  const val_t step = static_cast<val_t>(i);
  const val_t time = static_cast<val_t>(T);
  const val_t span = time + 1;
  const val_t p = (step + 1) / span;
  const auto onto = [&](val_t c, val_t x) { return project<val_t>(c, 1, x, 0, time); };
  switch (kind) {
    case ReparamType::NONE:
      return 1;
    case ReparamType::STLINEAR:
      return p;
    case ReparamType::STQUAD:
      return p * p;
    case ReparamType::STCUBIC:
      return std::pow(p, val_t(3));
    case ReparamType::STRATIONAL:
      return 1 / (static_cast<val_t>(wrapping_sub(T, i)) + 1);
    case ReparamType::STEXPONENTIAL:
      return std::exp(step - time);
    case ReparamType::STINVQUAD: {
      const val_t c = 1 / (span * span);
      return onto(c, span * std::pow(onto(c, step), val_t(0.5)) - 1);
    }
    case ReparamType::STINVCUBIC: {
      const val_t c = 1 / std::pow(span, val_t(3));
      return onto(c, span * static_cast<val_t>(std::pow(onto(c, step), 1.0 / 3.0)) - 1);
    }
    case ReparamType::STINVRATIONAL: {
      const val_t c = 1 / span;
      return onto(c, span - 1 / onto(c, step));
    }
    case ReparamType::STINVEXPONENTIAL: {
      const val_t c = std::exp(-time);
      return onto(c, std::log(onto(c, step)) + time);
    }
    default:
      return 0;
  }
}

}  // namespace QZ
