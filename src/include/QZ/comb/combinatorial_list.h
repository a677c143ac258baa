#pragma once

/// Lists of all combinatorial objects of one kind, made once and looked up by number.

#include <algorithm>
#include <cstddef>
#include <memory>
#include <type_traits>

#include "QZ/support/assertion.h"

namespace QZ {

/// All objects of one kind on the elements 1..n, in a flat array of rows with n entries each.
///
/// The walk goes from object to object by moving one element a time: the largest active element
/// moves, falls asleep at an end point, and wakes the elements above it. A kind of object says how
/// its elements move. Every row that a walk yields beyond `size()` stops at the assertion "pid<N".
/// After `construct` a list only changes no more and may be read by any number of threads.
template <std::size_t n, class T>
class GeneralCombinatorialList {
  static_assert(n >= 1 && n <= 15 && std::is_unsigned_v<T>);

 public:
  GeneralCombinatorialList(const GeneralCombinatorialList&) = delete;
  GeneralCombinatorialList& operator=(const GeneralCombinatorialList&) = delete;

  /// Sets the first object.
  virtual void initPartition() = 0;
  /// Moves element `j` one step in its direction.
  virtual void move(const unsigned long& j) = 0;
  /// Repairs the object after `j` has moved, by moving one more element.
  virtual void transferOther(const unsigned long&) {}
  /// The direction in which element `j` starts to move.
  virtual int determinePath(const unsigned long& j) const = 0;
  /// How many places element `j` can take while those above it rest; below 2 it cannot move.
  virtual unsigned long numSubstPos(const unsigned long& j) const = 0;
  /// Whether element `j` has come to the end of its path.
  virtual bool isAtEndPoint(const unsigned long& j) const = 0;
  /// Whether the walk is over when `j` is the next element to move.
  virtual bool terminate(const unsigned long& j) const { return j == 0; }
  /// Writes the object of a row in its usual form; `out` has n entries.
  virtual void convert(T*& out, const T* const& row) const { std::copy_n(row, n, out); }
  /// The number of objects.
  virtual unsigned long size() const = 0;

  /// Walks through all objects and fills `objects`. A concrete class calls it in its constructor.
  [[gnu::noinline]] void construct();

  /// First row of the finished list; row `pid` starts n * pid entries behind it.
  const T* rows() const { return objects; }

 protected:
  [[gnu::noinline]] GeneralCombinatorialList();
  [[gnu::noinline]] ~GeneralCombinatorialList();

  int* direction;
  /// The object in the making.
  T* current;
  /// A second view of it, which each kind of object defines.
  T* inverse;
  /// Entry j is 1 while element j can move; entry 0 is always 1.
  T* active;
  T* objects;
};

template <std::size_t n, class T>
GeneralCombinatorialList<n, T>::GeneralCombinatorialList()
    : direction(new int[n]()), current(), inverse(), active(), objects() {
  current = new T[n]();
  inverse = new T[n]();
  active = new T[n + 1]();
  active[0] = 1;
}

template <std::size_t n, class T>
GeneralCombinatorialList<n, T>::~GeneralCombinatorialList() {
  delete[] direction;
  delete[] current;
  delete[] inverse;
  delete[] active;
  delete[] objects;
}

template <std::size_t n, class T>
void GeneralCombinatorialList<n, T>::construct() {
  const std::size_t N = size();
  auto table = std::make_unique_for_overwrite<T[]>(N * n);
  initPartition();
  unsigned long j = 0;
  for (std::size_t pid = 0;; ++pid) {
    for (unsigned long i = j + 1; i <= n; ++i) {
      if (numSubstPos(i) < 2) continue;
      active[i] = 1;
      direction[i - 1] = determinePath(i);
    }
    assert_that(pid < N, "pid<N", door::comb);
    std::copy_n(current, n, table.get() + pid * n);
    j = n;
    while (j > 0 && active[j] != 1) --j;
    if (terminate(j)) break;
    move(j);
    transferOther(j);
    if (isAtEndPoint(j)) active[j] = 0;
  }
  delete[] objects;
  objects = table.release();
}

}  // namespace QZ
