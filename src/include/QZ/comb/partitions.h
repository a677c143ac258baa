#pragma once

/// Partitions of a set into k blocks, by number.

#include <array>
#include <bit>
#include <cstddef>
#include <utility>

#include "QZ/comb/combinatorial_list.h"
#include "QZ/comb/counting.h"

namespace QZ {

/// The walk through the partitions of n elements into a fixed number of non-empty blocks.
///
/// A row holds at index e - 1 the block of element e, both counted from 1. `inverse` holds the
/// blocks as bit masks, element e as bit e - 1, so that T needs n bits: asserts "n<=sizeof(T)*8".
/// One move may leave a block empty or close a block that was kept open by an element with no move
/// of its own; `transferOther` then moves a second element, so every row has all its blocks filled.
template <std::size_t n, class T>
class PartitionWalk : public GeneralCombinatorialList<n, T> {
  using Base = GeneralCombinatorialList<n, T>;

 public:
  void initPartition() override;
  void move(const unsigned long& j) override;
  void transferOther(const unsigned long& j) override;
  int determinePath(const unsigned long& j) const override;
  unsigned long numSubstPos(const unsigned long& j) const override;
  /// Counts block 1 and block 2 as ends whatever the number of blocks.
  bool isAtEndPoint(const unsigned long& j) const override { return current[j - 1] <= 2; }
  /// Element 1 never moves.
  bool terminate(const unsigned long& j) const override { return blocks_ == 1 || j == 1; }
  unsigned long size() const override {
    return saturating_cast<unsigned long>(stirling2<unsigned long, double>(n, blocks_));
  }

 protected:
  [[gnu::noinline]] explicit PartitionWalk(unsigned long blocks) : blocks_(blocks) {
    assert_that(n <= sizeof(T) * 8, "n<=sizeof(T)*8", door::comb);
  }
  ~PartitionWalk() = default;

  using Base::active;
  using Base::current;
  using Base::direction;
  using Base::inverse;

  /// The elements above this one each hold a block open by themselves and do not move.
  unsigned long largest_active = 0;
  /// The block that the last moved element has left.
  unsigned long old_block = 0;

 private:
  unsigned long members(unsigned long block) const { return inverse[block - 1]; }
  int count(unsigned long block) const { return std::popcount(members(block)); }
  static unsigned long bit(unsigned long element) { return 1ul << (element - 1); }

  /// Takes element `e` out of its block and puts it into block `to`.
  void put(unsigned long e, unsigned long to) {
    T& from = inverse[current[e - 1] - 1];
    from = wrapping_cast<T>(from & ~bit(e));
    inverse[to - 1] = wrapping_cast<T>(inverse[to - 1] | bit(e));
    current[e - 1] = static_cast<T>(to);
  }

  /// The first block that one of the elements above `largest_active` holds alone.
  unsigned long first_held_block() const {
    for (unsigned long b = 1; b <= blocks_; ++b) {
      if (count(b) == 1 && members(b) >= bit(largest_active + 1)) return b;
    }
    return blocks_;
  }

  unsigned long blocks_;
};

template <std::size_t n, class T>
void PartitionWalk<n, T>::initPartition() {
  largest_active = n - blocks_ + 1;
  for (unsigned long e = 1; e <= n; ++e) {
    const bool moves = e <= largest_active;
    const unsigned long block = moves ? 1 : e - largest_active + 1;
    current[e - 1] = static_cast<T>(block);
    inverse[block - 1] = wrapping_cast<T>(inverse[block - 1] | bit(e));
    active[e] = moves ? 1 : 0;
  }
}

template <std::size_t n, class T>
void PartitionWalk<n, T>::move(const unsigned long& j) {
  old_block = current[j - 1];
  const int step = direction[j - 1];
  unsigned long target = old_block + static_cast<unsigned long>(static_cast<long>(step));
  if (target == 0) {
    target = first_held_block();
  } else if (target > blocks_ || (step == 1 && members(old_block) == bit(j))) {
    target = 1;
  }
  put(j, target);
}

template <std::size_t n, class T>
void PartitionWalk<n, T>::transferOther(const unsigned long& j) {
  const unsigned long b = current[j - 1];
  if (count(b) == 2) {
    unsigned long h = static_cast<unsigned long>(std::bit_width(members(b)));
    if (h == j) h = static_cast<unsigned long>(std::bit_width(members(b) & ~bit(j)));
    if (h > largest_active) {
      // j holds the block open now, so the element that did so before is free to move.
      put(h, members(1) == bit(1) && b == blocks_ ? 2 : 1);
      active[h] = 1;
      largest_active = h;
      return;
    }
  }
  if (members(old_block) == 0) {
    put(largest_active, old_block);
    --largest_active;
    assert_that(largest_active > 0, "largest_active>0", door::comb);
  }
}

template <std::size_t n, class T>
int PartitionWalk<n, T>::determinePath(const unsigned long& j) const {
  if (current[j - 1] != 1) return 1;
  if (j == n || current[j] > 2) return -1;
  return direction[j - 1] != 0 ? -1 : 1;
}

template <std::size_t n, class T>
unsigned long PartitionWalk<n, T>::numSubstPos(const unsigned long& j) const {
  if (j == 1 || blocks_ == 1) return 1;
  return count(current[j - 1]) > 1 || j <= largest_active ? blocks_ : 1;
}

/// All partitions of n elements into k blocks. The numbers of the blocks carry no meaning.
template <std::size_t n, std::size_t k, class T>
class UnorderedkPartitionList final : public PartitionWalk<n, T> {
  static_assert(k >= 1 && k <= n);

 public:
  UnorderedkPartitionList() : PartitionWalk<n, T>(k) { this->construct(); }

  /// The one list, built on first use.
  static const UnorderedkPartitionList& getInstance() {
    static const UnorderedkPartitionList instance;
    return instance;
  }
};

namespace detail {

template <std::size_t n, class T, std::size_t... i>
constexpr auto partition_lists(std::index_sequence<i...>) {
  // Every row of the table has the entries of the longest, with null behind its own.
  return std::array<const T* (*)(), 15>{
      +[]() { return UnorderedkPartitionList<n, i + 1, T>::getInstance().rows(); }...};
}

template <class T, std::size_t... i>
constexpr auto partition_table(std::index_sequence<i...>) {
  return std::array<std::array<const T* (*)(), 15>, sizeof...(i)>{
      partition_lists<i + 1, T>(std::make_index_sequence<i + 1>())...};
}

}  // namespace detail

/// Row `pid` of the list of partitions of `n` elements into `k` blocks, n entries. Stops at the
/// assertion "false" unless 1 <= k <= n <= 15; `pid` is not checked. Builds the list on first use.
template <class T>
const T* getUnorderedkPartition(const std::size_t& n, const std::size_t& k,
                                const std::size_t& pid) {
  static constexpr auto table = detail::partition_table<T>(std::make_index_sequence<15>());
  assert_that(n >= 1 && n <= table.size() && k >= 1 && k <= n, "false", door::comb);
  return table[n - 1][k - 1]() + pid * n;
}

}  // namespace QZ
