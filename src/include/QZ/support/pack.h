#pragma once

/// Short vectors of numbers.

namespace QZ {

/// A few numbers that are worked on at once. The compiler picks the instructions of the machine;
/// where a register is too narrow it takes several. Packs travel by reference, because how they are
/// passed by value depends on the machine.
template <class val_t, unsigned lanes>
struct Pack {
  typedef val_t type __attribute__((vector_size(lanes * sizeof(val_t))));

  /// Consecutive numbers in memory, of any alignment, as a pack.
  [[gnu::always_inline]] static const auto& at(const val_t* from) {
    return *reinterpret_cast<const in_memory*>(from);
  }
  [[gnu::always_inline]] static auto& at(val_t* to) { return *reinterpret_cast<in_memory*>(to); }

  [[gnu::always_inline]] static void raise(type& to, const type& other) {
    to = other > to ? other : to;
  }
  /// Raises each number of `to` to the distance between a and b.
  [[gnu::always_inline]] static void raise_distance(type& to, const type& a, const type& b) {
    const type above = a - b;
    raise(to, above);
    raise(to, -above);
  }

  /// Integers in another order: lane i of `to` becomes what stands in lane from[i] of `numbers`.
  [[gnu::always_inline]] static void permute(type& to, const type& numbers, const type& from) {
#if __has_builtin(__builtin_shuffle)
    to = __builtin_shuffle(numbers, from);
#else
    for (unsigned i = 0; i < lanes; ++i) to[i] = numbers[from[i] % lanes];
#endif
  }

 private:
  typedef val_t in_memory
      __attribute__((vector_size(lanes * sizeof(val_t)), aligned(sizeof(val_t)), may_alias));
};

}  // namespace QZ
