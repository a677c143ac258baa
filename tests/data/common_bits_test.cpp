#include "QZ/data/common_bits.h"

#include <gtest/gtest.h>

#include <bitset>
#include <random>
#include <vector>

namespace {

TEST(CommonBits, EveryWayThatThisMachineHasCountsTheSame) {
  std::vector<QZ::CommonBits> ways{QZ::common_bits_portable, QZ::bit_counting().common};
#if defined(__x86_64__)
  if (__builtin_cpu_supports("popcnt")) ways.push_back(QZ::common_bits_popcnt);
  if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512vpopcntdq")) {
    ways.push_back(QZ::common_bits_avx512);
  }
#endif
  std::mt19937_64 rng(1);
  for (std::size_t words = 0; words < 70; ++words) {
    std::vector<unsigned long> a, b;
    unsigned long plain = 0;
    for (std::size_t i = 0; i < words; ++i) {
      a.push_back(i % 3 == 0 ? ~0ul : rng());
      b.push_back(i % 5 == 0 ? ~0ul : rng());
      plain += std::bitset<64>(a[i] & b[i]).count();
    }
    for (const QZ::CommonBits way : ways) EXPECT_EQ(way(a.data(), b.data(), words), plain);
  }
}

}  // namespace
