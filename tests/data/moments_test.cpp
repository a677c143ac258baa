#include "QZ/data/moments.h"

#include <gtest/gtest.h>

namespace {

TEST(Moments, OfASmallSampleByHand) {
  // mean 2, deviations -1, -1, 0, 2, variance 6 / 3 = 2.
  const double values[] = {1, 1, 2, 4};
  const QZ::Moments moments = QZ::estimateMoments(values, 4);
  EXPECT_EQ(moments.count, 4u);
  EXPECT_DOUBLE_EQ(moments.mean, 2);
  EXPECT_DOUBLE_EQ(moments.variance, 2);
  // Cubes of (mean - x): 1 + 1 - 8 = -6, over sd^3 = 2 sqrt 2, over 3 * 2.
  EXPECT_NEAR(moments.skew, -6 / (2 * std::sqrt(2.0)) / 6, 1e-15);
  // Fourth powers: 1 + 1 + 16 = 18, over sd^4 = 4, over 4, minus 3.
  EXPECT_NEAR(moments.kurtosis, 18.0 / 4 / 4 - 3, 1e-15);
}

TEST(Moments, ALongRightTailHasNegativeSkew) {
  const double values[] = {0, 0, 0, 0, 10};
  EXPECT_LT(QZ::estimateMoments(values, 5).skew, 0);
}

TEST(Moments, NoValuesHaveVarianceZeroAndNoMean) {
  const QZ::Moments moments = QZ::estimateMoments(nullptr, 0);
  EXPECT_TRUE(std::isnan(moments.mean));
  EXPECT_EQ(moments.variance, 0);
  EXPECT_EQ(moments.count, 0u);
}

TEST(Moments, ASingleValueHasNoVariance) {
  const double value = 3;
  const QZ::Moments moments = QZ::estimateMoments(&value, 1);
  EXPECT_EQ(moments.mean, 3);
  EXPECT_TRUE(std::isnan(moments.variance));
}

TEST(Moments, EqualValuesHaveVarianceZero) {
  const double values[] = {3, 3};
  EXPECT_EQ(QZ::estimateMoments(values, 2).variance, 0);
}

}  // namespace
