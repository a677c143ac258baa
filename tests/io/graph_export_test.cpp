#include <gtest/gtest.h>

#include <cmath>
#include <sstream>

#include "support/pair_types.h"
#include "support/small_model.h"
#include "support/temp_file.h"

namespace {

using namespace qz_test;

template <class pair_t>
class GraphExport : public ::testing::Test {
 public:
  using I = typename pair_t::idx_t;
  using V = typename pair_t::val_t;
};
TYPED_TEST_SUITE(GraphExport, AllPairs);

TYPED_TEST(GraphExport, AdjacencyIsAMatrixOfDigitsOrRawBytes) {
  using I = typename TestFixture::I;
  const auto model =
      numbered_model<I, typename TestFixture::V>(listed_graph<I>(3, {{0, 2}, {2, 1}}), {2, 2, 2});
  TempFile file;
  model->storeADJ(file.path());
  const std::string digits = "0,0,1\n0,0,1\n1,1,0\n";
  const std::string bytes("\0,\0,\1\n\0,\0,\1\n\1,\1,\0\n", 18);
  EXPECT_EQ(file.read(), sizeof(I) == 1 ? bytes : digits);
}

TYPED_TEST(GraphExport, GraphWithoutEdgesGivesZeroesAndAClosingHash) {
  using I = typename TestFixture::I;
  const auto model = numbered_model<I, typename TestFixture::V>(listed_graph<I>(2, {}), {2, 2});
  TempFile adjacency;
  model->storeADJ(adjacency.path());
  EXPECT_EQ(adjacency.read(), sizeof(I) == 1 ? std::string("\0,\0\n\0,\0\n", 8) : "0,0\n0,0\n");
  TempFile tgf;
  model->storeTGF(tgf.path());
  EXPECT_EQ(tgf.read(), "1 v0\n2 v1\n#\n");
  TempFile fg;
  model->storeFG(fg.path());
  EXPECT_EQ(fg.read(), "0\n\n");
}

TYPED_TEST(GraphExport, TrivialGraphFormatCountsFromOne) {
  using I = typename TestFixture::I;
  const auto model =
      numbered_model<I, typename TestFixture::V>(listed_graph<I>(3, {{0, 2}, {2, 1}}), {2, 2, 2});
  TempFile file;
  model->storeTGF(file.path());
  EXPECT_EQ(file.read(), "1 v0\n2 v1\n3 v2\n#\n1 3\n3 2\n");
}

TYPED_TEST(GraphExport, FactorGraphHasItsFirstVariableFastest) {
  using I = typename TestFixture::I;
  using V = typename TestFixture::V;
  const auto model = numbered_model<I, V>(listed_graph<I>(3, {{2, 0}, {0, 1}}), {2, 2, 3});
  TempFile file;
  model->storeFG(file.path());
  std::ostringstream expected;
  const auto e = [](int weight) { return std::exp(static_cast<V>(weight)); };
  expected << "2\n\n"
           << "2\n2 0\n3 2\n6\n"
           << "0 " << e(0) << "\n1 " << e(2) << "\n2 " << e(4) << "\n3 " << e(1) << "\n4 " << e(3)
           << "\n5 " << e(5) << "\n\n"
           << "2\n0 1\n2 2\n4\n"
           << "0 " << e(6) << "\n1 " << e(8) << "\n2 " << e(7) << "\n3 " << e(9) << "\n\n";
  EXPECT_EQ(file.read(), expected.str());
}

TEST(FactorGraph, PrintsNumbersInTheDefaultFormat) {
  const auto model = numbered_model<u32, double>(listed_graph<u32>(2, {{0, 1}}), {1, 3});
  model->weights[0] = -20;
  model->weights[1] = 0.5;
  model->weights[2] = 30;
  TempFile file;
  model->storeFG(file.path());
  EXPECT_EQ(file.read(), "1\n\n2\n0 1\n1 3\n3\n0 2.06115e-09\n1 1.64872\n2 1.06865e+13\n\n");
}

TYPED_TEST(GraphExport, FactorGraphOfZeroWeightsHoldsOnes) {
  using I = typename TestFixture::I;
  const auto model =
      numbered_model<I, typename TestFixture::V>(listed_graph<I>(2, {{0, 1}}), {2, 1});
  model->weights[1] = 0;
  TempFile file;
  model->storeFG(file.path());
  EXPECT_EQ(file.read(), "1\n\n2\n0 1\n2 1\n2\n0 1\n1 1\n\n");
}

TYPED_TEST(GraphExport, TruncatesWhatWasThere) {
  using I = typename TestFixture::I;
  const auto model = numbered_model<I, typename TestFixture::V>(listed_graph<I>(1, {}), {2});
  TempFile file("", "something much longer than the export");
  model->storeTGF(file.path());
  EXPECT_EQ(file.read(), "1 v0\n#\n");
}

TEST(Export, ReportsAPlaceThatCannotBeWritten) {
  const auto model = numbered_model<u32, double>(listed_graph<u32>(1, {}), {2});
  EXPECT_THROW(model->storeADJ("/nowhere/at/all"), std::logic_error);
  EXPECT_THROW(model->storeTGF("/nowhere/at/all"), std::logic_error);
  EXPECT_THROW(model->storeFG("/nowhere/at/all"), std::logic_error);
}

TEST(Export, RefusesAContainerWithoutGraph) {
  TempFile file;
  const QZ::IO<u32, double> empty;
  EXPECT_THROW(empty.storeADJ(file.path()), std::logic_error);
  EXPECT_THROW(empty.storeTGF(file.path()), std::logic_error);
  EXPECT_THROW(empty.storeFG(file.path()), std::logic_error);
}

}  // namespace
