#include "QZ/mrf/ising.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "support/listed_graph.h"
#include "support/toy_engines.h"

namespace {

using Index = unsigned int;

/// A binary field on the given edges with exact inference.
struct Field {
  Field(unsigned long n, std::vector<std::pair<unsigned long, unsigned long>> edges,
        Index states_of_each = 2)
      : graph(n, std::move(edges)), states(n, states_of_each), engine(&graph, states.data()) {}

  /// Random frequencies that are those of one joint distribution.
  std::vector<double> consistent_moments() {
    std::mt19937 rng(5);
    std::normal_distribution<double> normal(0, 0.7);
    qz_test::ExactEngine<Index, double> other(&graph, states.data());
    for (Index k = 0; k < other.dim; ++k) other.weights[k] = normal(rng);
    other.infer(0);
    std::vector<double> moments(other.dim);
    for (Index e = 0; e < graph.edges(); ++e) {
      for (Index pair = 0; pair < 4; ++pair) {
        double q = 0, Z = 0;
        other.edge_marginal(e, pair / 2, pair % 2, q, Z);
        moments[4 * e + pair] = q / Z;
      }
    }
    return moments;
  }

  qz_test::ListedGraph<Index> graph;
  std::vector<Index> states;
  qz_test::ExactEngine<Index, double> engine;
};

TEST(Ising, ALoneEdgeExpandsIntoItsBlock) {
  Field field(2, {{0, 1}});
  QZ::Ising<Index, double> model(&field.engine);
  ASSERT_EQ(model.dim(), 3u);
  const double point[] = {1, 2, 4};
  std::copy_n(point, 3, model.current_point());
  model.decode_weights();
  EXPECT_EQ(std::vector<double>(field.engine.weights, field.engine.weights + 4),
            (std::vector<double>{0, 2, 1, 7}));
}

TEST(Ising, ABiasLivesInTheFirstEdgeOfItsVertex) {
  Field field(3, {{0, 1}, {1, 2}});
  QZ::Ising<Index, double> model(&field.engine);
  const double point[] = {0, 5, 0, 0, 0};
  std::copy_n(point, 5, model.current_point());
  model.decode_weights();
  EXPECT_EQ(std::vector<double>(field.engine.weights, field.engine.weights + 8),
            (std::vector<double>{0, 5, 0, 5, 0, 0, 0, 0}));
}

TEST(Ising, BothEndsOfAnEdgeMayShareItsLastEntry) {
  Field field(2, {{1, 0}});
  QZ::Ising<Index, double> model(&field.engine);
  const double point[] = {1, 2, 0};
  std::copy_n(point, 3, model.current_point());
  model.decode_weights();
  // Vertex 1 comes first in the edge.
  EXPECT_EQ(std::vector<double>(field.engine.weights, field.engine.weights + 4),
            (std::vector<double>{0, 1, 2, 3}));
}

TEST(Ising, DecodingAgainStartsFromZero) {
  Field field(2, {{0, 1}});
  QZ::Ising<Index, double> model(&field.engine);
  std::fill_n(model.current_point(), 3, 1.0);
  model.decode_weights();
  model.decode_weights();
  EXPECT_EQ(field.engine.weights[3], 3.0);
}

TEST(Ising, TheGradientIsThatOfTheFullLogLikelihood) {
  Field field(4, {{0, 1}, {2, 1}, {2, 3}, {3, 0}});
  QZ::Ising<Index, double> model(&field.engine);
  std::vector<double> moments = field.consistent_moments();
  double* borrowed = moments.data();
  model.set_empirical(borrowed, 10);
  std::mt19937 rng(1);
  std::normal_distribution<double> normal(0, 0.5);
  for (Index k = 0; k < 8; ++k) model.current_point()[k] = normal(rng);

  const auto objective = [&] {
    model.decode_weights();
    field.engine.infer(0);
    double sum = field.engine.log_partition;
    for (Index k = 0; k < 16; ++k) sum -= field.engine.weights[k] * moments[k];
    return sum;
  };
  model.decode_weights();
  const std::vector<double> gradient(model.comp_gradient(), model.comp_gradient() + 8);
  double largest = 0;
  for (Index k = 0; k < 8; ++k) {
    const double here = model.current_point()[k];
    const double h = 1e-5;
    model.current_point()[k] = here + h;
    const double above = objective();
    model.current_point()[k] = here - h;
    const double below = objective();
    model.current_point()[k] = here;
    EXPECT_NEAR(gradient[k], (above - below) / (2 * h), 1e-8) << "entry " << k;
    largest = std::max(largest, std::abs(gradient[k]));
  }
  EXPECT_EQ(model.gradient_norm, largest);
}

TEST(Ising, TheObjectiveSumsTheFirstEntriesOnly) {
  Field field(2, {{0, 1}});
  QZ::Ising<Index, double> model(&field.engine);
  std::vector<double> moments{0.125, 0.25, 0.5, 0.125};
  double* borrowed = moments.data();
  model.set_empirical(borrowed, 8);
  const double point[] = {1, 2, 4};
  std::copy_n(point, 3, model.current_point());
  model.decode_weights();
  model.comp_gradient();
  // Of the block 0, 2, 1, 7 the last entry is left out.
  EXPECT_DOUBLE_EQ(model.eval(), field.engine.log_partition - (2 * 0.25 + 1 * 0.5));
}

TEST(Ising, TheGradientBelongsToThePointLastDecoded) {
  Field field(2, {{0, 1}});
  QZ::Ising<Index, double> model(&field.engine);
  std::vector<double> moments{0.25, 0.25, 0.25, 0.25};
  double* borrowed = moments.data();
  model.set_empirical(borrowed, 8);
  model.decode_weights();
  model.comp_gradient();
  EXPECT_NEAR(model.gradient_norm, 0, 1e-15);
  model.current_point()[2] = 3;
  model.comp_gradient();
  EXPECT_NEAR(model.gradient_norm, 0, 1e-15);
  model.decode_weights();
  model.comp_gradient();
  EXPECT_GT(model.gradient_norm, 0.5);
}

TEST(Ising, WithoutVerticesThereIsNothingToExpand) {
  Field field(0, {});
  QZ::Ising<Index, double> model(&field.engine);
  EXPECT_EQ(model.dim(), 0u);
  model.decode_weights();
  model.comp_gradient();
  EXPECT_EQ(model.gradient_norm, 0.0);
  EXPECT_EQ(model.eval(), 0.0);
}

TEST(Ising, NeedsTwoStatesAtEveryVertex) {
  Field field(2, {{0, 1}}, 3);
  try {
    QZ::Ising<Index, double> model(&field.engine);
    FAIL() << "accepted three states";
  } catch (const std::out_of_range& error) {
    EXPECT_STREQ(error.what(), "Ising model requires binary states.");
  }
}

TEST(Ising, AVertexWithoutAnEdgeHasNoPlaceForItsBias) {
  Field field(3, {{0, 1}});
  EXPECT_THROW((QZ::Ising<Index, double>(&field.engine)), std::logic_error);
}

}  // namespace
