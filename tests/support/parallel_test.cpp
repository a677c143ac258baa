#include "QZ/support/parallel.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

TEST(StaticShare, CoversAllItemsInOrder) {
  for (unsigned items : {0u, 1u, 5u, 8u, 250u}) {
    for (int threads : {1, 2, 3, 7}) {
      unsigned next = 0;
      for (int thread = 0; thread < threads; ++thread) {
        const auto share = QZ::static_share<unsigned>(items, thread, threads);
        EXPECT_EQ(share.begin, next);
        next = share.end;
      }
      EXPECT_EQ(next, items);
    }
  }
}

TEST(StaticShare, GivesTheFirstThreadsOneItemMore) {
  const auto first = QZ::static_share<unsigned char>(8, 0, 3);
  const auto second = QZ::static_share<unsigned char>(8, 1, 3);
  const auto third = QZ::static_share<unsigned char>(8, 2, 3);
  EXPECT_EQ(first.end - first.begin, 3);
  EXPECT_EQ(second.end - second.begin, 3);
  EXPECT_EQ(third.end - third.begin, 2);
}

TEST(StaticShare, ServesMoreThreadsThanTheIndexTypeCounts) {
  const auto share = QZ::static_share<unsigned char>(10, 256, 300);
  EXPECT_EQ(share.begin, share.end);
}

TEST(AtomicMax, RaisesAndNeverLowers) {
  double value = 1.0;
  QZ::atomic_max(value, 0.5);
  EXPECT_EQ(value, 1.0);
  QZ::atomic_max(value, 2.5);
  EXPECT_EQ(value, 2.5);
  QZ::atomic_max(value, std::nan(""));
  EXPECT_EQ(value, 2.5);
}

TEST(AtomicAdd, LosesNothingBetweenThreads) {
  double sum = 0;
#pragma omp parallel num_threads(2)
  {
    const auto share = QZ::my_share<unsigned>(1000);
    for (unsigned i = share.begin; i < share.end; ++i) QZ::atomic_add(sum, 1.0);
  }
  EXPECT_EQ(sum, 1000.0);
}

}  // namespace
