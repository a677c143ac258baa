#include "QZ/mrf/integer_mrf.h"

#include <gtest/gtest.h>

#include <vector>

#include "support/listed_graph.h"
#include "support/toy_engines.h"

namespace {

/// One edge of two two-state vertices, with marginals and counts that the test writes down.
template <class T>
struct Edge {
  explicit Edge(T samples_ = 255) : samples(samples_) {
    std::fill(engine.Z.begin(), engine.Z.end(), T(255));
  }
  /// Entry 0 has probability model / 255 and the given count.
  T direction(T model, T count) {
    engine.q[0] = model;
    counts[0] = count;
    QZ::IntegerMRF<T> objective(&engine, 8);
    T* borrowed = counts.data();
    objective.set_empirical(borrowed, samples);
    const T first = objective.comp_gradient()[0];
    norm = objective.gradient_norm;
    EXPECT_EQ(objective.eval(), norm);
    EXPECT_EQ(objective.lipschitz, 1);
    EXPECT_EQ(objective.scale, 255);
    EXPECT_EQ(objective.k_limit, 8);
    return first;
  }

  qz_test::ListedGraph<T> graph{2, {{0, 1}}};
  std::vector<T> states{2, 2};
  qz_test::RecitingEngine<T, T> engine{&graph, states.data()};
  std::vector<T> counts = std::vector<T>(4);
  T samples;
  T norm = 0;
};

template <class T>
class IntegerMRF : public testing::Test {};
using Widths = testing::Types<unsigned char, unsigned short, unsigned int, unsigned long>;
TYPED_TEST_SUITE(IntegerMRF, Widths);

TYPED_TEST(IntegerMRF, AgreementLeavesAWeightAlone) {
  Edge<TypeParam> edge;
  EXPECT_EQ(edge.direction(100, 100), 0);
  EXPECT_EQ(edge.norm, 0);
}

TYPED_TEST(IntegerMRF, TenStepsTooFewInTheModelRaiseAWeight) {
  Edge<TypeParam> edge;
  EXPECT_EQ(edge.direction(90, 100), 1);
  EXPECT_EQ(edge.norm, 10);
}

TYPED_TEST(IntegerMRF, TenStepsTooManyInTheModelLowerAWeight) {
  Edge<TypeParam> edge;
  EXPECT_EQ(edge.direction(100, 90), QZ::all_ones<TypeParam>);
  EXPECT_EQ(edge.norm, 10);
}

TYPED_TEST(IntegerMRF, NineStepsCountAsAgreementButAreMeasured) {
  Edge<TypeParam> edge;
  EXPECT_EQ(edge.direction(91, 100), 0);
  EXPECT_EQ(edge.norm, 9);
  EXPECT_EQ(edge.direction(100, 91), 0);
  EXPECT_EQ(edge.norm, 9);
}

TYPED_TEST(IntegerMRF, WithoutRowsTheDataHoldNothing) {
  Edge<TypeParam> edge(0);
  EXPECT_EQ(edge.direction(10, 200), QZ::all_ones<TypeParam>);
  EXPECT_EQ(edge.norm, 10);
}

TYPED_TEST(IntegerMRF, AZeroNormaliserIsAZeroProbability) {
  Edge<TypeParam> edge;
  edge.engine.Z[0] = 0;
  EXPECT_EQ(edge.direction(0, 50), 1);
  EXPECT_EQ(edge.norm, 50);
}

TEST(IntegerMRFDeathTest, ANumeratorAboveItsNormaliserIsAnAssertion) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  Edge<unsigned char> edge;
  edge.engine.Z[0] = 4;
  EXPECT_DEATH(edge.direction(5, 0),
               "\\./src/include/QZ/QZMRF:.*Assertion `a<=b && a\\*scale>=a' failed");
}

TEST(IntegerMRFDeathTest, AWrapBelowTheOperandIsAnAssertionInTheWideTypes) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  // 255 * 2^31 wraps to 2^31, which is not below; 255 * (2^32 - 1) wraps to 2^32 - 255.
  Edge<unsigned int> edge;
  EXPECT_DEATH(edge.direction(0, 4294967295u), "Assertion `emp\\[i\\]\\*scale>=emp\\[i\\]' failed");
  edge.engine.Z[0] = 4294967295u;
  EXPECT_DEATH(edge.direction(4294967295u, 0), "Assertion `a<=b && a\\*scale>=a' failed");
}

TEST(IntegerMRF, NarrowTypesNeverWrapInTheProduct) {
  Edge<unsigned char> edge(255);
  edge.engine.Z[0] = 255;
  EXPECT_EQ(edge.direction(255, 255), 0);
  Edge<unsigned short> wide(65535);
  EXPECT_EQ(wide.direction(255, 65535), 0);
}

}  // namespace
