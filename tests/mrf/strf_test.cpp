#include "QZ/mrf/strf.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "QZ/graph/chain.h"
#include "support/listed_graph.h"
#include "support/toy_engines.h"

namespace {

using Index = unsigned int;
using QZ::ReparamType;

/// Two vertices with 2 and 3 states over three time slices: 6 vertices, 11 edges.
struct Slices {
  Slices() : states{2, 3, 2, 3, 2, 3}, engine(&graph, states.data()) {
    std::mt19937 rng(8);
    std::normal_distribution<double> normal(0, 0.4);
    for (Index k = 0; k < engine.dim; ++k) engine.weights[k] = normal(rng);
    moments.resize(engine.dim);
    for (double& m : moments) m = std::abs(normal(rng));
  }

  QZ::Chain<Index> base{2};
  QZ::STGraph<Index> graph{3, &base};
  std::vector<Index> states;
  qz_test::ExactEngine<Index, double> engine;
  std::vector<double> moments;
};

/// What an edge of the eleven is, written down from their numbering: four temporal edges (vertex by
/// vertex, two steps each), then spatial, forward and backward cross edge of each step, then the
/// spatial edge of the last slice.
struct LikeEdges {
  std::vector<Index> at_step;
};
const LikeEdges like_edges[11] = {{{0}}, {{0, 1}}, {{2}},    {{2, 3}}, {{4}},       {{5}},
                                  {{6}}, {{4, 7}}, {{5, 8}}, {{6, 9}}, {{4, 7, 10}}};

double decay(std::size_t step, std::size_t time, ReparamType kind) {
  return QZ::decay_coeff<double, Index>(static_cast<Index>(step), static_cast<Index>(time), kind);
}

const ReparamType kinds[] = {ReparamType::NONE,          ReparamType::STLINEAR,
                             ReparamType::STQUAD,        ReparamType::STCUBIC,
                             ReparamType::STRATIONAL,    ReparamType::STEXPONENTIAL,
                             ReparamType::STINVQUAD,     ReparamType::STINVCUBIC,
                             ReparamType::STINVRATIONAL, ReparamType::STINVEXPONENTIAL};

TEST(Strf, AWeightIsTheDecayedSumOfItsLikeEdges) {
  for (const ReparamType kind : kinds) {
    Slices slices;
    QZ::STRF<Index, double> model(&slices.engine, kind);
    const std::vector<double> point(model.time_weights, model.time_weights + model.dim);
    model.decode_weights();
    for (Index e = 0; e < 11; ++e) {
      const auto& sources = like_edges[e].at_step;
      const Index begin = slices.engine.weight_offsets[e];
      const Index size = slices.engine.weight_offsets[e + 1] - begin;
      for (Index k = 0; k < size; ++k) {
        double expected = 0;
        for (std::size_t j = 0; j < sources.size(); ++j) {
          expected += decay(j, sources.size() - 1, kind) *
                      point[slices.engine.weight_offsets[sources[j]] + k];
        }
        EXPECT_NEAR(slices.engine.weights[begin + k], expected, 1e-14) << "edge " << e;
      }
    }
  }
}

TEST(Strf, TheGradientIsThatOfTheObjective) {
  for (const ReparamType kind : kinds) {
    Slices slices;
    QZ::STRF<Index, double> model(&slices.engine, kind);
    double* borrowed = slices.moments.data();
    model.set_empirical(borrowed, 10);
    const std::vector<double> gradient(model.comp_gradient(), model.comp_gradient() + model.dim);
    double largest = 0;
    for (Index k = 0; k < model.dim; ++k) {
      const double here = model.time_weights[k];
      const double h = 1e-5;
      const auto objective = [&](double x) {
        model.current_point()[k] = x;
        model.decode_weights();
        slices.engine.infer(0);
        return model.eval();
      };
      const double slope = (objective(here + h) - objective(here - h)) / (2 * h);
      model.time_weights[k] = here;
      EXPECT_NEAR(gradient[k], slope, 1e-8) << "entry " << k << " of kind " << int(kind);
      largest = std::max(largest, std::abs(gradient[k]));
    }
    EXPECT_EQ(model.gradient_norm, largest);
  }
}

TEST(Strf, StartsFromTheEnginesWeights) {
  Slices slices;
  const std::vector<double> before(slices.engine.weights,
                                   slices.engine.weights + slices.engine.dim);
  QZ::STRF<Index, double> model(&slices.engine, ReparamType::STLINEAR);
  EXPECT_TRUE(model.weights_current);
  EXPECT_EQ(std::vector<double>(model.time_weights, model.time_weights + model.dim), before);
  EXPECT_EQ(model.current_point(), model.time_weights);
  EXPECT_FALSE(model.weights_current);
  model.convert();
  EXPECT_TRUE(model.weights_current);
}

TEST(Strf, EdgesOfTimeZeroKeepTheirParameters) {
  Slices slices;
  QZ::STRF<Index, double> model(&slices.engine, ReparamType::STINVCUBIC);
  const double first = model.time_weights[0];
  model.convert();
  EXPECT_DOUBLE_EQ(slices.engine.weights[0], first);
}

TEST(Strf, KindsThatAreNoDecayLeaveNothing) {
  for (const ReparamType kind : {ReparamType::INTEGER, ReparamType::DBT}) {
    Slices slices;
    QZ::STRF<Index, double> model(&slices.engine, kind);
    double* borrowed = slices.moments.data();
    model.set_empirical(borrowed, 10);
    model.comp_gradient();
    for (Index k = 0; k < model.dim; ++k) EXPECT_EQ(slices.engine.weights[k], 0.0);
    EXPECT_EQ(model.gradient_norm, 0.0);
    EXPECT_EQ(model.lipschitz, 0.0);
  }
}

TEST(Strf, BoundsItsCurvatureByTheStatedSums) {
  Slices slices;
  const QZ::STRF<Index, double> model(&slices.engine, ReparamType::STLINEAR);
  const double blocks = 2 * 2 + 3 * 3 + 3 * 2 * 3;
  const double decays = 1 + (0.25 + 1) + (1.0 / 9 + 4.0 / 9 + 1);
  EXPECT_NEAR(model.lipschitz, decays * (blocks * 2 * 11), 1e-9);
}

TEST(Strf, FillsTheTableOfEdgesByWeight) {
  Slices slices;
  const QZ::STRF<Index, double> model(&slices.engine, ReparamType::NONE);
  for (Index e = 0; e < 11; ++e) {
    const Index begin = slices.engine.weight_offsets[e];
    for (Index k = begin; k < slices.engine.weight_offsets[e + 1]; ++k) {
      EXPECT_EQ(slices.engine.edge_of_weight[k], e);
    }
  }
}

template <class val_t>
void expect_projection() {
  using Model = QZ::STRF<Index, val_t>;
  EXPECT_EQ(Model::project(2, 4, 3, 2, 6), val_t(2.5));
  EXPECT_EQ(Model::project(7, 7, 0, 0, 0), val_t(7));
  const std::string place = "\\./src/include/QZ/QZMRF:.*Assertion ";
  EXPECT_DEATH(Model::project(1, 1, 2, 0, 0), place + "`x==a' failed");
  EXPECT_DEATH(Model::project(0.5, 1, 0, 0, 0), place + "`l==u' failed");
  // The first of the two is the first to be checked.
  EXPECT_DEATH(Model::project(0.5, 1, 2, 0, 0), place + "`x==a' failed");
}

TEST(StrfDeathTest, ProjectsAPointOntoAPointOnly) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  expect_projection<float>();
  expect_projection<double>();
}

