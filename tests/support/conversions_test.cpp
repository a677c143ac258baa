#include "QZ/support/conversions.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

using QZ::saturating_cast;
using QZ::signed_cast;

template <class T>
class UnsignedWidths : public testing::Test {};
using Widths = testing::Types<unsigned char, unsigned short, unsigned int, unsigned long>;
TYPED_TEST_SUITE(UnsignedWidths, Widths);

TYPED_TEST(UnsignedWidths, SaturatingTakesEveryNegativeNumberToZero) {
  EXPECT_EQ(saturating_cast<TypeParam>(-1.0), 0);
  EXPECT_EQ(saturating_cast<TypeParam>(-1.0f), 0);
  EXPECT_EQ(saturating_cast<TypeParam>(-0.25), 0);
  EXPECT_EQ(saturating_cast<TypeParam>(-std::numeric_limits<double>::infinity()), 0);
  EXPECT_EQ(saturating_cast<TypeParam>(-5l), 0);
}

TYPED_TEST(UnsignedWidths, SaturatingTakesNumbersAboveTheRangeToTheLargest) {
  const TypeParam largest = std::numeric_limits<TypeParam>::max();
  EXPECT_EQ(saturating_cast<TypeParam>(1e30), largest);
  EXPECT_EQ(saturating_cast<TypeParam>(1e30f), largest);
  EXPECT_EQ(saturating_cast<TypeParam>(std::numeric_limits<double>::infinity()), largest);
  EXPECT_EQ(saturating_cast<TypeParam>(std::numeric_limits<unsigned long>::max()), largest);
}

TYPED_TEST(UnsignedWidths, SaturatingTruncatesInsideTheRange) {
  EXPECT_EQ(saturating_cast<TypeParam>(0.999), 0);
  EXPECT_EQ(saturating_cast<TypeParam>(254.75), 254);
  EXPECT_EQ(saturating_cast<TypeParam>(200u), 200);
}

TYPED_TEST(UnsignedWidths, SaturatingTakesANanToZero) {
  EXPECT_EQ(saturating_cast<TypeParam>(std::nan("")), 0);
}

TYPED_TEST(UnsignedWidths, SignedTakesMinusOneToAllOnes) {
  EXPECT_EQ(signed_cast<TypeParam>(-1.0), QZ::all_ones<TypeParam>);
  EXPECT_EQ(signed_cast<TypeParam>(-1.0f), QZ::all_ones<TypeParam>);
}

TYPED_TEST(UnsignedWidths, SignedTruncatesTowardZero) {
  EXPECT_EQ(signed_cast<TypeParam>(0.5), 0);
  EXPECT_EQ(signed_cast<TypeParam>(-0.5), 0);
  EXPECT_EQ(signed_cast<TypeParam>(3.9f), 3);
}

TYPED_TEST(UnsignedWidths, SignedKeepsTheLowBitsOfALargeNumber) {
  EXPECT_EQ(signed_cast<TypeParam>(4294967299.0), static_cast<TypeParam>(4294967299ul));
}

TYPED_TEST(UnsignedWidths, SignedIsDefinedOutsideTheSignedRange) {
  const TypeParam smallest = static_cast<TypeParam>(1ul << 63);
  EXPECT_EQ(signed_cast<TypeParam>(1e300), smallest);
  EXPECT_EQ(signed_cast<TypeParam>(std::nan("")), smallest);
}

TYPED_TEST(UnsignedWidths, ArithmeticWrapsAtTheWidth) {
  const TypeParam largest = std::numeric_limits<TypeParam>::max();
  EXPECT_EQ(QZ::wrapping_add<TypeParam>(largest, 2), 1);
  EXPECT_EQ(QZ::wrapping_sub<TypeParam>(3, 5), static_cast<TypeParam>(largest - 1));
  EXPECT_EQ(QZ::wrapping_mul<TypeParam>(largest, largest), 1);
}

TEST(SaturatingCast, KeepsTheLargestExactDoubleBelowTheBound) {
  EXPECT_EQ(saturating_cast<unsigned long>(9007199254740992.0), 1ul << 53);
  EXPECT_EQ(saturating_cast<unsigned long>(18446744073709551616.0),
            std::numeric_limits<unsigned long>::max());
  EXPECT_EQ(saturating_cast<unsigned char>(255.0), 255);
  EXPECT_EQ(saturating_cast<unsigned char>(256.0f), 255);
}

}  // namespace
