#include <gtest/gtest.h>

#include <cstddef>

#include "support/pair_types.h"
#include "support/small_model.h"

namespace {

using namespace qz_test;

template <class pair_t>
class ModelContainer : public ::testing::Test {
 public:
  using I = typename pair_t::idx_t;
  using V = typename pair_t::val_t;
};
TYPED_TEST_SUITE(ModelContainer, AllPairs);

TYPED_TEST(ModelContainer, IsEmptyWhenNew) {
  QZ::IO<typename TestFixture::I, typename TestFixture::V> model;
  EXPECT_EQ(model.idxCode, static_cast<int>(QZ::idx_code<typename TestFixture::I>()));
  EXPECT_EQ(model.valCode, static_cast<int>(QZ::val_code<typename TestFixture::V>()));
  EXPECT_EQ(model.fromFile, 0);
  EXPECT_EQ(model.reservedByte, 0);
  EXPECT_EQ(model.graph, nullptr);
  EXPECT_EQ(model.weights, nullptr);
  EXPECT_EQ(model.dim, 0);
  EXPECT_EQ(model.reservedWord, 0);
  EXPECT_TRUE(model.layerText.empty());
  EXPECT_TRUE(model.reservedText.empty());
}

// Other programs read the members at their places.
TYPED_TEST(ModelContainer, KeepsTheOrderOfItsMembers) {
  using I = typename TestFixture::I;
  QZ::IO<I, typename TestFixture::V> model;
  const auto* base = reinterpret_cast<const unsigned char*>(&model);
  const auto place = [&](const auto& member) {
    return reinterpret_cast<const unsigned char*>(&member) - base;
  };
  EXPECT_EQ(place(model.idxCode), 0);
  EXPECT_EQ(place(model.valCode), 1);
  EXPECT_EQ(place(model.fromFile), 2);
  EXPECT_EQ(place(model.reservedByte), 3);
  EXPECT_EQ(place(model.graph), 8);
  EXPECT_EQ(place(model.baseGraph), 16);
  EXPECT_EQ(place(model.weights), 24);
  EXPECT_EQ(place(model.stats), 32);
  EXPECT_EQ(place(model.states), 40);
  EXPECT_EQ(place(model.offsets), 48);
  EXPECT_EQ(place(model.categoryLists), 56);
  EXPECT_EQ(place(model.vertexNames), 64);
  const long width = sizeof(I);
  EXPECT_EQ(place(model.dim), 72);
  EXPECT_EQ(place(model.numOffsets), 72 + width);
  EXPECT_EQ(place(model.statsLength), 72 + 2 * width);
  EXPECT_EQ(place(model.graphType), 72 + 3 * width);
  EXPECT_EQ(place(model.slices), 72 + 4 * width);
  EXPECT_EQ(place(model.reparam), 72 + 5 * width);
  EXPECT_EQ(place(model.reservedWord), 72 + 6 * width);
  EXPECT_EQ(place(model.samples), 72 + 7 * width);
  EXPECT_EQ(place(model.layerText), 72 + 8 * width);
  EXPECT_EQ(place(model.reservedText), 72 + 8 * width + 32);
}

TYPED_TEST(ModelContainer, RefusesArraysOfAnotherGraph) {
  using I = typename TestFixture::I;
  auto model =
      numbered_model<I, typename TestFixture::V>(listed_graph<I>(3, {{0, 1}, {1, 2}}), {2, 2, 3});
  EXPECT_NO_THROW(model->require_matching_arrays());
  auto* own = model->graph;
  for (auto* other : {listed_graph<I>(3, {{0, 1}}), listed_graph<I>(3, {{0, 1}, {0, 2}, {1, 2}}),
                      listed_graph<I>(3, {{0, 1}, {2, 2}}), listed_graph<I>(4, {{0, 1}})}) {
    model->graph = other;
    EXPECT_THROW(model->require_matching_arrays(), std::logic_error);
    delete other;
  }
  model->graph = own;
}

TEST(EmptyModelContainer, NamesAreEmptyWhereItHasNone) {
  QZ::IO<unsigned, double> model;
  EXPECT_EQ(model.vertex_name(0), "");
  EXPECT_EQ(model.state_name(0, 0), "");
  EXPECT_THROW(model.require_matching_arrays(), std::logic_error);
}

}  // namespace
