#include "QZ/support/type_pairs.h"

#include <gtest/gtest.h>

#include <string>

namespace {

/// "idx_t bytes / value kind and bytes" of the pair that the codes select, or "none".
std::string selected(unsigned char idx, unsigned char val) {
  std::string name = "none";
  const bool called = QZ::dispatch_pair(idx, val, [&]<class I, class V>(QZ::type_pair<I, V>) {
    name = std::to_string(sizeof(I)) + (std::is_floating_point_v<V> ? "/f" : "/i") +
           std::to_string(sizeof(V));
  });
  EXPECT_EQ(called, name != "none");
  return name;
}

TEST(TypePairs, IntegerValuesGoWithTheirOwnWidthOnly) {
  const std::string own[] = {"1/i1", "2/i2", "4/i4", "8/i8"};
  for (unsigned char idx = 0; idx < 4; ++idx) {
    for (unsigned char val = 0; val < 4; ++val) {
      EXPECT_EQ(selected(idx, val), idx == val ? own[idx] : "none");
    }
  }
}

TEST(TypePairs, FloatingValuesGoWithEveryIndexType) {
  const std::string width[] = {"1", "2", "4", "8"};
  for (unsigned char idx = 0; idx < 4; ++idx) {
    EXPECT_EQ(selected(idx, 4), width[idx] + "/f4");
    EXPECT_EQ(selected(idx, 5), width[idx] + "/f8");
  }
}

TEST(TypePairs, FltmprecIsDouble) { EXPECT_EQ(selected(2, 6), "4/f8"); }

TEST(TypePairs, CodesBeyondTheTablesSelectNothing) {
  EXPECT_EQ(selected(4, 5), "none");
  EXPECT_EQ(selected(0, 7), "none");
  EXPECT_EQ(selected(4, 4), "none");
}

TEST(TypePairs, CodesAreThoseOfTheTypes) {
  EXPECT_EQ(QZ::idx_code<unsigned short>(), QZ::IdxType::UINT16);
  EXPECT_EQ((QZ::val_code<unsigned long>()), QZ::ValType::UINT64);
  EXPECT_EQ((QZ::val_code<float>()), QZ::ValType::FLT32);
  EXPECT_EQ((QZ::val_code<double>()), QZ::ValType::FLT64);
}

}  // namespace
