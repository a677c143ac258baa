#include "QZ/mrf/mrf.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <omp.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "QZ/opt/gradient_descent.h"
#include "QZ/support/random.h"
#include "support/listed_graph.h"
#include "support/pair_types.h"
#include "support/toy_engines.h"

namespace {

using ::testing::Each;
using ::testing::ElementsAre;

constexpr double nan = std::numeric_limits<double>::quiet_NaN();

/// A triangle with a tail; edges stand in both orientations, and state counts differ.
template <class idx_t, class val_t>
struct SmallModel {
  qz_test::ListedGraph<idx_t> graph{4, {{0, 1}, {2, 1}, {2, 0}, {2, 3}}};
  std::vector<idx_t> states{2, 3, 4, 2};
  qz_test::ExactEngine<idx_t, val_t> engine{&graph, states.data()};
  QZ::MRF<idx_t, val_t> model{&engine};
  std::vector<val_t> moments;

  explicit SmallModel(unsigned seed = 7) : moments(engine.dim) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<double> draw(-1, 1);
    for (idx_t i = 0; i < engine.dim; ++i) engine.weights[i] = static_cast<val_t>(draw(rng));
    // Frequencies that sum to 1 in each block.
    for (idx_t e = 0; e < graph.edges(); ++e) {
      double sum = 0;
      for (idx_t i = engine.weight_offsets[e]; i < engine.weight_offsets[e + 1]; ++i) {
        moments[i] = static_cast<val_t>(draw(rng) + 1.5);
        sum += moments[i];
      }
      for (idx_t i = engine.weight_offsets[e]; i < engine.weight_offsets[e + 1]; ++i) {
        moments[i] = static_cast<val_t>(moments[i] / sum);
      }
    }
    val_t* data = moments.data();
    model.set_empirical(data, 50);
  }
  double objective() {
    engine.infer(0);
    return static_cast<double>(model.eval());
  }
  std::vector<val_t> gradient() {
    model.comp_gradient();
    return {model.gradient, model.gradient + model.dim};
  }
};

template <class Pair>
class MrfOfFloats : public ::testing::Test {};
TYPED_TEST_SUITE(MrfOfFloats, qz_test::FloatPairs);

TYPED_TEST(MrfOfFloats, HasTheDifferenceQuotientsOfItsObjectiveAsGradient) {
  using val_t = typename TypeParam::val_t;
  SmallModel<typename TypeParam::idx_t, val_t> m;
  const std::vector<val_t> gradient = m.gradient();
  const bool single = std::is_same_v<val_t, float>;
  const double h = single ? 1.0 / 64 : 1.0 / (1 << 14);
  for (std::size_t i = 0; i < gradient.size(); ++i) {
    val_t& w = m.engine.weights[i];
    const val_t at = w;
    w = static_cast<val_t>(at + h);
    const double above = m.objective(), x1 = w;
    w = static_cast<val_t>(at - h);
    const double below = m.objective(), x0 = w;
    w = at;
    EXPECT_NEAR(gradient[i], (above - below) / (x1 - x0), single ? 1e-4 : 1e-9) << i;
  }
}

TYPED_TEST(MrfOfFloats, BorrowsEverythingButItsGradient) {
  SmallModel<typename TypeParam::idx_t, typename TypeParam::val_t> m;
  EXPECT_EQ(m.model.graph, &m.graph);
  EXPECT_EQ(m.model.states, m.states.data());
  EXPECT_EQ(m.model.weights, m.engine.weights);
  EXPECT_EQ(m.model.current_point(), m.engine.weights);
  EXPECT_EQ(m.model.engine(), &m.engine);
  EXPECT_EQ(m.model.emp, m.moments.data());
  EXPECT_EQ(m.model.samples, 50);
  EXPECT_EQ(m.model.dim, 6 + 12 + 8 + 8);
  EXPECT_EQ(m.model.get_gradient(), m.model.gradient);
}

