#include "QZ/inference/sqm_plus.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <memory>
#include <set>
#include <stdexcept>
#include <thread>
#include <vector>

#include "support/pair_types.h"
#include "support/polynomial_model.h"

namespace {

using QZ::SQMplus;
using qz_test::horner;
using qz_test::PolynomialModel;

template <class Pair>
class SqmPlus : public ::testing::Test {
 public:
  using idx_t = typename Pair::idx_t;
  using val_t = typename Pair::val_t;
  using Model = PolynomialModel<idx_t, val_t>;
  using Engine = SQMplus<idx_t, val_t>;

  static Model cycle() { return {{2, 2, 2, 2}, {{0, 1}, {1, 2}, {2, 3}, {3, 0}}}; }

  static std::unique_ptr<Engine> engine_for(Model& model, idx_t degree, idx_t iterations) {
    auto engine = std::make_unique<Engine>(&model.graph, model.states.data(), model.weights.data(),
                                           &model.rng, degree);
    engine->max_iterations = iterations;
    return engine;
  }

  /// The keys that tuples of up to two parameters of one model can have.
  static std::set<idx_t> keys_of_pairs(std::size_t dim) {
    std::set<idx_t> keys = {0};
    for (std::size_t k = 0; k < dim; ++k) {
      keys.insert(static_cast<idx_t>(dim * k + k));
      for (std::size_t l = 0; l < dim; ++l) {
        keys.insert(static_cast<idx_t>(dim * (dim * k + k) + l));
      }
    }
    return keys;
  }
};
TYPED_TEST_SUITE(SqmPlus, qz_test::FloatPairs);

TYPED_TEST(SqmPlus, AConstantPolynomialEndsAfterOneDraw) {
  auto model = TestFixture::cycle();
  model.fill(-0.5, 0.5, 1);
  auto engine = TestFixture::engine_for(model, 0, 100);
  engine->infer(0);
  EXPECT_EQ(engine->estimate_sum, engine->mass_total);
  EXPECT_EQ(engine->sample_count, 1);
  EXPECT_EQ(TestFixture::Engine::PSUM, 1);
  EXPECT_EQ(TestFixture::Engine::KNOWN.size(), 1u);
  EXPECT_NEAR(engine->log_partition, std::log(16 * engine->coefficients[0]), 1e-5);
  typename TypeParam::val_t q = 0;
  typename TypeParam::val_t Z = 0;
  engine->edge_marginal(1, 1, 0, q, Z);
  EXPECT_FLOAT_EQ(q / Z, 0.25);
}

TYPED_TEST(SqmPlus, ModeTenIsTheExhaustiveSum) {
  auto model = TestFixture::cycle();
  model.fill(-0.5, 0.5, 2);
  auto engine = TestFixture::engine_for(model, 2, 1);
  engine->infer(10);
  const std::vector<double> a(engine->coefficients, engine->coefficients + 3);
  std::vector<double> moments;
  const double Z = model.sum([&](double E) { return horner(a, E); }, moments);
  EXPECT_NEAR(engine->log_partition, std::log(Z), 1e-4);
}

TYPED_TEST(SqmPlus, WithoutIterationsTheSumIsOne) {
  auto model = TestFixture::cycle();
  model.fill(-0.5, 0.5, 2);
  auto engine = TestFixture::engine_for(model, 2, 0);
  engine->infer(0);
  EXPECT_EQ(engine->estimate_sum, 1);
  EXPECT_EQ(engine->log_partition, 0);
  EXPECT_EQ(TestFixture::Engine::PSUM, 1);
  EXPECT_TRUE(TestFixture::Engine::KNOWN.empty());
  typename TypeParam::val_t q = 0;
  typename TypeParam::val_t Z = 0;
  engine->edge_marginal(1, 1, 0, q, Z);
  EXPECT_EQ(q, 1);
  EXPECT_EQ(Z, 4);
}

TYPED_TEST(SqmPlus, KeysWrapAtTheIndexType) {
  auto model = TestFixture::cycle();
  model.fill(0.1, 0.5, 3);
  auto engine = TestFixture::engine_for(model, 2, 60);
  engine->infer(0);
  const auto possible = TestFixture::keys_of_pairs(16);
  const auto& known = TestFixture::Engine::KNOWN;
  EXPECT_GT(known.size(), 30u);
  EXPECT_TRUE(std::includes(possible.begin(), possible.end(), known.begin(), known.end()));
  if (sizeof(typename TypeParam::idx_t) == 1) {
    EXPECT_LT(*known.rbegin(), 256u);
  } else {
    EXPECT_GT(*known.rbegin(), 256u);
  }
}

TYPED_TEST(SqmPlus, TheTableOfKnownTuplesIsSharedByAllObjectsOfTheType) {
  auto model = TestFixture::cycle();
  model.fill(0.1, 0.5, 3);
  auto engine = TestFixture::engine_for(model, 2, 5);
  engine->infer(0);
  EXPECT_FALSE(TestFixture::Engine::KNOWN.empty());
  auto other = TestFixture::engine_for(model, 2, 5);
  other->init_sqm();
  EXPECT_TRUE(TestFixture::Engine::KNOWN.empty());
  EXPECT_EQ(TestFixture::Engine::PSUM, 0);
}

using Wide = SqmPlus<QZ::type_pair<unsigned int, double>>;
class SqmPlusOfDouble : public Wide {
  void TestBody() override {}
};

TEST(SqmPlus, TablesOfDifferentTypesAreApart) {
  auto model = SqmPlusOfDouble::cycle();
  model.fill(0.1, 0.5, 3);
  auto engine = SqmPlusOfDouble::engine_for(model, 2, 5);
  engine->infer(0);
  const auto before = SqmPlusOfDouble::Engine::KNOWN;
  PolynomialModel<unsigned int, float> other({2, 2}, {{0, 1}});
  SQMplus<unsigned int, float> narrow(&other.graph, other.states.data(), other.weights.data(),
                                      &other.rng, 1);
  narrow.init_sqm();
  EXPECT_EQ(SqmPlusOfDouble::Engine::KNOWN, before);
}

/// All terms positive, so that leaving out tuples can only lower the sum.
TEST(SqmPlus, CoversNearlyAllOfThePolynomialsSum) {
  auto model = SqmPlusOfDouble::cycle();
  model.fill(0, 0.2, 4);
  auto engine = SqmPlusOfDouble::engine_for(model, 3, 100000);
  engine->infer(0);
  const std::vector<double> a(engine->coefficients, engine->coefficients + 4);
  ASSERT_GT(*std::min_element(a.begin(), a.end()), 0);
  std::vector<double> moments;
  const double Z = model.sum([&](double E) { return horner(a, E); }, moments);
  EXPECT_LE(engine->log_partition, std::log(Z) + 1e-12);
  EXPECT_GE(engine->log_partition, std::log(Z) + std::log(0.85));
  EXPECT_EQ(engine->sample_count, 1);
  for (std::size_t i = 0; i < 16; ++i) EXPECT_EQ(engine->moment_norms[i], 1);
  for (unsigned e = 0; e < 4; ++e) {
    for (unsigned x = 0; x < 4; ++x) {
      double q = 0;
      double total = 0;
      engine->edge_marginal(e, x / 2, x % 2, q, total);
      EXPECT_NEAR(q / total, moments[4 * e + x] / Z, 0.05);
    }
  }
}

TEST(SqmPlus, DropsNegativeTerms) {
  auto model = SqmPlusOfDouble::cycle();
  model.fill(-0.9, -0.5, 5);
  auto engine = SqmPlusOfDouble::engine_for(model, 1, 100000);
  // With a degree of 1 the empty tuple alone is positive.
  engine->infer(0);
  ASSERT_GT(engine->coefficients[1], 0);
  EXPECT_DOUBLE_EQ(engine->estimate_sum, engine->coefficients[0] * 16);
}

TEST(SqmPlus, EndsWhenEveryParameterHasMetEnoughTuples) {
  auto model = SqmPlusOfDouble::cycle();
  model.fill(0.1, 0.5, 6);
  auto engine = SqmPlusOfDouble::engine_for(model, 4, 3);
  engine->infer(0);
  // Each tuple raises the counts of some parameters, so that a few suffice.
  EXPECT_LT(SqmPlusOfDouble::Engine::KNOWN.size(), 100u);
  EXPECT_GE(SqmPlusOfDouble::Engine::KNOWN.size(), 3u);
}

TEST(SqmPlus, CollidingKeysThatHideTooMuchMassAreReported) {
  // With one edge the tuples of parameter 0 share the key of the empty tuple, and all but the first
  // drawn of them are lost.
  PolynomialModel<unsigned int, double> model({2, 2}, {{0, 1}});
  model.weights = {1, 0.2, 0.4, 0.9};
  auto engine = SqmPlusOfDouble::engine_for(model, 4, 1000);
  try {
    engine->infer(0);
    FAIL();
  } catch (const std::logic_error& error) {
    EXPECT_STREQ(error.what(), "no new tuples");
  }
}

TEST(SqmPlus, AModelWithoutEdgesCountsItsConfigurations) {
  PolynomialModel<unsigned int, double> model({2, 3, 2}, {});
  auto engine = SqmPlusOfDouble::engine_for(model, 4, 1000);
  engine->infer(0);
  EXPECT_NEAR(engine->log_partition, std::log(12), 1e-5);
}

TEST(SqmPlus, EnginesInTwoThreadsEnd) {
  auto one = SqmPlusOfDouble::cycle();
  auto two = SqmPlusOfDouble::cycle();
  one.fill(0.1, 0.5, 7);
  two.fill(0.1, 0.5, 8);
  const auto work = [](SqmPlusOfDouble::Model& model, double& result) {
    for (int run = 0; run < 20; ++run) {
      auto engine = SqmPlusOfDouble::engine_for(model, 2, 50);
      engine->infer(0);
      result = engine->log_partition;
    }
  };
  double first = 0;
  double second = 0;
  std::thread other([&] { work(two, second); });
  work(one, first);
  other.join();
  EXPECT_TRUE(std::isfinite(first));
  EXPECT_TRUE(std::isfinite(second));
}

TEST(SqmPlusDeath, MoreConfigurationsThanADoubleHoldsStop) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  PolynomialModel<unsigned int, double> model(std::vector<unsigned int>(1023, 2), {{0, 1}});
  auto engine = SqmPlusOfDouble::engine_for(model, 2, 10);
  EXPECT_DEATH(engine->infer(0), "QZINF.*Assertion `!std::isnan\\(PSUM\\)' failed");
}

}  // namespace
