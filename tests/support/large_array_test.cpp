#include "QZ/support/large_array.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <limits>
#include <new>

namespace {

TEST(LargeArray, HoldsEveryEntryWhateverItsSize) {
  // On either side of the size from which on large pages are asked for.
  for (const std::size_t count : {1ul, 100ul, (1ul << 22), (1ul << 22) + 1, (1ul << 22) + 300000}) {
    const QZ::LargeArray<double> array = QZ::make_large_array<double>(count);
    for (std::size_t i = 0; i < count; ++i) array[i] = static_cast<double>(i);
    EXPECT_EQ(array[0], 0);
    EXPECT_EQ(array[count - 1], static_cast<double>(count - 1));
  }
}

TEST(LargeArray, MayBeEmpty) { EXPECT_NE(QZ::make_large_array<float>(0), nullptr); }

TEST(LargeArray, BeyondTheMemoryIsBadAlloc) {
  constexpr std::size_t most = std::numeric_limits<std::size_t>::max();
  EXPECT_THROW(QZ::make_large_array<double>(most / 4), std::bad_alloc);
  EXPECT_THROW(QZ::make_large_array<double>(most / 8), std::bad_alloc);
}

}  // namespace
