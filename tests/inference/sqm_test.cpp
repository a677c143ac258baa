#include "QZ/inference/sqm.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <limits>
#include <memory>
#include <set>
#include <vector>

#include "support/pair_types.h"
#include "support/polynomial_model.h"

namespace {

using QZ::SQM;
using qz_test::horner;
using qz_test::PolynomialModel;

template <class Pair>
class Sqm : public ::testing::Test {
 public:
  using idx_t = typename Pair::idx_t;
  using val_t = typename Pair::val_t;
  using Model = PolynomialModel<idx_t, val_t>;
  using Engine = SQM<idx_t, val_t>;

  static Model chain() { return {{2, 3, 2}, {{0, 1}, {2, 1}}}; }
  static Model triangle() { return {{2, 2, 2}, {{0, 1}, {1, 2}, {2, 0}}}; }

  static std::unique_ptr<Engine> engine_for(Model& model, idx_t degree) {
    return std::make_unique<Engine>(&model.graph, model.states.data(), model.weights.data(),
                                    &model.rng, degree);
  }

  /// The sums over all configurations of the engine's polynomial.
  static double polynomial_sum(const Model& model, const Engine& engine,
                               std::vector<double>& moments) {
    const std::vector<double> a(engine.coefficients, engine.coefficients + engine.degree + 1);
    return model.sum([&](double E) { return horner(a, E); }, moments);
  }

  static double fraction(const Engine& engine, idx_t e, idx_t xs, idx_t xt) {
    val_t q = 0;
    val_t Z = 0;
    engine.edge_marginal(e, xs, xt, q, Z);
    return double(q) / double(Z);
  }

