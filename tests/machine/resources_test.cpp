#include <gtest/gtest.h>

#include <istream>
#include <string>
#include <vector>

#include "QZ/data/categorical_data.h"
#include "QZ/graph/chain.h"
#include "QZ/io/model_container.h"
#include "QZ/machine/vm.h"
#include "support/pair_types.h"
#include "support/statements.h"

namespace {

using QZ::vm_t;
using enum QZ::VarType;
using qz_test::execute;
using qz_test::message_of;

class WatchedTable : public QZ::CategoricalData {
 public:
  explicit WatchedTable(int& ends) : CategoricalData(false, '?', false, nullptr), ends_(ends) {}
  ~WatchedTable() override { ++ends_; }
  void read(std::istream&) override {}

 private:
  int& ends_;
};

template <class idx_t>
class WatchedGraph : public QZ::Chain<idx_t> {
 public:
  explicit WatchedGraph(int& ends) : QZ::Chain<idx_t>(3), ends_(ends) {}
  ~WatchedGraph() override { ++ends_; }

 private:
  int& ends_;
};

TEST(Resources, AreRequiredByTheirStoredWord) {
  vm_t vm;
  EXPECT_EQ(message_of([&] { vm.requireMPT(); }), "no model loaded");
  EXPECT_EQ(message_of([&] { vm.requireGPT(); }), "no graph loaded");
  EXPECT_EQ(message_of([&] { vm.requireDPT(); }), "no data loaded");
  EXPECT_THROW(vm.requireMPT(), std::logic_error);
  for (const auto var : {MPT, GPT, DPT}) vm.set(var, QZ::placeholder);
  EXPECT_EQ(vm.requireMPT(), QZ::placeholder);
  EXPECT_EQ(vm.requireGPT(), QZ::placeholder);
  EXPECT_EQ(vm.requireDPT(), QZ::placeholder);
}

TEST(Resources, PlaceholdersAreClearedAndNeverReleased) {
  vm_t vm;
  for (const auto var : {MPT, GPT, DPT, PPT}) vm.set(var, QZ::placeholder);
  vm.freeModel();
  vm.freeGraph();
  vm.freeData();
  vm.freeMarginals();
  for (const auto var : {MPT, GPT, DPT, PPT}) EXPECT_EQ(vm.word(var), 0u);
  for (const auto var : {MPT, GPT, DPT, PPT}) vm.set(var, QZ::placeholder);
  EXPECT_EQ(vm.reset(), 1);
  for (const auto var : {MPT, GPT, DPT, PPT}) EXPECT_EQ(vm.word(var), 0u);
}

TEST(Resources, ATableIsDestroyed) {
  int ends = 0;
  vm_t vm;
  vm.set(DPT, static_cast<void*>(new WatchedTable(ends)));
  execute(vm, "DEL DPT;");
  EXPECT_EQ(ends, 1);
  EXPECT_EQ(vm.word(DPT), 0u);
  execute(vm, "DEL DPT;");
  EXPECT_EQ(ends, 1);
}

template <class pair_t>
class Release : public testing::Test {
 protected:
  using idx_t = typename pair_t::idx_t;
  using val_t = typename pair_t::val_t;
  Release() {
    vm.set(IDX, static_cast<unsigned long>(QZ::idx_code<idx_t>()));
    vm.set(VAL, static_cast<unsigned long>(QZ::val_code<val_t>()));
  }
  vm_t vm;
};
TYPED_TEST_SUITE(Release, qz_test::AllPairs);

TYPED_TEST(Release, OfAGraphDestroysIt) {
  int ends = 0;
  this->vm.set(GPT, static_cast<void*>(new WatchedGraph<typename TypeParam::idx_t>(ends)));
  execute(this->vm, "DEL GPT;");
  EXPECT_EQ(ends, 1);
  EXPECT_EQ(this->vm.word(GPT), 0u);
}

TYPED_TEST(Release, OfAModelLeavesItsGraphAndArrays) {
  using idx_t = typename TypeParam::idx_t;
  int ends = 0;
  auto* graph = new WatchedGraph<idx_t>(ends);
  std::vector<idx_t> states = {2, 2, 2};
  auto* model = new QZ::IO<idx_t, typename TypeParam::val_t>;
  model->graph = graph;
  model->states = states.data();
  this->vm.set(MPT, static_cast<void*>(model));
  this->vm.set(GPT, static_cast<void*>(graph));
  execute(this->vm, "DEL MPT;");
  EXPECT_EQ(this->vm.word(MPT), 0u);
  EXPECT_EQ(ends, 0);
  EXPECT_EQ(this->vm.get(GEX), 2u);
  execute(this->vm, "DEL GPT;");
  EXPECT_EQ(ends, 1);
}

TYPED_TEST(Release, SkipsAContainerWhoseReservedByteIsSet) {
  auto* model = new QZ::IO<typename TypeParam::idx_t, typename TypeParam::val_t>;
  model->reservedByte = 1;
  model->layerText = "a text that is long enough to live on the heap";
  this->vm.set(MPT, static_cast<void*>(model));
  this->vm.freeModel();
  EXPECT_EQ(this->vm.word(MPT), 0u);
  EXPECT_EQ(model->layerText.substr(0, 6), "a text");
  delete model;
}

TYPED_TEST(Release, OfMarginalsTakesAnArrayOfAnyWidth) {
  this->vm.set(PPT, static_cast<void*>(new typename TypeParam::val_t[7]));
  execute(this->vm, "DEL PPT;");
  EXPECT_EQ(this->vm.word(PPT), 0u);
}

TEST(Resources, AGraphOfUnknownTypeIsRefused) {
  vm_t vm;
  QZ::Chain<unsigned long> chain(3);
  vm.set(GPT, static_cast<void*>(&chain));
  vm.set(IDX, 4ul);
  EXPECT_EQ(message_of([&] { vm.freeGraph(); }), "unsupported storage type");
  EXPECT_THROW(vm.freeGraph(), std::logic_error);
  EXPECT_NE(vm.word(GPT), 0u);
  vm.set(GPT, 0ul);
  vm.freeGraph();
  vm.set(GPT, QZ::placeholder);
  vm.freeGraph();
  EXPECT_EQ(vm.word(GPT), 0u);
}

TEST(Resources, AResetReleasesTableGraphModelLayersAndMarginals) {
  int ends = 0;
  vm_t vm;
  vm.set(DPT, static_cast<void*>(new WatchedTable(ends)));
  vm.set(GPT, static_cast<void*>(new WatchedGraph<unsigned long>(ends)));
  vm.set(MPT, static_cast<void*>(new QZ::IO<unsigned long, double>));
  vm.set(LPT, static_cast<void*>(new std::vector<unsigned long>{1, 2}));
  vm.set(PPT, static_cast<void*>(new double[3]));
  EXPECT_EQ(vm.reset(), 1);
  EXPECT_EQ(ends, 2);
  for (const auto var : {MPT, GPT, DPT, PPT, LPT}) EXPECT_EQ(vm.word(var), 0u);
}

TEST(Resources, TheDestructorReleasesThem) {
  int ends = 0;
  {
    vm_t vm;
    vm.set(DPT, static_cast<void*>(new WatchedTable(ends)));
    vm.set(GPT, static_cast<void*>(new WatchedGraph<unsigned long>(ends)));
  }
  EXPECT_EQ(ends, 2);
}

TEST(Resources, TheCallersObjectsAreLeftAlone) {
  vm_t vm;
  int object = 5;
  for (const auto var : {EDP, EAP, CBO, CBP, CBU, CPR, EXT0, EXT1}) {
    vm.set(var, static_cast<void*>(&object));
  }
  EXPECT_EQ(vm.reset(), 1);
  EXPECT_EQ(vm.word(EDP), 0u);
  EXPECT_EQ(object, 5);
}

TEST(Resources, ANewWriteForgetsTheOldObject) {
  int ends = 0;
  vm_t vm;
  auto* first = new WatchedTable(ends);
  vm.set(DPT, static_cast<void*>(first));
  vm.set(DPT, static_cast<void*>(new WatchedTable(ends)));
  vm.freeData();
  EXPECT_EQ(ends, 1);
  delete first;
}

// Texts and layers.

TEST(Resources, TextsAreReleasedByDel) {
  vm_t vm;
  for (const auto& [var, name] : {std::pair{MFN, "MFN"},
                                  {GFN, "GFN"},
                                  {DFN, "DFN"},
                                  {GPS, "GPS"},
                                  {LFN, "LFN"},
                                  {NAM, "NAM"}}) {
    execute(vm, std::string(name) + " 'some text';");
    EXPECT_EQ(vm.text(var), "some text");
    execute(vm, std::string("DEL ") + name + ";");
    EXPECT_EQ(vm.word(var), 0u);
    execute(vm, std::string("DEL ") + name + ";");
    EXPECT_EQ(vm.text(var), "");
  }
}

TEST(Resources, TheFurtherFileNameIsForgottenWithoutADataFile) {
  vm_t vm;
  execute(vm, "OTHERFN 'still here, and long enough for the heap';");
  auto* text = vm.object<std::string>(OTHERFN);
  execute(vm, "DEL OTHERFN;");
  EXPECT_EQ(vm.word(OTHERFN), 0u);
  EXPECT_EQ(text->substr(0, 5), "still");
  delete text;
}

TEST(Resources, TheFurtherFileNameIsReleasedBesideADataFile) {
  vm_t vm;
  execute(vm, "DFN 'data';");
  execute(vm, "OTHERFN 'a text that is long enough for the heap';");
  execute(vm, "DEL OTHERFN;");
  EXPECT_EQ(vm.word(OTHERFN), 0u);
  EXPECT_EQ(vm.text(DFN), "data");
}

TEST(Resources, LayersAreReleasedByDel) {
  vm_t vm;
  vm.set(LPT, static_cast<void*>(new std::vector<unsigned long>{2, 3}));
  execute(vm, "DEL LPT;");
  EXPECT_EQ(vm.word(LPT), 0u);
  execute(vm, "DEL LPT;");
}

TEST(Resources, OnlySomeRegistersCanBeReleased) {
  vm_t vm;
  for (const char* name : {"GP0", "EDP", "EAP", "HPT", "EIP", "MIO", "CBP"}) {
    EXPECT_EQ(message_of([&] { execute(vm, std::string("DEL ") + name + ";"); }),
              "cannot release memory of unknown type")
        << name;
  }
}

}  // namespace
