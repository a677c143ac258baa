#include "QZ/graph/adjacency.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <stdexcept>

#include "QZ/graph/graph.h"
#include "support/graph_contents.h"
#include "support/index_types.h"
#include "support/temp_file.h"

namespace {

using qz_test::EdgeList;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;
using ::testing::ThrowsMessage;

template <class idx_t>
struct Matrix {
  std::vector<unsigned long> cells;
  idx_t n = 0;
  idx_t m = 0;
};

template <class idx_t, class Source>
Matrix<idx_t> read(Source&& source, char separator) {
  idx_t* A = nullptr;
  Matrix<idx_t> result;
  QZ::adjFromCSV(source, A, result.n, result.m, separator);
  const std::unique_ptr<idx_t, decltype(&std::free)> owner(A, &std::free);
  result.cells.assign(A, A + result.n * result.n);
  return result;
}

template <class idx_t>
Matrix<idx_t> read_text(const std::string& text, char separator = ',') {
  return read<idx_t>(std::istringstream(text), separator);
}

template <class idx_t>
class Adjacency : public ::testing::Test {};
TYPED_TEST_SUITE(Adjacency, qz_test::IndexTypes);

TYPED_TEST(Adjacency, UpperTriangleMakesASymmetricMatrix) {
  // Cell (1, 0) and the diagonal do not count, and any number but 0 is an edge.
  const auto matrix = read_text<TypeParam>("1,0,5\n9,1,1\n0,0,1\n");
  EXPECT_EQ(matrix.n, 3);
  EXPECT_EQ(matrix.m, 2);
  EXPECT_THAT(matrix.cells, ElementsAre(0, 0, 1, 0, 0, 1, 1, 1, 0));
}

TYPED_TEST(Adjacency, FileBecomesAGraph) {
  const qz_test::TempFile file(".csv", "0;1;0\n\n0;0;1\n0;0;0");
  TypeParam* A = nullptr;
  TypeParam n = 0, m = 0;
  QZ::adjFromCSV(file.path(), A, n, m, ';');
  const QZ::Graph<TypeParam> graph(A, n, m);
  std::free(A);
  EXPECT_EQ(qz_test::edges_of(graph), (EdgeList{{0, 1}, {1, 2}}));
}

TYPED_TEST(Adjacency, LinesDifferInBytesNotInCells) {
  const auto wrong = ThrowsMessage<std::out_of_range>("wrong adjancency format");
  EXPECT_THAT([] { read_text<TypeParam>("0,10\n0,0\n"); }, wrong);
  EXPECT_THAT([] { read_text<TypeParam>("0,1\n0,0\n0,10\n"); }, wrong);
  // Five bytes each, with three cells and with two.
  EXPECT_EQ(read_text<TypeParam>("0,1,0\n0,000\n0,0,0\n").m, 1);
}

TYPED_TEST(Adjacency, CellsPastTheFirstRowCountOnlyIfZeroOrBelowTheDiagonal) {
  EXPECT_EQ(read_text<TypeParam>("0,100\n0,0,0\n").m, 1);
  EXPECT_THROW(read_text<TypeParam>("0,100\n0,0,1\n"), std::logic_error);
}

TYPED_TEST(Adjacency, MoreOrFewerRowsThanColumnsAreTaken) {
  EXPECT_EQ(read_text<TypeParam>("0,1\n0,0\n1,1\n1,1\n").m, 1);
  const auto matrix = read_text<TypeParam>("0,1,1\n");
  EXPECT_EQ(matrix.n, 3);
  EXPECT_EQ(matrix.m, 2);
}

TYPED_TEST(Adjacency, EmptyLinesAreSkippedAndAnEmptyTextIsEmpty) {
  EXPECT_EQ(read_text<TypeParam>("\n\n0,1\n\n0,0\n\n").m, 1);
  EXPECT_EQ(read_text<TypeParam>("").n, 0);
}

TYPED_TEST(Adjacency, ASeparatorAtTheEndOpensNoCell) {
  EXPECT_EQ(read_text<TypeParam>("0,1,\n0,0,\n").n, 2);
}

TYPED_TEST(Adjacency, LinesMayEndInCarriageReturns) {
  EXPECT_EQ(read_text<TypeParam>("0,1\r\n0,0\r\n").m, 1);
}

TYPED_TEST(Adjacency, CellsThatAreNoNumbersAreRefused) {
  EXPECT_THROW(read_text<TypeParam>("0,x\n0,0\n"), std::logic_error);
  EXPECT_THROW(read_text<TypeParam>("0,,1\n"), std::logic_error);
  EXPECT_THROW(read_text<TypeParam>("0,99999999999999999999999\n"), std::logic_error);
}

TYPED_TEST(Adjacency, UnreadableFilesAndDirectoriesAreRefused) {
  const auto refused = ThrowsMessage<std::logic_error>("cannot read graph");
  const qz_test::TempFile missing;
  EXPECT_THAT([&] { read<TypeParam>(missing.path(), ','); }, refused);
  const std::string directory = std::filesystem::temp_directory_path().string();
  EXPECT_THAT([&] { read<TypeParam>(directory, ','); }, refused);
}

TEST(Adjacency, TooManyColumnsForTheIndexTypeAreRefused) {
  std::string row = "0";
  for (int c = 1; c < 300; ++c) row += ",0";
  EXPECT_THROW(read_text<unsigned char>(row), std::logic_error);
  EXPECT_EQ(read_text<unsigned short>(row).n, 300);
}

}  // namespace
