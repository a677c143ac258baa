#include "QZ/opt/evolution.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace {

/// A point whose gradient norm is the number of entries that differ from a target.
template <class idx_t>
class Target : public QZ::Function<idx_t, idx_t> {
 public:
  Target(std::vector<idx_t> start, std::vector<idx_t> goal)
      : QZ::Function<idx_t, idx_t>(static_cast<idx_t>(start.size())),
        point(std::move(start)),
        target(std::move(goal)) {}
  void decode_weights() override {}
  idx_t* current_point() override { return point.data(); }
  idx_t eval() override { return this->gradient_norm; }
  idx_t* comp_gradient() override {
    this->gradient_norm = 0;
    for (std::size_t i = 0; i < point.size(); ++i) this->gradient_norm += point[i] != target[i];
    return this->gradient;
  }

  std::vector<idx_t> point;
  std::vector<idx_t> target;
};

template <class T>
class Ea : public testing::Test {};
using Widths = testing::Types<unsigned char, unsigned short, unsigned int, unsigned long>;
TYPED_TEST_SUITE(Ea, Widths);

TYPED_TEST(Ea, TakesAsManyBitsAsTheLargestParameterHas) {
  std::mt19937 rng(1);
  EXPECT_EQ(QZ::EA11<TypeParam>(2, &rng).bits, 1);
  EXPECT_EQ(QZ::EA11<TypeParam>(4, &rng).bits, 2);
  EXPECT_EQ(QZ::EA11<TypeParam>(5, &rng).bits, 3);
  EXPECT_EQ(QZ::EA11<TypeParam>(100, &rng).bits, 7);
}

TYPED_TEST(Ea, ABoundOfOneLeavesNoBits) {
  std::mt19937 rng(1);
  QZ::EA11<TypeParam> optimizer(1, &rng);
  EXPECT_EQ(optimizer.bits, 0);
  Target<TypeParam> f({0, 0}, {0, 0});
  QZ::OptState<TypeParam, TypeParam> state{};
  optimizer.update(&f, state);
  EXPECT_EQ(f.point, (std::vector<TypeParam>{0, 0}));
  EXPECT_EQ(rng(), std::mt19937(1)());
}

TYPED_TEST(Ea, ABoundOfZeroLetsNoFlipThrough) {
  std::mt19937 rng(1);
  QZ::EA11<TypeParam> optimizer(0, &rng);
  Target<TypeParam> f({0, 3, 1}, {0, 0, 0});
  QZ::OptState<TypeParam, TypeParam> state{};
  for (int step = 0; step < 200; ++step) optimizer.update(&f, state);
  EXPECT_EQ(f.point, (std::vector<TypeParam>{0, 3, 1}));
}

/// The mask of a flip has 32 bits, so the upper half of a wider parameter stays as it is.
TEST(EvolutionInLongWords, NeverTouchesBitsAbove31) {
  std::mt19937 rng(9);
  QZ::EA11<unsigned long> optimizer(1ul << 50, &rng);
  // The logarithm of 2^50 - 1 rounds to that of 2^50.
  EXPECT_EQ(optimizer.bits, 51u);
  const unsigned long start = 5ul << 40;
  Target<unsigned long> f({start}, {0});
  QZ::OptState<unsigned long, unsigned long> state{};
  bool moved = false;
  for (int step = 0; step < 500; ++step) {
    optimizer.update(&f, state);
    EXPECT_EQ(f.point[0] >> 32, start >> 32);
    moved = moved || f.point[0] != start;
  }
  EXPECT_TRUE(moved);
}

TYPED_TEST(Ea, FlipsExactlyTheBitsThatTheStreamNames) {
  const TypeParam k_limit = 5;
  const unsigned bits = 3;
  std::vector<TypeParam> expected{0, 1, 2, 3, 4, 1, 2};
  Target<TypeParam> f(expected, expected);
  std::mt19937 rng(77);
  std::mt19937 mirror(77);
  QZ::EA11<TypeParam> optimizer(k_limit, &rng);
  QZ::OptState<TypeParam, TypeParam> state{};
  for (int step = 0; step < 50; ++step) {
    optimizer.update(&f, state);
    for (TypeParam& weight : expected) {
      for (unsigned b = 0; b < bits; ++b) {
        const double low = static_cast<double>(mirror());
        const double high = static_cast<double>(mirror());
        const double u = (low + high * 4294967296.0) / 18446744073709551616.0;
        const TypeParam flipped = static_cast<TypeParam>(weight ^ (1u << b));
        if (1.0 / 21 > u && flipped < k_limit) weight = flipped;
      }
    }
    EXPECT_EQ(f.point, expected);
    for (const TypeParam weight : f.point) EXPECT_LT(weight, k_limit);
  }
  EXPECT_EQ(*optimizer.flip_probability, 1.0 / 21);
}

TYPED_TEST(Ea, WithRestoreKeepsOnlyStrictImprovements) {
  std::mt19937 rng(3);
  QZ::EA11<TypeParam> optimizer(4, &rng);
  Target<TypeParam> f({0, 0, 0, 0}, {3, 1, 2, 3});
  const TypeParam best = optimizer.opt(&f, nullptr, nullptr, nullptr, 250, 0, true, 0, 0);
  f.comp_gradient();
  EXPECT_EQ(best, f.gradient_norm);
  EXPECT_LT(best, 4);
}

TYPED_TEST(Ea, APointWithoutEntriesDrawsNothing) {
  std::mt19937 rng(5);
  QZ::EA11<TypeParam> optimizer(4, &rng);
  Target<TypeParam> f({}, {});
  QZ::OptState<TypeParam, TypeParam> state{};
  optimizer.update(&f, state);
  EXPECT_EQ(rng(), std::mt19937(5)());
}

TEST(EvolutionInBytes, TheFlipProbabilityTakesAWrappedProduct) {
  // 40 parameters of 7 bits make 280, which wraps to 24.
  std::mt19937 rng(1);
  QZ::EA11<unsigned char> optimizer(100, &rng);
  Target<unsigned char> f(std::vector<unsigned char>(40), std::vector<unsigned char>(40));
  QZ::OptState<unsigned char, unsigned char> state{};
  optimizer.update(&f, state);
  EXPECT_EQ(*optimizer.flip_probability, 1.0 / 24);
}

}  // namespace
