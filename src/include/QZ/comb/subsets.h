#pragma once

/// The numbering of the k-subsets of {0, ..., n - 1}: the combinatorial number system, read so that
/// the subsets come in descending lexicographic order. For n = 4 the pairs are numbered (2,3),
/// (1,3), (1,2), (0,3), (0,2), (0,1).
///
/// Everything here is exact integer arithmetic; a subset is an ascending array. An element x counts
/// as its mirror image c = n - 1 - x, and the rank of {x_0 < ... < x_(k-1)} is the sum of
/// C(c_i, k - i) over i.

#include <cmath>

namespace QZ {

/// C(n, k), or all ones if that needs more than 64 bits.
constexpr unsigned long subset_count(unsigned long n, unsigned long k) {
  if (k > n) return 0;
  if (k > n - k) k = n - k;
  // Each partial product is C(n - k + i, i), an integer that only grows.
  unsigned long count = 1;
  for (unsigned long i = 1; i <= k; ++i) {
    const unsigned __int128 grown = static_cast<unsigned __int128>(count) * (n - k + i) / i;
    if (grown > ~0ul) return ~0ul;
    count = static_cast<unsigned long>(grown);
  }
  return count;
}

/// Two different elements in ascending order.
struct ElementPair {
  unsigned long low;
  unsigned long high;
};

/// The number of the pair {a, b} among those of n elements, in either order of its arguments.
constexpr unsigned long rank_pair(unsigned long n, unsigned long a, unsigned long b) {
  const unsigned long low = a < b ? a : b;
  const unsigned long high = a < b ? b : a;
  const unsigned long c = n - 1 - low;
  // One of two neighbours is even: halving it first keeps the product inside the word.
  const unsigned long pairs_above = c % 2 == 0 ? c / 2 * (c - 1) : (c - 1) / 2 * c;
  return pairs_above + (n - 1 - high);
}

/// The pair with the given number, which is below C(n, 2). Constant time.
inline ElementPair unrank_pair(unsigned long n, unsigned long rank) {
  const auto pairs = [](unsigned long c) { return c % 2 == 0 ? c / 2 * (c - 1) : (c - 1) / 2 * c; };
  // The root is a guess that rounding may put a few units off; the two loops make it exact.
  auto c = static_cast<unsigned long>((1 + std::sqrt(1 + 8 * static_cast<double>(rank))) / 2);
  while (pairs(c) > rank) --c;
  while (pairs(c + 1) <= rank) ++c;
  return {n - 1 - c, n - 1 - (rank - pairs(c))};
}

/// The pair with the next higher number, without a search.
constexpr ElementPair next_pair(unsigned long n, ElementPair pair) {
  if (pair.high - pair.low > 1) return {pair.low, pair.high - 1};
  return {pair.low - 1, n - 1};
}

/// The number of the k-subset `members` (ascending) among those of n elements.
template <class idx_t>
unsigned long rank_subset(unsigned long n, unsigned long k, const idx_t* members) {
  if (k == 2) return rank_pair(n, members[0], members[1]);
  unsigned long rank = 0;
  for (unsigned long i = 0; i < k; ++i) rank += subset_count(n - 1 - members[i], k - i);
  return rank;
}

/// Writes the k-subset with the given number, ascending, to `members`; the number is below C(n, k).
/// A binary search per element.
template <class idx_t>
void unrank(unsigned long n, unsigned long k, unsigned long rank, idx_t* members) {
  if (k == 2) {
    const ElementPair pair = unrank_pair(n, rank);
    members[0] = static_cast<idx_t>(pair.low);
    members[1] = static_cast<idx_t>(pair.high);
    return;
  }
  unsigned long bound = n;
  for (unsigned long j = k; j > 0; --j) {
    // The largest c below `bound` with C(c, j) <= rank. C(j - 1, j) = 0 always is.
    unsigned long c = j - 1;
    for (unsigned long above = bound; above - c > 1;) {
      const unsigned long middle = c + (above - c) / 2;
      (subset_count(middle, j) <= rank ? c : above) = middle;
    }
    rank -= subset_count(c, j);
    *members++ = static_cast<idx_t>(n - 1 - c);
    bound = c;
  }
}

}  // namespace QZ
