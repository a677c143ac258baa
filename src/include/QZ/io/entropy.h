#pragma once

/// Entropies of counts, in natural logarithms, and what learners make of them.

#include <cmath>
#include <cstddef>
#include <memory>
#include <set>

#include "QZ/io/callbacks.h"
#include "QZ/support/conversions.h"

namespace QZ {

/// -sum p log p over the positive ones of `size` counts, with p = count / samples.
template <class val_t>
double block_entropy(const val_t* counts, std::size_t size, double samples) {
  double entropy = 0;
  for (std::size_t i = 0; i < size; ++i) {
    if (!(counts[i] > 0)) continue;
    const double p = static_cast<double>(counts[i]) / samples;
    entropy -= p * std::log(p);
  }
  return entropy;
}

/// The entropy of the `order` ascending vertices in `members`, counted by `stat`.
template <class idx_t, class val_t>
double counted_entropy(const StatFunction<idx_t, val_t>& stat, const idx_t* states, double samples,
                       const idx_t* members, std::size_t order) {
  std::set<idx_t> vertices(members, members + order);
  std::set<idx_t>* const handle = &vertices;
  idx_t size = 1;
  for (std::size_t i = 0; i < order; ++i) size = wrapping_mul(size, states[members[i]]);
  const std::unique_ptr<val_t[]> counts(stat(reinterpret_cast<unsigned long>(&handle), size));
  return block_entropy(counts.get(), size, samples);
}

/// The interaction information of `order` ascending vertices: the sum over their non-empty subsets
/// of the entropy, with a plus for odd and a minus for even sizes. For a pair it is the mutual
/// information. `entropy(subset, size)` is asked for the subsets in the order of their bit masks
/// over the members; `subset` has room for `order` vertices. At most 63 vertices.
/// Source: McGill 1954, Multivariate information transmission.
template <class idx_t, class Entropy>
double interaction(const idx_t* members, std::size_t order, idx_t* subset, Entropy&& entropy) {
  double value = 0;
  for (unsigned long mask = 1; mask >> order == 0; ++mask) {
    std::size_t size = 0;
    for (std::size_t i = 0; i < order; ++i) {
      if (mask >> i & 1) subset[size++] = members[i];
    }
    const double term = entropy(subset, size);
    value += size % 2 == 1 ? term : -term;
  }
  return value;
}

}  // namespace QZ