TEST(Strf, FindsLikeEdgesByTheRoundedReciprocalOfTheGraph) {
  // The float nearest to 1 / 41 is too small: what belongs to base vertex or edge 1 is taken for 0.
  const Index D = 41;
  QZ::Chain<Index> base(3);
  QZ::STGraph<Index> graph(D + 1, &base);
  ASSERT_LT(41.0f * graph.invSpan, 1.0f);
  std::vector<Index> states(graph.vertices(), 2);
  qz_test::RecitingEngine<Index, double> engine(&graph, states.data());
  QZ::STRF<Index, double> model(&engine, ReparamType::STLINEAR);
  std::mt19937 rng(2);
  for (Index k = 0; k < engine.dim; ++k) model.time_weights[k] = rng() % 1000;
  model.decode_weights();
  const auto block = [&](Index e) {
    return std::vector<double>(engine.weights + 4 * e, engine.weights + 4 * e + 4);
  };
  const Index spatial = 3 * D;
  const Index last = spatial + 3 * D * 2;
  for (Index r = 0; r < D; ++r) {
    EXPECT_EQ(block(D + r), block(r));
    EXPECT_NE(block(2 * D + r), block(r));
    for (Index kind = 0; kind < 3; ++kind) {
      EXPECT_EQ(block(spatial + 3 * (D + r) + kind), block(spatial + 3 * r + kind));
    }
  }
  // The last slice has its earlier edges by whole numbers.
  for (Index e = 0; e < 2; ++e) {
    for (Index k = 0; k < 4; ++k) {
      double expected = model.time_weights[4 * (last + e) + k];
      for (Index j = 0; j < D; ++j) {
        expected += (j + 1) / (D + 1.0) * model.time_weights[4 * (spatial + 3 * (D * e + j)) + k];
      }
      EXPECT_NEAR(engine.weights[4 * (last + e) + k], expected, 1e-9);
    }
  }
}

TEST(Strf, NeedsAGraphOverTimeSlices) {
  qz_test::ListedGraph<Index> graph(2, {{0, 1}});
  std::vector<Index> states{2, 2};
  qz_test::ExactEngine<Index, double> engine(&graph, states.data());
  EXPECT_THROW((QZ::STRF<Index, double>(&engine, ReparamType::STLINEAR)), std::logic_error);
}

}  // namespace
