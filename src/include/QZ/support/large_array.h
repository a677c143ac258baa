#pragma once

/// Arrays that may be as large as the memory.

#include <sys/mman.h>

#include <cstddef>
#include <cstdlib>
#include <limits>
#include <memory>
#include <new>
#include <type_traits>

namespace QZ {

struct FreeMemory {
  void operator()(void* memory) const { std::free(memory); }
};

template <class value_t>
using LargeArray = std::unique_ptr<value_t[], FreeMemory>;

/// An array whose entries are not set. A very large one asks for large pages: such an array comes
/// fresh from the system, which otherwise spends more time on handing out its small pages one by
/// one than a pass over the entries takes. Throws bad_alloc if there is no room.
template <class value_t>
LargeArray<value_t> make_large_array(std::size_t count) {
  static_assert(std::is_trivially_destructible_v<value_t>);
  constexpr std::size_t page = std::size_t(1) << 21;
  // Up to this size the standard allocator keeps memory that was given back at hand.
  constexpr std::size_t kept = std::size_t(1) << 25;
  std::size_t bytes = 0;
  // What no object may be larger than, so that rounding up to a page does not wrap.
  constexpr auto most = static_cast<std::size_t>(std::numeric_limits<std::ptrdiff_t>::max());
  if (__builtin_mul_overflow(count, sizeof(value_t), &bytes) || bytes > most) {
    throw std::bad_alloc();
  }
  const bool large = bytes > kept;
  void* memory = large ? std::aligned_alloc(page, (bytes + page - 1) / page * page)
                       : std::malloc(bytes == 0 ? 1 : bytes);
  if (memory == nullptr) throw std::bad_alloc();
#ifdef MADV_HUGEPAGE
  // A wish: where the system has no large pages to give, the array is the same but slower.
  if (large) madvise(memory, bytes, MADV_HUGEPAGE);
#endif
  return LargeArray<value_t>(static_cast<value_t*>(memory));
}

}  // namespace QZ