TYPED_TEST(MrfOfFloats, AsksOnceForSumMarginalsAndOncePerEntry) {
  SmallModel<typename TypeParam::idx_t, typename TypeParam::val_t> m;
  EXPECT_EQ(m.model.comp_gradient(), m.model.gradient);
  EXPECT_THAT(m.engine.modes, ElementsAre(0));
  EXPECT_EQ(m.engine.edge_calls, m.model.dim);
}

TEST(Mrf, StartsWithAZeroGradientAndNoData) {
  SmallModel<unsigned, double> m;
  QZ::MRF<unsigned, double> fresh(&m.engine);
  EXPECT_EQ(fresh.emp, nullptr);
  EXPECT_EQ(fresh.samples, 0u);
  EXPECT_EQ(fresh.gradient_norm, 0);
  EXPECT_EQ(fresh.lipschitz, 0);
  EXPECT_THAT(std::vector<double>(fresh.gradient, fresh.gradient + fresh.dim), Each(0.0));
}

TEST(Mrf, IsTheAverageNegativeLogLikelihood) {
  SmallModel<unsigned, double> m;
  // Data of two rows: the moments are their frequencies, the likelihood comes from their scores.
  const std::vector<std::vector<unsigned>> rows{{0, 2, 3, 1}, {1, 0, 3, 0}};
  std::fill(m.moments.begin(), m.moments.end(), 0);
  double scores = 0;
  for (const auto& row : rows) {
    for (unsigned e = 0; e < m.graph.edges(); ++e) {
      const auto [s, t] = QZ::endpoints(m.graph, e);
      const unsigned i = m.engine.weight_offsets[e] + row[s] * m.states[t] + row[t];
      m.moments[i] += 0.5;
      scores += m.engine.weights[i];
    }
  }
  const double objective = m.objective();
  EXPECT_NEAR(objective, m.engine.log_partition - scores / 2, 1e-12);
}

TEST(Mrf, SumsItsObjectiveFusedInIndexOrder) {
  SmallModel<unsigned, double> m;
  m.engine.infer(0);
  double sum = 0;
  for (unsigned i = 0; i < m.model.dim; ++i) {
    sum = std::fma(m.engine.weights[i], m.moments[i], sum);
  }
  EXPECT_EQ(m.model.eval(), -(sum - m.engine.log_partition));
}

TEST(Mrf, HasNoGradientWhereDataAndModelAgree) {
  SmallModel<unsigned, double> m;
  m.gradient();
  for (unsigned i = 0; i < m.model.dim; ++i) m.moments[i] += m.model.gradient[i];
  for (const double entry : m.gradient()) EXPECT_NEAR(entry, 0, 1e-15);
}

TEST(Mrf, HasANegativeEntryWhereTheDataHoldsAPairMoreOften) {
  SmallModel<unsigned, double> m;
  m.gradient();
  for (unsigned i = 0; i < m.model.dim; ++i) m.moments[i] += m.model.gradient[i];
  m.moments[3] += 0.125;
  EXPECT_NEAR(m.gradient()[3], -0.125, 1e-12);
  EXPECT_NEAR(m.model.gradient_norm, 0.125, 1e-12);
}

TEST(Mrf, MeasuresTheLargestMagnitude) {
  SmallModel<unsigned, double> m;
  double largest = 0;
  for (const double entry : m.gradient()) largest = std::max(largest, std::abs(entry));
  EXPECT_EQ(m.model.gradient_norm, largest);
}

TEST(Mrf, IgnoresNansInTheGradientNorm) {
  SmallModel<unsigned, double> m;
  m.moments[5] = nan;
  const std::vector<double> gradient = m.gradient();
  EXPECT_TRUE(std::isnan(gradient[5]));
  double largest = 0;
  for (const double entry : gradient) largest = std::fmax(largest, std::abs(entry));
  EXPECT_EQ(m.model.gradient_norm, largest);
  EXPECT_GT(largest, 0);
}

TEST(Mrf, HasANormOfZeroWhenEveryEntryIsNan) {
  SmallModel<unsigned, double> m;
  m.moments.assign(m.moments.size(), nan);
  m.gradient();
  EXPECT_EQ(m.model.gradient_norm, 0);
}

