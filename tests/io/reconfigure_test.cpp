#include <gtest/gtest.h>

#include <functional>
#include <numeric>
#include <set>

#include "QZ/graph/complete.h"
#include "support/graph_contents.h"
#include "support/pair_types.h"
#include "support/small_model.h"

namespace {

using namespace qz_test;

template <class pair_t>
class Reconfigure : public ::testing::Test {
 public:
  using I = typename pair_t::idx_t;
  using V = typename pair_t::val_t;

  /// A complete graph on vertices with 2, 3, 1 and 2 states.
  OwnedModel<I, V> model =
      numbered_model<I, V>(new QZ::Kn<I>(4, nullptr), std::vector<int>{2, 3, 1, 2});
  /// The path 3 - 0 - 2 - 1.
  std::vector<I> path = {0, 0, 1, 1,  //
                         0, 0, 1, 0,  //
                         1, 1, 0, 0,  //
                         1, 0, 0, 0};

  /// The number of a pair in the complete graph.
  static I pair_number(const I& a, const I& b) {
    static const std::vector<std::pair<int, int>> pairs{{2, 3}, {1, 3}, {1, 2},
                                                        {0, 3}, {0, 2}, {0, 1}};
    for (std::size_t e = 0; e < pairs.size(); ++e) {
      if (pairs[e] == std::pair<int, int>(a, b)) return static_cast<I>(e);
    }
    return 0;
  }
};
TYPED_TEST_SUITE(Reconfigure, AllPairs);

TYPED_TEST(Reconfigure, NumbersEdgesByTheScanOfTheMatrix) {
  this->model->reconfigure(this->path.data(), TestFixture::pair_number, nullptr);
  EXPECT_EQ(edges_of(*this->model->graph), (EdgeList{{0, 2}, {0, 3}, {1, 2}}));
}

TYPED_TEST(Reconfigure, CopiesTheBlocksOfItsPairs) {
  using V = typename TestFixture::V;
  auto& model = *this->model;
  const auto old_stats = copy_of(model.stats, model.statsLength);
  const auto old_offsets = copy_of(model.offsets, model.numOffsets);
  model.reconfigure(this->path.data(), TestFixture::pair_number, nullptr);
  EXPECT_EQ(model.numOffsets, 8);
  EXPECT_EQ(model.dim, 2 * 1 + 2 * 2 + 3 * 1);
  EXPECT_EQ(model.statsLength, 8 + 9);
  EXPECT_EQ(model.offsets[4], old_offsets[4]);
  std::vector<V> expected(old_stats.begin(), old_stats.begin() + 8);
  for (const int pair : {4, 3, 2}) {
    expected.insert(expected.end(), old_stats.begin() + old_offsets[4 + pair],
                    old_stats.begin() + old_offsets[4 + pair + 1]);
  }
  EXPECT_EQ(copy_of(model.stats, model.statsLength), expected);
  EXPECT_EQ(copy_of(model.weights, model.dim), std::vector<V>(9, 0));
  EXPECT_NO_THROW(model.require_matching_arrays());
}

TYPED_TEST(Reconfigure, AsksTheStatFunctionForTheRankedPair) {
  using I = typename TestFixture::I;
  using V = typename TestFixture::V;
  auto& model = *this->model;
  std::vector<std::pair<std::set<I>, I>> asked;
  // Answers with blocks of 100 plus the number of the call.
  const auto count = [&](unsigned long handle, const I& size) {
    asked.emplace_back(**reinterpret_cast<std::set<I>**>(handle), size);
    V* block = new V[size];
    std::fill_n(block, size, static_cast<V>(100 + asked.size()));
    return block;
  };
  const auto old_stats = copy_of(model.stats, 8);
  model.reconfigure(this->path.data(), TestFixture::pair_number, count);
  EXPECT_EQ(asked, (std::vector<std::pair<std::set<I>, I>>{{{0, 2}, 2}, {{0, 3}, 4}, {{1, 2}, 3}}));
  std::vector<V> expected = old_stats;
  expected.insert(expected.end(), 2, 101);
  expected.insert(expected.end(), 4, 102);
  expected.insert(expected.end(), 3, 103);
  EXPECT_EQ(copy_of(model.stats, model.statsLength), expected);
}

TYPED_TEST(Reconfigure, WithoutEdgesLeavesTheVertexBlocks) {
  using I = typename TestFixture::I;
  std::vector<I> nothing(16, 0);
  this->model->reconfigure(nothing.data(), nullptr, nullptr);
  EXPECT_EQ(this->model->dim, 0);
  EXPECT_EQ(this->model->statsLength, 8);
  EXPECT_EQ(this->model->numOffsets, 5);
  EXPECT_EQ(this->model->graph->edges(), 0);
}

TYPED_TEST(Reconfigure, EmptyEdgeIndexIsABadFunctionCallAndChangesNothing) {
  auto& model = *this->model;
  const auto* graph = model.graph;
  const auto stats = copy_of(model.stats, model.statsLength);
  EXPECT_THROW(model.reconfigure(this->path.data(), nullptr, nullptr), std::bad_function_call);
  EXPECT_EQ(model.graph, graph);
  EXPECT_EQ(copy_of(model.stats, model.statsLength), stats);
  EXPECT_NO_THROW(model.require_matching_arrays());
}

TYPED_TEST(Reconfigure, RefusesAPairWithoutStatistics) {
  using I = typename TestFixture::I;
  using V = typename TestFixture::V;
  const auto beyond = [](const I&, const I&) { return I(6); };
  const auto count = [](unsigned long, const I& size) { return new V[size](); };
  EXPECT_THROW(this->model->reconfigure(this->path.data(), beyond, nullptr), std::logic_error);
  EXPECT_THROW(this->model->reconfigure(this->path.data(), beyond, count), std::logic_error);
}

}  // namespace
