#pragma once

/// Random draws: the standard library's engine and distributions, in one place.

#include <random>

namespace QZ {

/// A uniform number in [0, 1) with 53 random bits, made of two outputs of the engine.
inline double draw_canonical(std::mt19937& rng) { return std::generate_canonical<double, 53>(rng); }

/// A uniform integer from `low` to `high`, both included.
template <class int_t>
int_t draw_uniform(std::mt19937& rng, int_t low, int_t high) {
  return std::uniform_int_distribution<int_t>(low, high)(rng);
}

}  // namespace QZ
