/// LDX DPT.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "QZ/data/categorical_data.h"
#include "QZ/graph/layered.h"
#include "QZ/machine/vm.h"
#include "machine/selected_pair.h"
#include "support/pair_types.h"
#include "support/small_model.h"
#include "support/statements.h"
#include "support/temp_file.h"

namespace {

using QZ::CategoricalData;
using QZ::vm_t;
using enum QZ::VarType;
using qz_test::execute;
using qz_test::message_of;
using qz_test::select_pair;
using qz_test::TempFile;

using Layers = std::vector<unsigned long>;

const char* const table_text = "a,b\n-\nx,u\ny,u\n?,v\n";

CategoricalData& table_of(const vm_t& vm) { return *vm.require_object<CategoricalData>(DPT); }

std::vector<unsigned long> cells_of(const CategoricalData& table) {
  std::vector<unsigned long> cells;
  for (unsigned long row = 0; row < table.N; ++row) {
    for (unsigned long col = 0; col < table.n + table.H; ++col)
      cells.push_back(table.get(col, row));
  }
  return cells;
}
template <class pair_t>
class LoadData : public testing::Test {
 protected:
  using idx_t = typename pair_t::idx_t;
  using val_t = typename pair_t::val_t;
  LoadData() { select_pair<idx_t, val_t>(vm); }
  /// A model over two vertices with 2 and 3 states, loaded into the machine.
  void load_model(bool named) {
    model =
        qz_test::numbered_model<idx_t, val_t>(qz_test::listed_graph<idx_t>(2, {{0, 1}}), {2, 3});
    if (!named) {
      for (auto* list : *model->categoryLists) delete list;
      model->categoryLists->clear();
    }
    vm.set(MPT, static_cast<void*>(model.get()));
  }
  ~LoadData() override {
    if (model != nullptr) vm.set(MPT, 0ul);
  }
  qz_test::OwnedModel<idx_t, val_t> model;
  vm_t vm;
};
TYPED_TEST_SUITE(LoadData, qz_test::AllPairs);

TYPED_TEST(LoadData, ReadsTheNamedFile) {
  const TempFile file(".csv", table_text);
  execute(this->vm, "DFN '" + file.path() + "';");
  execute(this->vm, "LDX DPT;");
  EXPECT_EQ(this->vm.get(NXX), 3u);
  EXPECT_EQ(this->vm.get(RES), std::string(table_text).size());
  EXPECT_EQ(cells_of(table_of(this->vm)),
            (std::vector<unsigned long>{0, 0, 1, 0, CategoricalData::MIS_VAL, 1}));
  EXPECT_EQ(table_of(this->vm).columnHeaders, (std::vector<std::string>{"a", "b"}));
  // The hidden table exists even without hidden columns.
  EXPECT_NE(table_of(this->vm).hidden, nullptr);
}

TYPED_TEST(LoadData, ReadsTheCallersText) {
  std::string text = table_text;
  this->vm.set(EDP, static_cast<void*>(&text));
  execute(this->vm, "LDX DPT;");
  EXPECT_EQ(this->vm.get(NXX), 3u);
  EXPECT_EQ(this->vm.get(RES), text.size());
  EXPECT_EQ(cells_of(table_of(this->vm)).size(), 6u);
}

TYPED_TEST(LoadData, TakesTheNamesOfALoadedModel) {
  this->load_model(true);
  std::string text = "h,h\n-\nb,c\nz,a\n";
  this->vm.set(EDP, static_cast<void*>(&text));
  execute(this->vm, "LDX DPT;");
  EXPECT_EQ(cells_of(table_of(this->vm)),
            (std::vector<unsigned long>{1, 2, CategoricalData::MIS_VAL, 0}));
  EXPECT_EQ(table_of(this->vm).categories(0), 2u);
  EXPECT_EQ(table_of(this->vm).categories(1), 3u);
}

TYPED_TEST(LoadData, MakesUpNamesForAModelWithoutNames) {
  this->load_model(false);
  std::string text = "h,h\n-\nY1,Y2\nY2,Y0\n";
  this->vm.set(EDP, static_cast<void*>(&text));
  execute(this->vm, "LDX DPT;");
  EXPECT_EQ(cells_of(table_of(this->vm)),
            (std::vector<unsigned long>{1, 2, CategoricalData::MIS_VAL, 0}));
}

// Binary files and blocks of cells.

std::string binary_file(unsigned long rows, unsigned long columns, unsigned long categories,
                        const std::string& cells) {
  std::string content("qzbin$\0#", 8);
  for (const unsigned long count : {rows, columns, categories}) {
    content.append(reinterpret_cast<const char*>(&count), sizeof count);
  }
  return content + cells;
}

TYPED_TEST(LoadData, ReadsABinaryFileWhateverItsName) {
  const TempFile file(".csv", binary_file(2, 2, 3, std::string("\2\0\1\xff", 4)));
  execute(this->vm, "MIS '*';");
  execute(this->vm, "DFN '" + file.path() + "';");
  execute(this->vm, "LDX DPT;");
  EXPECT_EQ(this->vm.get(NXX), 2u);
  EXPECT_EQ(this->vm.get(RES), 36u);
  EXPECT_EQ(cells_of(table_of(this->vm)), (std::vector<unsigned long>{2, 0, 1, 255}));
  EXPECT_EQ(table_of(this->vm).categories(1), 3u);
  EXPECT_EQ(table_of(this->vm).missingName, "?");
  EXPECT_NE(table_of(this->vm).hidden, nullptr);
}

TYPED_TEST(LoadData, BorrowsTheCallersBlock) {
  std::vector<unsigned short> cells = {0, 2, 1, 65535, 0, 1};
  this->vm.set(EDP, static_cast<void*>(cells.data()));
  this->vm.set(NXX, 3ul);
  this->vm.set(GPX, 2 * cells.size());
  this->vm.set(RES, 0.5);
  execute(this->vm, "LDX DPT;");
  EXPECT_EQ(cells_of(table_of(this->vm)), (std::vector<unsigned long>{0, 2, 1, 65535, 0, 1}));
  EXPECT_EQ(table_of(this->vm).categories(0), 2u);
  EXPECT_EQ(table_of(this->vm).categories(1), 3u);
  cells[0] = 1;
  EXPECT_EQ(table_of(this->vm).get(0, 0), 1u);
  // No size is reported and no hidden table made.
  EXPECT_EQ(this->vm.getR(RES), 0.5);
  EXPECT_EQ(table_of(this->vm).hidden, nullptr);
  execute(this->vm, "DEL DPT;");
  EXPECT_EQ(cells[1], 2u);
}

TYPED_TEST(LoadData, GivesABlockTheNamesOfALoadedModel) {
  this->load_model(true);
  std::vector<unsigned short> cells = {0, 0};
  this->vm.set(EDP, static_cast<void*>(cells.data()));
  this->vm.set(NXX, 1ul);
  this->vm.set(GPX, 5ul);
  execute(this->vm, "LDX DPT;");
  EXPECT_EQ(table_of(this->vm).n, 2u);
  EXPECT_EQ(table_of(this->vm).getString(1, 0), "a");
  EXPECT_EQ(table_of(this->vm).categories(1), 3u);
}

TEST(LoadDataRegisters, AnAlmostBinaryFileIsText) {
  vm_t vm;
  const TempFile file(".bin", std::string("qzbin$\0!", 8) + "\n-\nx\n");
  execute(vm, "DFN '" + file.path() + "';");
  execute(vm, "LDX DPT;");
  EXPECT_EQ(table_of(vm).columnHeaders.at(0), std::string("qzbin$\0!", 8));
  EXPECT_EQ(vm.get(NXX), 1u);
}

TEST(LoadDataRegisters, ABlockShorterThanItsRowsHasNoColumns) {
  vm_t vm;
  unsigned short cell = 1;
  vm.set(EDP, static_cast<void*>(&cell));
  vm.set(GPX, 2ul);
  vm.set(NXX, 2ul);
  execute(vm, "LDX DPT;");
  EXPECT_EQ(table_of(vm).n, 0u);
  EXPECT_EQ(vm.get(NXX), 2u);
}

TEST(LoadDataRegisters, HeaderMissingMarkerAndSharedTable) {
  vm_t vm;
  std::string text = "-\nb,a\na,*x\n";
  vm.set(EDP, static_cast<void*>(&text));
  execute(vm, "HED false;");
  execute(vm, "MIS '*';");
  execute(vm, "YYC true;");
  execute(vm, "LDX DPT;");
  EXPECT_EQ(cells_of(table_of(vm)),
            (std::vector<unsigned long>{0, 1, 1, CategoricalData::MIS_VAL}));
  EXPECT_EQ(table_of(vm).categoryMaps.size(), 1u);
}

TEST(LoadDataRegisters, TheSizeInResIsAWord) {
  vm_t vm;
  std::string text = table_text;
  vm.set(EDP, static_cast<void*>(&text));
  execute(vm, "LDX DPT;");
  EXPECT_LT(vm.getR(RES), 1e-300);
}

TEST(LoadDataRegisters, ASecondLoadForgetsTheFirstTable) {
  vm_t vm;
  std::string text = table_text;
  vm.set(EDP, static_cast<void*>(&text));
  execute(vm, "LDX DPT;");
  const std::unique_ptr<CategoricalData> first(&table_of(vm));
  vm.set(NXX, 0ul);
  execute(vm, "LDX DPT;");
  EXPECT_NE(&table_of(vm), first.get());
  EXPECT_EQ(first->N, 3u);
}

TEST(LoadDataRegisters, AFailureLeavesTheOldTable) {
  vm_t vm;
  std::string text = table_text;
  vm.set(EDP, static_cast<void*>(&text));
  execute(vm, "LDX DPT;");
  const auto before = vm.word(DPT);
  text = "a,b\n-\nx,\n";
  vm.set(NXX, 0ul);
  EXPECT_THROW(execute(vm, "LDX DPT;"), std::out_of_range);
  EXPECT_EQ(vm.word(DPT), before);
}

TEST(LoadDataRegisters, ATableWithoutRowsIsLoaded) {
  vm_t vm;
  std::string text = "a,b\n";
  vm.set(EDP, static_cast<void*>(&text));
  execute(vm, "LDX DPT;");
  EXPECT_EQ(vm.get(NXX), 0u);
  EXPECT_EQ(table_of(vm).N, 0u);
}

TEST(LoadDataRegisters, ADirectoryIsNoDataFile) {
  vm_t vm;
  execute(vm, "DFN '/';");
  EXPECT_EQ(message_of([&] { execute(vm, "LDX DPT;"); }), "cannot read data");
  EXPECT_EQ(vm.word(DPT), 0u);
}

class LayeredModel : public testing::Test {
 protected:
  LayeredModel()
      : model(qz_test::numbered_model<unsigned int, float>(
            new QZ::RBMGraph<unsigned int>(Layers{2, 3, 1, 1}), {2, 2, 4, 4, 4, 4, 2})) {
    select_pair<unsigned int, float>(vm);
    vm.set(MPT, static_cast<void*>(model.get()));
    vm.set(LPT, static_cast<void*>(new Layers{2, 3, 1, 1}));
    vm.set(EDP, static_cast<void*>(&text));
  }
  ~LayeredModel() override { vm.set(MPT, 0ul); }
  std::string text = "h,h\n-\na,b\n";
  qz_test::OwnedModel<unsigned int, float> model;
  vm_t vm;
};

TEST_F(LayeredModel, HidesItsInnerLayers) {
  for (const char* kind : {"GRA RBM;", "GRA DBT;"}) {
    execute(vm, kind);
    vm.set(NXX, 0ul);
    execute(vm, "LDX DPT;");
    EXPECT_EQ(table_of(vm).H, 4u);
    EXPECT_EQ(table_of(vm).get(2, 0), CategoricalData::MIS_VAL);
    execute(vm, "DEL DPT;");
  }
}

TEST_F(LayeredModel, HidesNothingOfAnotherKind) {
  execute(vm, "GRA CHAIN;");
  execute(vm, "LDX DPT;");
  EXPECT_EQ(table_of(vm).H, 0u);
}

TEST_F(LayeredModel, NeedsItsLayers) {
  execute(vm, "GRA RBM;");
  execute(vm, "DEL LPT;");
  EXPECT_EQ(message_of([&] { execute(vm, "LDX DPT;"); }), "no object loaded LPT");
}

TEST_F(LayeredModel, RefusesLayersBeyondItsVertices) {
  execute(vm, "GRA RBM;");
  execute(vm, "DEL LPT;");
  vm.set(LPT, static_cast<void*>(new Layers{70, 3, 1}));
  EXPECT_EQ(message_of([&] { execute(vm, "LDX DPT;"); }), "the layers do not fit the model");
}

}  // namespace