  static constexpr double tolerance = sizeof(val_t) == 4 ? 2e-4 : 1e-11;
};
TYPED_TEST_SUITE(Sqm, qz_test::FloatPairs);

TYPED_TEST(Sqm, TheExhaustiveSumIsThatOfThePolynomialOverAllConfigurations) {
  for (const auto& make : {TestFixture::chain, TestFixture::triangle}) {
    for (unsigned degree = 0; degree <= 3; ++degree) {
      auto own = make();
      own.fill(-0.6, 0.8, degree + 1);
      auto engine = TestFixture::engine_for(own, static_cast<unsigned char>(degree));
      engine->infer_slow(0);
      std::vector<double> moments;
      const double Z = TestFixture::polynomial_sum(own, *engine, moments);
      EXPECT_NEAR(engine->log_partition, std::log(Z), TestFixture::tolerance);
      for (std::size_t i = 0; i < moments.size(); ++i) {
        EXPECT_NEAR(engine->moment_sums[i], moments[i], TestFixture::tolerance * Z);
        EXPECT_EQ(engine->moment_norms[i], 1);
      }
    }
  }
}

TYPED_TEST(Sqm, ExhaustiveMarginalsAreThoseOfThePolynomial) {
  auto model = TestFixture::chain();
  model.fill(-0.6, 0.8, 9);
  auto engine = TestFixture::engine_for(model, 3);
  engine->infer_slow(0);
  std::vector<double> moments;
  const double Z = TestFixture::polynomial_sum(model, *engine, moments);
  std::size_t i = 0;
  for (unsigned char e = 0; e < 2; ++e) {
    for (unsigned char xs = 0; xs < 2; ++xs) {
      for (unsigned char xt = 0; xt < 3; ++xt, ++i) {
        EXPECT_NEAR(TestFixture::fraction(*engine, e, xs, xt), moments[i] / Z,
                    TestFixture::tolerance);
      }
    }
  }
}

TYPED_TEST(Sqm, VertexMarginalsAreTheMeanOverTheEdges) {
  auto model = TestFixture::triangle();
  model.fill(-0.6, 0.8, 10);
  auto engine = TestFixture::engine_for(model, 2);
  engine->infer_slow(0);
  // Vertex 0 is the first end of edge 0 and the second end of edge 2.
  double expected = 0;
  for (unsigned char y = 0; y < 2; ++y) {
    expected += TestFixture::fraction(*engine, 0, 1, y) / 2;
    expected += TestFixture::fraction(*engine, 2, y, 1) / 2;
  }
  typename TypeParam::val_t q = 5;
  typename TypeParam::val_t Z = 0;
  engine->vertex_marginal(0, 1, q, Z);
  EXPECT_EQ(Z, 1);
  EXPECT_NEAR(q, expected, TestFixture::tolerance);
}

TYPED_TEST(Sqm, MarginalsAreUniformBeforeAnyInference) {
  auto model = TestFixture::chain();
  auto engine = TestFixture::engine_for(model, 2);
  typename TypeParam::val_t q = 0;
  typename TypeParam::val_t Z = 0;
  engine->edge_marginal(0, 0, 0, q, Z);
  EXPECT_EQ(q, 1);
  EXPECT_EQ(Z, 6);
}

TYPED_TEST(Sqm, TheEstimateApproachesThePolynomialsSum) {
  auto model = TestFixture::triangle();
  model.fill(-0.5, 0.7, 3);
  auto engine = TestFixture::engine_for(model, 3);
  // An 8-bit bound leaves few draws, so the estimate is repeated.
  engine->max_iterations =
      static_cast<typename TypeParam::idx_t>(sizeof(typename TypeParam::idx_t) == 1 ? 250 : 20000);
  const int runs = sizeof(typename TypeParam::idx_t) == 1 ? 40 : 1;
  double mean = 0;
  for (int run = 0; run < runs; ++run) {
    engine->infer(0);
    mean += std::exp(double(engine->log_partition)) / runs;
  }
  std::vector<double> moments;
  const double Z = TestFixture::polynomial_sum(model, *engine, moments);
  EXPECT_NEAR(mean / Z, 1, 0.05);
}

using Idx = unsigned int;
using Wide = Sqm<QZ::type_pair<unsigned int, double>>;
class SqmOfDouble : public Wide {
  void TestBody() override {}
};

SqmOfDouble::Model negative_model() {
  auto model = SqmOfDouble::triangle();
  model.fill(-0.9, -0.1, 4);
  return model;
}

TEST(Sqm, ApproachesTheExponentialWithTheDegree) {
  PolynomialModel<Idx, double> model({2, 2}, {{0, 1}});
  model.fill(-1, 1, 6);
  std::vector<double> moments;
  const double Z = model.sum([](double E) { return std::exp(E); }, moments);
  for (Idx degree : {1u, 3u, 5u, 7u}) {
    SQM<Idx, double> engine(&model.graph, model.states.data(), model.weights.data(), &model.rng,
                            degree);
    engine.infer_slow(0);
    EXPECT_GT(engine.approximation_error, 0);
    EXPECT_LE(std::abs(std::exp(engine.log_partition) - Z),
              4 * engine.approximation_error * 1.01 + 1e-12);
  }
}

TEST(Sqm, EstimatedMarginalsApproachTheExhaustiveOnes) {
  auto model = SqmOfDouble::triangle();
  model.fill(-0.5, 0.7, 5);
  auto exact = SqmOfDouble::engine_for(model, 3);
  exact->infer_slow(0);
  auto engine = SqmOfDouble::engine_for(model, 3);
  engine->max_iterations = 40000;
  engine->infer(0);
  for (Idx e = 0; e < 3; ++e) {
    for (Idx x = 0; x < 4; ++x) {
      EXPECT_NEAR(SqmOfDouble::fraction(*engine, e, x / 2, x % 2),
                  SqmOfDouble::fraction(*exact, e, x / 2, x % 2), 0.02);
    }
  }
}

TEST(Sqm, KeepsNegativeTerms) {
  auto model = negative_model();
  auto engine = SqmOfDouble::engine_for(model, 3);
  engine->max_iterations = 100000;
  engine->infer(0);
  std::vector<double> moments;
  const double Z = SqmOfDouble::polynomial_sum(model, *engine, moments);
  EXPECT_NEAR(std::exp(engine->log_partition) / Z, 1, 0.1);
}

TEST(Sqm, HasNoExhaustiveMode) {
  auto model = SqmOfDouble::chain();
  model.fill(0, 1, 2);
  auto engine = SqmOfDouble::engine_for(model, 2);
  engine->max_iterations = 3;
  engine->infer(10);
  EXPECT_EQ(engine->sample_count, 3);
}

TEST(Sqm, StopsWhenEveryParameterHasMetItsNumberOfTuples) {
  auto model = SqmOfDouble::chain();
  model.fill(0, 1, 2);
  auto engine = SqmOfDouble::engine_for(model, 2);
  engine->max_iterations = 50;
  engine->infer(0);
  EXPECT_EQ(engine->sample_count, 50);
  EXPECT_EQ(std::vector<double>(engine->moment_norms, engine->moment_norms + 12),
            std::vector<double>(12, 50));
}

TEST(Sqm, WithoutIterationsTheMeanOfNothingIsInfinite) {
  auto model = SqmOfDouble::chain();
  auto engine = SqmOfDouble::engine_for(model, 2);
  engine->infer(0);
  EXPECT_EQ(engine->estimate_sum, 1);
  EXPECT_EQ(engine->log_partition, std::numeric_limits<double>::infinity());
  EXPECT_NEAR(SqmOfDouble::fraction(*engine, 0, 1, 2), 1.0 / 6, 1e-15);
}

TEST(Sqm, ASecondRunRestartsOnlyTheFirstBytesOfTheMomentCounts) {
  auto model = SqmOfDouble::chain();
  model.fill(0.2, 1, 2);
  auto engine = SqmOfDouble::engine_for(model, 2);
  engine->max_iterations = 20;
  engine->infer(0);
  engine->infer(0);
  // 12 parameters: 24 bytes, three of the twelve counts. The others are full from the first.
  for (std::size_t i = 0; i < 12; ++i) {
    EXPECT_EQ(engine->moment_norms[i], 20);
    EXPECT_EQ(engine->moment_sums[i] > 0, i < 3) << i;
  }
  // A block that is all 0 is uniform.
  EXPECT_NEAR(SqmOfDouble::fraction(*engine, 1, 0, 0), 1.0 / 6, 1e-15);
}

TEST(Sqm, AnEdgeMarginalOfAnEmptyCountLeavesAForeignNormAlone) {
  auto model = SqmOfDouble::chain();
  auto engine = SqmOfDouble::engine_for(model, 2);
  double q = 0.25;
  double Z = 3;
  engine->edge_marginal(0, 0, 0, q, Z);
  EXPECT_EQ(q, 0.25);
  EXPECT_EQ(Z, 3);
}

TEST(Sqm, AnEdgeMarginalDividesTheWholeBlockByTheNormOfItsOwnEntry) {
  auto model = SqmOfDouble::chain();
  auto engine = SqmOfDouble::engine_for(model, 2);
  for (std::size_t i = 0; i < 6; ++i) {
    engine->moment_sums[i] = double(i);
    engine->moment_norms[i] = double(i + 1);
  }
  double q = 0;
  double Z = 0;
  engine->edge_marginal(0, 1, 0, q, Z);
  EXPECT_EQ(q, 3.0 / 4);
  EXPECT_EQ(Z, 15.0 / 4);
}

TEST(Sqm, AVertexWithoutEdgesHasNoMarginal) {
  PolynomialModel<Idx, double> model({2, 2, 2}, {{0, 1}});
  auto engine = SqmOfDouble::engine_for(model, 1);
  engine->infer_slow(0);
  double q = 0;
  double Z = 0;
  engine->vertex_marginal(2, 0, q, Z);
  EXPECT_TRUE(std::isnan(q));
  EXPECT_EQ(Z, 1);
}

TEST(Sqm, AModelWithoutEdgesCountsItsConfigurations) {
  PolynomialModel<Idx, double> model({2, 3, 2}, {});
  auto engine = SqmOfDouble::engine_for(model, 4);
  engine->infer_slow(0);
  EXPECT_NEAR(engine->log_partition, std::log(12), 1e-5);
  engine->max_iterations = 5;
  engine->infer(0);
  EXPECT_NEAR(engine->log_partition, std::log(12), 1e-5);
}

TEST(Sqm, TheRangeIsTheSumOfTheExtremeWeights) {
  auto model = SqmOfDouble::chain();
  model.weights = {5, -1, 2, 0.5, -3, 1, 4, 0, 0, 2, 2, 2};
  auto engine = SqmOfDouble::engine_for(model, 1);
  double lower = 0;
  double upper = 0;
  engine->lowerupper(lower, upper);
  EXPECT_EQ(lower, -4);
  EXPECT_EQ(upper, 9);
}

TEST(Sqm, EqualWeightsWidenTheRangeByAQuarter) {
  auto model = SqmOfDouble::chain();
  model.weights.assign(12, 0.5);
  auto engine = SqmOfDouble::engine_for(model, 3);
  double lower = 0;
  double upper = 0;
  engine->lowerupper(lower, upper);
  EXPECT_EQ(lower, 0.875);
  EXPECT_EQ(upper, 1.125);
  engine->infer_slow(0);
  EXPECT_NEAR(engine->log_partition, std::log(12) + 1, 1e-5);
}

TEST(Sqm, AWideRangeIsScaledToSixtyFourAndNoLongerCoversTheEnergies) {
  auto model = SqmOfDouble::chain();
  model.weights = {-50, 50, 0, 0, 0, 0, -14, 14, 0, 0, 0, 0};
  auto engine = SqmOfDouble::engine_for(model, 1);
  double lower = 0;
  double upper = 0;
  engine->lowerupper(lower, upper);
  EXPECT_EQ(lower, -32);
  EXPECT_EQ(upper, 32);
}

TEST(Sqm, AWidthOfSixtyFourIsKept) {
  auto model = SqmOfDouble::chain();
  model.weights = {-2, 40, 0, 0, 0, 0, -2, 20, 0, 0, 0, 0};
  auto engine = SqmOfDouble::engine_for(model, 1);
  double lower = 0;
  double upper = 0;
  engine->lowerupper(lower, upper);
  EXPECT_EQ(lower, -4);
  EXPECT_EQ(upper, 60);
}

TEST(Sqm, TheMassOfALengthCountsTuplesOfEdgesAndConfigurations) {
  auto model = SqmOfDouble::chain();
  model.fill(-0.5, 0.5, 8);
  auto engine = SqmOfDouble::engine_for(model, 3);
  engine->init_sqm();
  double total = 0;
  for (int d = 0; d <= 3; ++d) {
    EXPECT_EQ(engine->degree_mass[d], 12 * std::pow(2, d));
    EXPECT_EQ(engine->coefficients[d], engine->approximation->coefficients()[d]);
    total += std::abs(engine->coefficients[d]) * engine->degree_mass[d];
  }
  EXPECT_DOUBLE_EQ(engine->mass_total, total);
  EXPECT_EQ(engine->approximation_error, engine->approximation->error());
  EXPECT_EQ(engine->configurations.to_uint64(), 12u);
}

TEST(Sqm, MoreConfigurationsThanADoubleHoldsHaveNoMass) {
  PolynomialModel<Idx, double> model(std::vector<Idx>(1023, 2), {{0, 1}});
  auto engine = SqmOfDouble::engine_for(model, 2);
  engine->init_sqm();
  EXPECT_EQ(engine->mass_total, 0);
  EXPECT_EQ(engine->degree_mass[0], 0);

  PolynomialModel<Idx, double> fits(std::vector<Idx>(1022, 2), {{0, 1}});
  auto other = SqmOfDouble::engine_for(fits, 2);
  other->init_sqm();
  EXPECT_EQ(other->degree_mass[1], std::ldexp(1.0, 1022));
}

TEST(Sqm, EveryParameterKnowsItsEdge) {
  auto model = SqmOfDouble::chain();
  auto engine = SqmOfDouble::engine_for(model, 2);
  for (Idx i = 0; i < 12; ++i) EXPECT_EQ(engine->edge_of_weight[i], i / 6);
}

TEST(Sqm, ParametersAreValidIfTheyAgreeOnSharedVertices) {
  PolynomialModel<Idx, double> model({2, 3, 2, 2}, {{0, 1}, {2, 1}, {0, 2}, {3, 0}});
  auto engine = SqmOfDouble::engine_for(model, 2);
  const auto state_at = [&](Idx i, Idx v) -> int {
    const Idx e = engine->edge_of_weight[i];
    const auto [s, t] = model.edges[e];
    const Idx offset = i - static_cast<Idx>(model.offsets[e]);
    if (v == s) return static_cast<int>(offset / model.states[t]);
    return v == t ? static_cast<int>(offset % model.states[t]) : -1;
  };
  const auto agree = [&](Idx i, Idx k) {
    for (Idx v = 0; v < 4; ++v) {
      const int x = state_at(i, v);
      const int y = state_at(k, v);
      if (x >= 0 && y >= 0 && x != y) return false;
    }
    return true;
  };
  const Idx dim = engine->dim;
  for (Idx i = 0; i < dim; ++i) {
    for (Idx k = 0; k < dim; ++k) {
      for (Idx l = 0; l < dim; ++l) {
        const std::vector<Idx> tuple = {k, l};
        const Idx* const entries = tuple.data();
        EXPECT_EQ(engine->valid_pair(i, entries, 2), agree(i, k) && agree(i, l));
        EXPECT_EQ(engine->valid_pair(i, entries, 1), agree(i, k));
        EXPECT_TRUE(engine->valid_pair(i, entries, 0));
      }
    }
  }
}

TEST(Sqm, TheVertexSetOfEdgesTakesNumbersPlusOne) {
  PolynomialModel<Idx, double> model({2, 2, 2, 2}, {{3, 1}, {2, 1}, {0, 2}});
  auto engine = SqmOfDouble::engine_for(model, 2);
  const std::vector<Idx> edges = {1, 2};
  const Idx* const numbers = edges.data();
  const std::unique_ptr<std::set<Idx>> both(engine->vertex_set(numbers, 2));
  EXPECT_EQ(*both, (std::set<Idx>{1, 2, 3}));
  const std::unique_ptr<std::set<Idx>> none(engine->vertex_set(numbers, 0));
  EXPECT_TRUE(none->empty());
}

TEST(Sqm, ADegreeOfAllOnesIsRefused) {
  PolynomialModel<unsigned char, float> model({2, 2}, {{0, 1}});
  using Engine = SQM<unsigned char, float>;
  try {
    Engine engine(&model.graph, model.states.data(), model.weights.data(), &model.rng, 255);
    FAIL();
  } catch (const std::logic_error& error) {
    EXPECT_STREQ(error.what(), "the polynomial degree is too large");
  }
}

}  // namespace
