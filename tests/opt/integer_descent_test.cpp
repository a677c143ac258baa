#include "QZ/opt/integer_descent.h"

#include <gtest/gtest.h>

#include <vector>

#include "QZ/graph/chain.h"

namespace {

/// A point and a gradient that the test sets.
template <class idx_t>
class Signs : public QZ::Function<idx_t, idx_t> {
 public:
  explicit Signs(std::vector<idx_t> start)
      : QZ::Function<idx_t, idx_t>(static_cast<idx_t>(start.size())), point(std::move(start)) {}
  void decode_weights() override {}
  idx_t* current_point() override { return point.data(); }
  idx_t eval() override { return this->gradient_norm; }
  idx_t* comp_gradient() override { return this->gradient; }

  std::vector<idx_t> point;
};

template <class T>
class IntGD : public testing::Test {
 protected:
  static constexpr T lower = QZ::all_ones<T>;
  static constexpr T raise = 1;

  /// Runs `steps` updates on a chain of two-state vertices with the given point and gradient.
  static std::vector<T> walk(const std::vector<T>& point, const std::vector<T>& gradient, T k_limit,
                             int steps = 1) {
    const QZ::Chain<T> graph(static_cast<T>(point.size() / 4 + 1));
    const std::vector<T> states(graph.vertices(), 2);
    Signs<T> f(point);
    std::copy(gradient.begin(), gradient.end(), f.gradient);
    QZ::IntGD<T> optimizer(graph, states.data(), k_limit);
    QZ::OptState<T, T> state{};
    for (int i = 0; i < steps; ++i) optimizer.update(&f, state);
    return f.point;
  }
};
using Widths = testing::Types<unsigned char, unsigned short, unsigned int, unsigned long>;
TYPED_TEST_SUITE(IntGD, Widths);

TYPED_TEST(IntGD, MovesEachWeightOfTheBlockByOne) {
  const auto moved = this->walk({1, 2, 0, 1}, {this->raise, this->lower, 0, 0}, 4);
  EXPECT_EQ(moved, (std::vector<TypeParam>{2, 1, 0, 1}));
}

TYPED_TEST(IntGD, LeavesAWeightBelowItsBound) {
  EXPECT_EQ(this->walk({3, 3, 3, 3}, {this->raise, 0, 0, 0}, 4),
            (std::vector<TypeParam>{3, 3, 3, 3}));
}

TYPED_TEST(IntGD, RaisesTheRestOfTheBlockWhereAWeightCannotFall) {
  EXPECT_EQ(this->walk({0, 1, 3, 2}, {this->lower, 0, 0, 0}, 4),
            (std::vector<TypeParam>{0, 2, 3, 3}));
}

TYPED_TEST(IntGD, LaterEntriesSeeWhatEarlierOnesRaised) {
  // The first entry raises the second from 0 to 1, so that the second can fall again.
  EXPECT_EQ(this->walk({0, 0, 1, 1}, {this->lower, this->lower, 0, 0}, 4),
            (std::vector<TypeParam>{0, 0, 2, 2}));
}

TYPED_TEST(IntGD, IgnoresGradientWordsThatAreNoDirection) {
  EXPECT_EQ(this->walk({1, 1, 1, 1}, {2, 7, 0, 2}, 4), (std::vector<TypeParam>{1, 1, 1, 1}));
}

TYPED_TEST(IntGD, VisitsOneEdgePerStepInTurn) {
  const std::vector<TypeParam> up(8, 1);
  const std::vector<TypeParam> zero(8, 0);
  EXPECT_EQ(this->walk(zero, up, 9, 1), (std::vector<TypeParam>{1, 1, 1, 1, 0, 0, 0, 0}));
  EXPECT_EQ(this->walk(zero, up, 9, 2), (std::vector<TypeParam>{1, 1, 1, 1, 1, 1, 1, 1}));
  EXPECT_EQ(this->walk(zero, up, 9, 3), (std::vector<TypeParam>{2, 2, 2, 2, 1, 1, 1, 1}));
}

TYPED_TEST(IntGD, ALoneEdgeIsVisitedByEveryStep) {
  const std::vector<TypeParam> up(4, 1);
  EXPECT_EQ(this->walk({0, 0, 0, 0}, up, 9, 3), (std::vector<TypeParam>{3, 3, 3, 3}));
}

TYPED_TEST(IntGD, AnEmptyBlockOnlyMovesTheCursorOn) {
  const QZ::Chain<TypeParam> graph(3);
  const std::vector<TypeParam> states{0, 2, 2};
  Signs<TypeParam> f({1, 1, 1, 1});
  std::fill_n(f.gradient, 4, TypeParam(1));
  QZ::IntGD<TypeParam> optimizer(graph, states.data(), 4);
  QZ::OptState<TypeParam, TypeParam> state{};
  optimizer.update(&f, state);
  EXPECT_EQ(f.point, (std::vector<TypeParam>{1, 1, 1, 1}));
  EXPECT_EQ(optimizer.cursor, 1);
  EXPECT_EQ(optimizer.dim_seen, 4);
  optimizer.update(&f, state);
  EXPECT_EQ(f.point, (std::vector<TypeParam>{2, 2, 2, 2}));
  EXPECT_EQ(optimizer.cursor, 0);
}

TYPED_TEST(IntGD, AGraphWithoutEdgesLeavesNothingToDo) {
  const QZ::Chain<TypeParam> graph(1);
  const std::vector<TypeParam> states{2};
  Signs<TypeParam> f({});
  QZ::IntGD<TypeParam> optimizer(graph, states.data(), 4);
  QZ::OptState<TypeParam, TypeParam> state{};
  optimizer.update(&f, state);
  EXPECT_EQ(optimizer.cursor, 0);
}

}  // namespace