TEST(Mrf, FollowsFloatingRulesWhereTheNormaliserIsZero) {
  qz_test::ListedGraph<unsigned> graph(2, {{0, 1}});
  std::vector<unsigned> states{1, 2};
  qz_test::RecitingEngine<unsigned, double> engine(&graph, states.data());
  QZ::MRF<unsigned, double> model(&engine);
  std::vector<double> moments{0.5, 0.5};
  double* data = moments.data();
  model.set_empirical(data, 2);
  engine.q = {1, 0};
  model.comp_gradient();
  EXPECT_EQ(model.gradient[0], std::numeric_limits<double>::infinity());
  EXPECT_TRUE(std::isnan(model.gradient[1]));
  EXPECT_EQ(model.gradient_norm, std::numeric_limits<double>::infinity());
}

TEST(Mrf, HasNoEntriesForAnEdgeWithAStatelessVertex) {
  qz_test::ListedGraph<unsigned> graph(4, {{0, 1}, {0, 2}, {3, 1}, {1, 0}});
  std::vector<unsigned> states{2, 2, 0, 0};
  qz_test::RecitingEngine<unsigned, double> engine(&graph, states.data());
  QZ::MRF<unsigned, double> model(&engine);
  std::vector<double> moments(8, 0.0);
  double* data = moments.data();
  model.set_empirical(data, 1);
  engine.q = {1, 2, 3, 4, 5, 6, 7, 8};
  engine.Z.assign(8, 10);
  model.comp_gradient();
  EXPECT_EQ(model.dim, 8u);
  for (unsigned i = 0; i < 8; ++i) EXPECT_DOUBLE_EQ(model.gradient[i], (i + 1) / 10.0);
}

TEST(Mrf, OfAGraphWithoutEdgesIsItsLogPartition) {
  qz_test::ListedGraph<unsigned> graph(2, {});
  std::vector<unsigned> states{3, 2};
  qz_test::ExactEngine<unsigned, double> engine(&graph, states.data());
  QZ::MRF<unsigned, double> model(&engine);
  model.comp_gradient();
  EXPECT_EQ(model.dim, 0u);
  EXPECT_EQ(model.gradient_norm, 0);
  EXPECT_DOUBLE_EQ(model.eval(), std::log(6.0));
}

class MrfOnThreads : public ::testing::TestWithParam<int> {
 protected:
  void SetUp() override { omp_set_num_threads(GetParam()); }
  void TearDown() override { omp_set_num_threads(before_); }
  int before_ = omp_get_max_threads();
};
INSTANTIATE_TEST_SUITE_P(Teams, MrfOnThreads, ::testing::Values(1, 2, 3, 7));

TEST_P(MrfOnThreads, WritesEveryEntryOnce) {
  SmallModel<unsigned short, float> m;
  const std::vector<float> gradient = m.gradient();
  for (unsigned short e = 0; e < m.graph.edges(); ++e) {
    const auto [s, t] = QZ::endpoints(m.graph, e);
    for (unsigned short xs = 0; xs < m.states[s]; ++xs) {
      for (unsigned short xt = 0; xt < m.states[t]; ++xt) {
        float q = 0, Z = 0;
        m.engine.edge_marginal(e, xs, xt, q, Z);
        const std::size_t i = m.engine.weight_offsets[e] + xs * m.states[t] + xt;
        EXPECT_EQ(gradient[i], -(m.moments[i] - q / Z));
      }
    }
  }
  EXPECT_EQ(m.engine.edge_calls, 2u * m.model.dim);
}

/// A bare belief propagation engine and one that looks like a caller's own.
template <class val_t>
class RenamedLbp : public QZ::LBP<unsigned, val_t> {
  using QZ::LBP<unsigned, val_t>::LBP;
};

