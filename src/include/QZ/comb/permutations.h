#pragma once

/// Permutations by number.

#include <array>
#include <cstddef>
#include <utility>

#include "QZ/comb/combinatorial_list.h"

namespace QZ {

/// All permutations of n elements, each an adjacent swap away from the one before.
///
/// A row holds at index e - 1 the position of element e, both counted from 1; `convert` turns it
/// into the sequence of elements. `inverse` holds that sequence for the permutation in the making.
/// Source: Steinhaus 1964, Johnson 1963, Trotter 1962, with the element number as priority.
template <std::size_t n, class T>
class PermutationList final : public GeneralCombinatorialList<n, T> {
  static_assert(n <= 13);
  using Base = GeneralCombinatorialList<n, T>;
  using Base::current;
  using Base::direction;
  using Base::inverse;

 public:
  PermutationList() { this->construct(); }

  /// The one list, built on first use.
  static const PermutationList& getInstance() {
    static const PermutationList instance;
    return instance;
  }

  void initPartition() override {
    for (std::size_t e = 0; e < n; ++e) current[e] = inverse[e] = static_cast<T>(e + 1);
  }

  void move(const unsigned long& j) override {
    const int p = current[j - 1];
    const int target = p + direction[j - 1];
    const T u = inverse[target - 1];
    inverse[p - 1] = u;
    inverse[target - 1] = static_cast<T>(j);
    current[u - 1] = static_cast<T>(p);
    current[j - 1] = static_cast<T>(target);
  }

  int determinePath(const unsigned long& j) const override {
    const std::size_t p = current[j - 1];
    if (p == 1) return 1;
    if (p == n || smaller_at(p - 1, j)) return -1;
    return smaller_at(p + 1, j) ? 1 : 0;
  }

  unsigned long numSubstPos(const unsigned long& j) const override {
    const std::size_t p = current[j - 1];
    return 1ul + smaller_at(p - 1, j) + smaller_at(p + 1, j);
  }

  bool isAtEndPoint(const unsigned long& j) const override {
    const int step = direction[j - 1];
    if (step == 0) return false;
    const std::size_t p = current[j - 1];
    return !smaller_at(step > 0 ? p + 1 : p - 1, j);
  }

  void convert(T*& out, const T* const& row) const override {
    for (std::size_t e = 0; e < n; ++e) out[row[e] - 1] = static_cast<T>(e + 1);
  }

  unsigned long size() const override { return count; }

  /// n!
  static constexpr unsigned long count = []() {
    unsigned long factorial = 1;
    for (unsigned long i = 2; i <= n; ++i) factorial *= i;
    return factorial;
  }();

 private:
  /// Whether position `p` exists and holds an element below `j`.
  bool smaller_at(std::size_t p, unsigned long j) const {
    return p >= 1 && p <= n && inverse[p - 1] < j;
  }
};

namespace detail {

template <class T, std::size_t... i>
constexpr auto permutation_lists(std::index_sequence<i...>) {
  return std::array<const T* (*)(), sizeof...(i)>{
      +[]() { return PermutationList<i + 1, T>::getInstance().rows(); }...};
}

}  // namespace detail

/// Row `pid` of the list for `n` elements, n entries. Stops at the assertion "false" for an `n`
/// outside 1..13; `pid` is not checked. Builds the list on first use, which takes n! * n entries.
template <class T>
const T* getPermutation(const std::size_t& n, const std::size_t& pid) {
  static constexpr auto lists = detail::permutation_lists<T>(std::make_index_sequence<13>());
  assert_that(n >= 1 && n <= lists.size(), "false", door::comb);
  return lists[n - 1]() + pid * n;
}

}  // namespace QZ
