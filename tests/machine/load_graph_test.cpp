/// LDX GPT, LDX MPT, and pairs of types that do not exist.

#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "QZ/data/categorical_data.h"
#include "QZ/graph/chain.h"
#include "QZ/graph/complete.h"
#include "QZ/graph/grid.h"
#include "QZ/graph/layered.h"
#include "QZ/graph/star.h"
#include "QZ/io/model_container.h"
#include "QZ/machine/vm.h"
#include "machine/selected_pair.h"
#include "support/graph_contents.h"
#include "support/pair_types.h"
#include "support/small_model.h"
#include "support/statements.h"
#include "support/temp_file.h"

namespace {

using QZ::vm_t;
using enum QZ::VarType;
using qz_test::EdgeList;
using qz_test::edges_of;
using qz_test::execute;
using qz_test::message_of;
using qz_test::select_pair;
using qz_test::TempFile;

using Layers = std::vector<unsigned long>;

template <class pair_t>
class LoadGraph : public testing::Test {
 protected:
  using idx_t = typename pair_t::idx_t;
  using val_t = typename pair_t::val_t;
  LoadGraph() { select_pair<idx_t, val_t>(vm); }
  QZ::AbstractGraph<idx_t>& load(const char* kind) {
    execute(vm, "DEL GPT;");
    execute(vm, std::string("GRA ") + kind + ";");
    execute(vm, "LDX GPT;");
    return *vm.template require_object<QZ::AbstractGraph<idx_t>>(GPT);
  }
  void expect_like(const QZ::AbstractGraph<idx_t>& wanted, const char* kind) {
    const auto& made = load(kind);
    EXPECT_EQ(made.vertices(), wanted.vertices()) << kind;
    EXPECT_EQ(edges_of(made), edges_of(wanted)) << kind;
    EXPECT_EQ(made.indexWidth, vm.get(IDX)) << kind;
  }
  vm_t vm;
};
TYPED_TEST_SUITE(LoadGraph, qz_test::AllPairs);

TYPED_TEST(LoadGraph, MakesTheKindsOnTheWrittenVertexCount) {
  using idx_t = typename TypeParam::idx_t;
  this->vm.set(GVX, 11ul);
  this->vm.set(CEN, 4ul);
  for (const char* kind : {"CHAIN", "CLIQUES", "RNDCLIQUES"}) {
    this->expect_like(QZ::Chain<idx_t>(11), kind);
  }
  this->expect_like(QZ::Grid<idx_t>(3), "GRID");
  this->expect_like(QZ::Star<idx_t>(11, 4), "STAR");
  for (const char* kind : {"FULL", "CHOWLIU", "ELEMGM"}) {
    this->expect_like(QZ::Kn<idx_t>(11), kind);
  }
  this->vm.set(LPT, static_cast<void*>(new Layers{2, 3, 1}));
  this->expect_like(QZ::RBMGraph<idx_t>(Layers{2, 3, 1}), "RBM");
}

TYPED_TEST(LoadGraph, ReadsAdjacencyText) {
  const TempFile file(".adj", "0;1;0\n1;0;1\n0;1;0\n");
  execute(this->vm, "GFN '" + file.path() + "';");
  execute(this->vm, "SEP ';';");
  EXPECT_EQ(edges_of(this->load("FILE")), (EdgeList{{0, 1}, {1, 2}}));
}

TYPED_TEST(LoadGraph, BorrowsTheCallersEdges) {
  using idx_t = typename TypeParam::idx_t;
  std::vector<idx_t> edges = {3, 0, 1, 2};
  this->vm.set(EAP, static_cast<void*>(edges.data()));
  this->vm.set(GVX, 4ul);
  this->vm.set(GEX, 2ul);
  const auto& graph = this->load("FILE");
  EXPECT_EQ(graph.vertices(), 4u);
  EXPECT_EQ(edges_of(graph), (EdgeList{{3, 0}, {1, 2}}));
  edges[0] = 2;
  EXPECT_EQ(edges_of(graph)[0].first, 2u);
  execute(this->vm, "DEL GPT;");
  EXPECT_EQ(edges[1], 0u);
}

class LoadGraphRegisters : public testing::Test {
 protected:
  void load_table(std::string text) {
    vm.set(EDP, static_cast<void*>(&text));
    vm.set(NXX, 0ul);
    execute(vm, "LDX DPT;");
    vm.set(EDP, 0ul);
  }
  std::string load_failure() {
    return message_of([&] { execute(vm, "LDX GPT;"); });
  }
  vm_t vm;
};

TEST_F(LoadGraphRegisters, VerticesFollowTheDataPerTimeSlice) {
  load_table("a,b,c,d,e\n-\n1,1,1,1,1\n");
  execute(vm, "GRA CHAIN;");
  execute(vm, "LDX GPT;");
  EXPECT_EQ(vm.get(GVX), 5u);
  execute(vm, "DEL GPT;");
  execute(vm, "TXX 2;");
  execute(vm, "LDX GPT;");
  EXPECT_EQ(vm.get(GVX), 2u);
  execute(vm, "DEL GPT;");
  execute(vm, "TXX 0;");
  execute(vm, "LDX GPT;");
  EXPECT_NE(vm.word(GPT), 0u);
  EXPECT_EQ(vm.get(GVX), 0u);
}

TEST_F(LoadGraphRegisters, HiddenColumnsAreVerticesToo) {
  load_table("a,b\n-\n1,1\n");
  vm.require_object<QZ::CategoricalData>(DPT)->addColumns(3, 2);
  execute(vm, "GRA CHAIN;");
  execute(vm, "LDX GPT;");
  EXPECT_EQ(vm.get(GVX), 5u);
}

TEST_F(LoadGraphRegisters, ATableWithoutRowsDoesNotCount) {
  load_table("a,b\n");
  vm.set(GVX, 4ul);
  execute(vm, "GRA CHAIN;");
  execute(vm, "LDX GPT;");
  EXPECT_EQ(vm.get(GVX), 4u);
}

TEST_F(LoadGraphRegisters, NoDataAndNoVerticesMakeAnEmptyChain) {
  execute(vm, "GRA CHAIN;");
  execute(vm, "LDX GPT;");
  EXPECT_NE(vm.word(GPT), 0u);
  EXPECT_EQ(vm.get(GVX), 0u);
}

TEST_F(LoadGraphRegisters, OtherKindsMakeNoGraph) {
  for (const char* kind : {"OTHER", "JT", "DBT", "ST"}) {
    vm.set(GPT, QZ::placeholder);
    execute(vm, std::string("GRA ") + kind + ";");
    execute(vm, "LDX GPT;");
    EXPECT_EQ(vm.word(GPT), 0u) << kind;
  }
  vm.set(GPT, QZ::placeholder);
  vm.set(GRA, 14ul);
  execute(vm, "LDX GPT;");
  EXPECT_EQ(vm.word(GPT), 0u);
}

TEST_F(LoadGraphRegisters, LayersAreRequired) {
  execute(vm, "GRA RBM;");
  EXPECT_EQ(load_failure(), "RBM requires layer definition");
  EXPECT_THROW(vm.loadGraph(), std::out_of_range);
  vm.set(LPT, static_cast<void*>(new Layers{4}));
  EXPECT_EQ(load_failure(), "RBM requires more than one layer");
  EXPECT_THROW(vm.loadGraph(), std::out_of_range);
  vm.object<Layers>(LPT)->clear();
  EXPECT_EQ(load_failure(), "RBM requires more than one layer");
  vm.set(TXX, 2ul);
  EXPECT_EQ(load_failure(), "Temporal RBM is not supported");
  EXPECT_THROW(vm.loadGraph(), std::out_of_range);
}

TEST_F(LoadGraphRegisters, AFailureLeavesTheOldGraph) {
  vm.set(GVX, 3ul);
  execute(vm, "GRA CHAIN;");
  execute(vm, "LDX GPT;");
  const auto before = vm.word(GPT);
  execute(vm, "GRA RBM;");
  EXPECT_EQ(load_failure(), "RBM requires layer definition");
  EXPECT_EQ(vm.word(GPT), before);
}

TEST_F(LoadGraphRegisters, ProgressGoesToTheCallback) {
  static std::set<std::string> tags;
  tags.clear();
  const QZ::ProgressCallback callback = [](std::size_t, std::size_t, const char* tag) {
    tags.insert(tag);
  };
  vm.set(CBP, reinterpret_cast<void*>(callback));
  vm.set(GVX, 30ul);
  execute(vm, "GRA FULL;");
  execute(vm, "LDX GPT;");
  EXPECT_EQ(tags, (std::set<std::string>{"GRAPH"}));
}

// Graphs for a loaded model.

template <class pair_t>
class GraphOfModel : public testing::Test {
 protected:
  using idx_t = typename pair_t::idx_t;
  using val_t = typename pair_t::val_t;
  GraphOfModel()
      : model(qz_test::numbered_model<idx_t, val_t>(new QZ::Chain<idx_t>(3), {2, 3, 4})) {
    select_pair<idx_t, val_t>(vm);
    vm.set(MPT, static_cast<void*>(model.get()));
  }
  ~GraphOfModel() override { vm.set(MPT, 0ul); }
  qz_test::OwnedModel<idx_t, val_t> model;
  vm_t vm;
};
TYPED_TEST_SUITE(GraphOfModel, qz_test::AllPairs);

TYPED_TEST(GraphOfModel, IsTakenOverWithItsDimension) {
  const std::unique_ptr<QZ::AbstractGraph<typename TypeParam::idx_t>> old(this->model->graph);
  this->vm.set(GVX, 3ul);
  execute(this->vm, "GRA FULL;");
  execute(this->vm, "LDX GPT;");
  EXPECT_EQ(reinterpret_cast<unsigned long>(this->model->graph), this->vm.word(GPT));
  EXPECT_EQ(this->model->graphType, 5u);
  EXPECT_EQ(this->model->dim, 2u * 3 + 2 * 4 + 3 * 4);
  // The weights have grown with it.
  for (unsigned i = 0; i < 26; ++i) EXPECT_EQ(this->model->weights[i], i < 18 ? i : 0) << i;
  // The container of the fixture releases the graph.
  this->vm.set(GPT, 0ul);
}

TYPED_TEST(GraphOfModel, MustBeAGraphThatCanBeLoaded) {
  execute(this->vm, "GRA JT;");
  EXPECT_EQ(message_of([&] { execute(this->vm, "LDX GPT;"); }),
            "a graph of this kind cannot be loaded into a model");
  EXPECT_EQ(this->vm.word(GPT), 0u);
  EXPECT_EQ(this->model->dim, 2u * 3 + 3 * 4);
}

TYPED_TEST(GraphOfModel, MustNotHaveMoreVertices) {
  this->vm.set(GVX, 4ul);
  execute(this->vm, "GRA CHAIN;");
  EXPECT_EQ(message_of([&] { execute(this->vm, "LDX GPT;"); }),
            "the graph has more vertices than the model");
}

TYPED_TEST(GraphOfModel, AndItsModelGoThroughAFile) {
  using idx_t = typename TypeParam::idx_t;
  using val_t = typename TypeParam::val_t;
  const TempFile file(".model");
  this->model->samples = 21;
  this->model->graphType = static_cast<idx_t>(QZ::GraphType::CHAIN);
  this->model->reparam = 12;
  this->model->layerText = "5,6";
  execute(this->vm, "MFN '" + file.path() + "';");
  execute(this->vm, "STORE MPT;");
  this->vm.set(MPT, 0ul);
  execute(this->vm, "LDX MPT;");
  auto* loaded = this->vm.template require_object<QZ::IO<idx_t, val_t>>(MPT);
  EXPECT_EQ(loaded->fromFile, 1);
  EXPECT_EQ(this->vm.get(NXX), 21u);
  EXPECT_EQ(this->vm.word(GPT), reinterpret_cast<unsigned long>(loaded->graph));
  EXPECT_EQ(this->vm.get(GRA), 1u);
  EXPECT_EQ(this->vm.get(REP), 12u);
  EXPECT_EQ(*this->vm.template require_object<Layers>(LPT), (Layers{5, 6}));
  EXPECT_EQ(this->vm.get(DIM), 18u);
  const qz_test::OwnedModel<idx_t, val_t> owner(loaded);
  this->vm.set(GPT, 0ul);
}

TYPED_TEST(GraphOfModel, IsStoredInThreeForms) {
  const TempFile file(".graph");
  execute(this->vm, "GFN '" + file.path() + "';");
  execute(this->vm, "OVW true;");
  this->vm.set(GPT, static_cast<void*>(this->model->graph));
  execute(this->vm, "FMT TGF;");
  execute(this->vm, "STORE GPT;");
  EXPECT_EQ(file.read(), "1 v0\n2 v1\n3 v2\n#\n1 2\n2 3\n");
  execute(this->vm, "FMT ADJ;");
  execute(this->vm, "STORE GPT;");
  const std::string adjacency = file.read();
  EXPECT_EQ(adjacency.size(), 18u);
  execute(this->vm, "FMT FG;");
  execute(this->vm, "STORE GPT;");
  EXPECT_EQ(file.read().substr(0, 3), "2\n\n");
  file.write("kept");
  this->vm.set(FMT, 3ul);
  execute(this->vm, "STORE GPT;");
  EXPECT_EQ(file.read(), "kept");
  this->vm.set(GPT, 0ul);
}

// Pairs that do not exist.

TEST(LoadingOtherPairs, DoesNothing) {
  vm_t vm;
  const TempFile file(".any", "a,b\n-\nx,y\n");
  for (const char* name : {"MFN", "GFN", "DFN"}) execute(vm, name + (" '" + file.path() + "';"));
  vm.set(IDX, 1ul);
  vm.set(VAL, 0ul);
  vm.set(GVX, 3ul);
  execute(vm, "GRA CHAIN;");
  for (const char* name : {"DPT", "GPT", "MPT"}) execute(vm, std::string("LDX ") + name + ";");
  for (const auto var : {DPT, GPT, MPT, RES, NXX}) EXPECT_EQ(vm.word(var), 0u);
  vm.set(MPT, QZ::placeholder);
  execute(vm, "OVW 1;");
  execute(vm, "STORE MPT;");
  EXPECT_EQ(file.read(), "a,b\n-\nx,y\n");
}

TEST(LoadingOtherPairs, ExtendedPrecisionIsDouble) {
  vm_t vm;
  vm.set(VAL, 6ul);
  vm.set(GVX, 3ul);
  execute(vm, "GRA CHAIN;");
  execute(vm, "LDX GPT;");
  EXPECT_EQ(vm.get(GEX), 2u);
}

}  // namespace