template <class val_t, class Engine>
std::vector<val_t> gradient_by() {
  qz_test::ListedGraph<unsigned> graph(5, {{0, 1}, {2, 1}, {2, 0}, {2, 3}, {4, 3}});
  std::vector<unsigned> states{2, 3, 4, 0, 5};
  std::mt19937 rng(3);
  Engine engine(&graph, states.data(), nullptr, &rng);
  engine.max_iterations = 20;
  QZ::MRF<unsigned, val_t> model(&engine);
  std::vector<val_t> moments(model.dim);
  for (unsigned i = 0; i < model.dim; ++i) {
    engine.weights[i] = static_cast<val_t>(QZ::draw_canonical(rng));
    moments[i] = static_cast<val_t>(QZ::draw_canonical(rng)) / 10;
  }
  val_t* data = moments.data();
  model.set_empirical(data, 10);
  model.comp_gradient();
  std::vector<val_t> result(model.gradient, model.gradient + model.dim);
  result.push_back(model.gradient_norm);
  return result;
}

template <class val_t>
void expect_same_gradient() {
  const auto blocks = gradient_by<val_t, QZ::LBP<unsigned, val_t>>();
  const auto entries = gradient_by<val_t, RenamedLbp<val_t>>();
  ASSERT_EQ(blocks.size(), entries.size());
  for (std::size_t i = 0; i < blocks.size(); ++i) {
    EXPECT_NEAR(blocks[i], entries[i], 4 * std::numeric_limits<val_t>::epsilon());
  }
}

TEST_P(MrfOnThreads, HasOneGradientWhetherMarginalsComeByEdgeOrByEntry) {
  expect_same_gradient<double>();
  expect_same_gradient<float>();
}

TEST(Mrf, IsFittedByDescentUntilItsMarginalsAreThoseOfTheData) {
  SmallModel<unsigned long, double> m;
  // Moments of another model of the same shape, so that they can be met.
  SmallModel<unsigned long, double> other(99);
  other.gradient();
  for (unsigned long i = 0; i < m.model.dim; ++i) {
    m.moments[i] = other.moments[i] + other.model.gradient[i];
  }
  m.model.lipschitz = 2 * 4;
  QZ::GradientDescent<unsigned long, double> descent;
  // A team would spend these small steps waiting.
  const int threads = omp_get_max_threads();
  omp_set_num_threads(1);
  descent.opt(&m.model, nullptr, nullptr, nullptr, 4000, 1.0, false, 0, 0);
  omp_set_num_threads(threads);
  m.gradient();
  EXPECT_LT(m.model.gradient_norm, 1e-6);
}

// Integers.

template <class Pair>
class MrfOfIntegers : public ::testing::Test {};
using IntegerPairs = ::testing::Types<unsigned char, unsigned short, unsigned int, unsigned long>;
TYPED_TEST_SUITE(MrfOfIntegers, IntegerPairs);

TYPED_TEST(MrfOfIntegers, WrapsItsObjectiveAndItsGradient) {
  using idx_t = TypeParam;
  qz_test::ListedGraph<idx_t> graph(2, {{0, 1}});
  std::vector<idx_t> states{2, 2};
  qz_test::RecitingEngine<idx_t, idx_t> engine(&graph, states.data());
  QZ::MRF<idx_t, idx_t> model(&engine);
  std::vector<idx_t> counts{3, 0, 2, 1};
  idx_t* data = counts.data();
  model.set_empirical(data, 6);
  engine.q = {9, 8, 7, 5};
  engine.Z = {2, 3, 0, 5};
  model.comp_gradient();
  // Quotients 4, 2, 0 (by the zero rule) and 1, less the counts.
  const idx_t wrapped = static_cast<idx_t>(-2);
  EXPECT_THAT(std::vector<idx_t>(model.gradient, model.gradient + 4),
              ElementsAre(1, 2, wrapped, 0));
  // The largest entry, after a passage through double that rounds the widest words.
  const idx_t norm = sizeof(idx_t) == 8 ? static_cast<idx_t>(-1) : wrapped;
  EXPECT_EQ(model.gradient_norm, norm);

  engine.log_partition = 5;
  std::copy_n(std::vector<idx_t>{1, 1, 2, 3}.data(), 4, engine.weights);
  EXPECT_EQ(model.eval(), static_cast<idx_t>(5 - (3 + 0 + 4 + 3)));
}

}  // namespace
