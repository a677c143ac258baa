#include <gtest/gtest.h>
#include <omp.h>

#include <bit>
#include <cstdint>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "QZ/graph/chain.h"
#include "QZ/io/model_container.h"
#include "QZ/machine/vm.h"
#include "QZ/machine/vocabulary.h"
#include "machine/expected_registers.h"
#include "support/pair_types.h"
#include "support/statements.h"

namespace {

using QZ::vm_t;
using enum QZ::VarType;
using qz_test::message_of;

struct Expected {
  std::string name, number, letter, value;
};

std::vector<Expected> expected_rows() {
  std::vector<Expected> rows;
  std::istringstream in(qz_test::expected_registers);
  for (std::string token; in >> token;) {
    std::istringstream fields(token);
    Expected row;
    std::getline(fields, row.name, ':');
    std::getline(fields, row.number, ':');
    std::getline(fields, row.letter, ':');
    std::getline(fields, row.value);
    rows.push_back(row);
  }
  return rows;
}

unsigned long initial_word(const Expected& row) {
  if (row.value == "threads") return static_cast<unsigned long>(omp_get_max_threads());
  if (row.value.ends_with('w')) return std::stoul(row.value);
  return row.letter == "R" ? std::bit_cast<unsigned long>(std::stod(row.value))
                           : std::stoul(row.value);
}

TEST(Registers, StandInTheOrderOfLookup) {
  const auto rows = expected_rows();
  ASSERT_EQ(rows.size(), 109u);
  ASSERT_EQ(QZ::vocabulary::registers.size(), 109u);
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const auto& row = QZ::vocabulary::registers[i];
    EXPECT_EQ(row.name, rows[i].name);
    EXPECT_EQ(std::to_string(static_cast<unsigned>(row.var)), rows[i].number) << row.name;
  }
}

TEST(Registers, StartWithTheirClassAndDefault) {
  const vm_t vm;
  const std::map<std::string, QZ::TypeType> classes = {
      {"U", QZ::TypeType::T_UINT}, {"R", QZ::TypeType::T_REAL},    {"S", QZ::TypeType::T_STRING},
      {"B", QZ::TypeType::T_BOOL}, {"P", QZ::TypeType::T_POINTER}, {"C", QZ::TypeType::T_CHAR}};
  for (const Expected& row : expected_rows()) {
    const auto var = static_cast<QZ::VarType>(std::stoul(row.number));
    EXPECT_EQ(vm.type(var), classes.at(row.letter)) << row.name;
    EXPECT_EQ(vm.word(var), initial_word(row)) << row.name;
  }
}

TEST(Registers, ReadAsIntegerAndAsReal) {
  const vm_t vm;
  EXPECT_EQ(vm.get(IDX), 3u);
  EXPECT_EQ(vm.get(VAL), 5u);
  EXPECT_EQ(vm.get(SEP), 44u);
  EXPECT_EQ(vm.getR(EPL), 1e-06);
  EXPECT_EQ(vm.getR(SDE), 1.0);
  EXPECT_EQ(vm.getR(PAM), 0.1);
}

TEST(Registers, AnIntegerReadAsRealIsItsBits) {
  const vm_t vm;
  EXPECT_EQ(vm.getR(MIO), std::bit_cast<double>(1000ul));
  EXPECT_LT(vm.getR(MIO), 1e-300);
  EXPECT_EQ(vm.getR(MVA), std::bit_cast<double>(255ul));
}

TEST(Registers, OneIsOneWhateverIsStored) {
  vm_t vm;
  EXPECT_EQ(vm.word(ONE), 0u);
  EXPECT_EQ(vm.get(ONE), 1u);
  vm.set(ONE, 17ul);
  EXPECT_EQ(vm.get(ONE), 1u);
  EXPECT_EQ(vm.getR(ONE), std::bit_cast<double>(17ul));
}

TEST(Registers, NumbersThatAreNoRegisterThrow) {
  const vm_t vm;
  for (const unsigned number : {22u, 35u, 84u, 98u, 113u, 200u}) {
    const auto var = static_cast<QZ::VarType>(number);
    EXPECT_THROW(vm.get(var), std::out_of_range);
    EXPECT_EQ(message_of([&] { vm.get(var); }), "map::at");
    EXPECT_EQ(message_of([&] { vm.getR(var); }), "map::at");
  }
}

TEST(Registers, AWriteCreatesAMissingEntry) {
  vm_t vm;
  const auto var = static_cast<QZ::VarType>(22);
  vm.set(var, 5ul);
  EXPECT_EQ(vm.get(var), 5u);
}

TEST(Registers, TypedWritesStoreOneWord) {
  vm_t vm;
  vm.set(MIO, 12ul);
  EXPECT_EQ(vm.word(MIO), 12u);
  vm.set(LAM, 0.5);
  EXPECT_EQ(vm.word(LAM), std::bit_cast<unsigned long>(0.5));
  vm.set(HED, false);
  EXPECT_EQ(vm.word(HED), 0u);
  vm.set(MIS, '\xff');
  EXPECT_EQ(vm.word(MIS), 255u);
  int object = 0;
  vm.set(HPT, static_cast<void*>(&object));
  EXPECT_EQ(vm.word(HPT), reinterpret_cast<unsigned long>(&object));
}

TEST(Registers, GraphCountsAreTheStoredWordsWithoutAGraph) {
  vm_t vm;
  EXPECT_EQ(vm.get(GVX), 0u);
  vm.set(GVX, 300ul);
  vm.set(GEX, 7ul);
  EXPECT_EQ(vm.get(GVX), 300u);
  EXPECT_EQ(vm.get(GEX), 7u);
}

template <class pair_t>
class ComputedRegisters : public testing::Test {};
TYPED_TEST_SUITE(ComputedRegisters, qz_test::AllPairs);

TYPED_TEST(ComputedRegisters, FollowTheGraphAndTheModel) {
  using idx_t = typename TypeParam::idx_t;
  using val_t = typename TypeParam::val_t;
  vm_t vm;
  vm.set(IDX, static_cast<unsigned long>(QZ::idx_code<idx_t>()));
  vm.set(VAL, static_cast<unsigned long>(QZ::val_code<val_t>()));
  vm.set(GVX, 99ul);
  vm.set(GPT, static_cast<void*>(new QZ::Chain<idx_t>(5)));
  EXPECT_EQ(vm.get(GVX), 5u);
  EXPECT_EQ(vm.get(GEX), 4u);
  EXPECT_EQ(vm.word(GVX), 99u);
  auto* container = new QZ::IO<idx_t, val_t>;
  container->dim = 200;
  vm.set(MPT, static_cast<void*>(container));
  EXPECT_EQ(vm.get(DIM), 200u);
  EXPECT_EQ(vm.getDim(), 200u);
}

TEST(Registers, AnUnknownIndexTypeLeavesTheGraphCountsAsStored) {
  vm_t vm;
  QZ::Chain<unsigned long> chain(5);
  vm.set(GPT, static_cast<void*>(&chain));
  vm.set(GVX, 99ul);
  vm.set(IDX, 4ul);
  EXPECT_EQ(vm.get(GVX), 99u);
  vm.set(GPT, 0ul);
}

TEST(Registers, ADimensionOutsideTheTypePairsIsZero) {
  vm_t vm;
  QZ::IO<unsigned long, double> container;
  container.dim = 4;
  vm.set(MPT, static_cast<void*>(&container));
  vm.set(VAL, 0ul);
  EXPECT_EQ(vm.get(DIM), 0u);
  vm.set(MPT, 0ul);
  vm.set(DIM, 6ul);
  EXPECT_EQ(vm.get(DIM), 6u);
}

TEST(Registers, PlaceholdersCountAsOne) {
  vm_t vm;
  vm.set(MPT, QZ::placeholder);
  EXPECT_EQ(vm.get(GVX), 1u);
  EXPECT_EQ(vm.get(GEX), 1u);
  EXPECT_EQ(vm.get(DIM), 1u);
  vm.set(DPT, QZ::placeholder);
  EXPECT_EQ(vm.get(NXX), 1u);
}

TEST(Registers, APlaceholderGraphIsNeverRead) {
  vm_t vm;
  vm.set(GPT, QZ::placeholder);
  vm.set(GVX, 8ul);
  EXPECT_EQ(vm.get(GVX), 8u);
}

TEST(Registers, EachReadOfANormalVariateIsFresh) {
  vm_t vm;
  vm.set(SEED, 7ul);
  vm.set(SDE, 2.5);
  std::mt19937 rng(7);
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(vm.getR(RND), std::normal_distribution<double>(0.0, 2.5)(rng));
  }
  EXPECT_NE(vm.getR(RND), vm.getR(RND));
  EXPECT_EQ(vm.get(RND), 0u);
}

TEST(Registers, UniformVariatesComeFromTheSameEngine) {
  vm_t vm;
  vm.set(SEED, 7ul);
  std::mt19937 rng(7);
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(vm.getR(UNI), std::uniform_real_distribution<double>(0.0, 1.0)(rng));
  }
}

TEST(Registers, ASeedIsCutTo32Bits) {
  vm_t a;
  vm_t b;
  a.set(SEED, 5ul);
  b.set(SEED, (1ul << 32) + 5);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(a.getR(RND), b.getR(RND));
  EXPECT_EQ(b.get(SEED), (1ul << 32) + 5);
}

TEST(Registers, OnlyTheIntegerFormOfAWriteHasSideEffects) {
  vm_t vm;
  vm.set(SEED, 3ul);
  const double first = vm.getR(UNI);
  vm.set(SEED, 3.0);
  EXPECT_NE(vm.getR(UNI), first);
  vm.set(SEED, 3ul);
  EXPECT_EQ(vm.getR(UNI), first);
}

TEST(Registers, TheThreadCountReachesOpenMp) {
  vm_t vm;
  const int before = omp_get_max_threads();
  vm.set(OMP, 2ul);
  EXPECT_EQ(omp_get_max_threads(), 2);
  vm.set(OMP, 1ul);
  EXPECT_EQ(omp_get_max_threads(), 1);
  omp_set_num_threads(before);
}

TEST(Registers, TheSeparatorRefusesABarAsAnInteger) {
  vm_t vm;
  EXPECT_THROW(vm.set(SEP, 124ul), std::out_of_range);
  EXPECT_EQ(message_of([&] { vm.set(SEP, 256ul + 124ul); }), "separator | not supported");
  EXPECT_EQ(vm.get(SEP), 44u);
  vm.set(SEP, '|');
  EXPECT_EQ(vm.get(SEP), 124u);
}

TEST(Registers, NamesAreFoundByPrefix) {
  vm_t vm;
  unsigned long pos = 1;
  EXPECT_EQ(vm.getVar(" LAMBDA", pos), LAM);
  EXPECT_EQ(pos, 4u);
  pos = 0;
  EXPECT_EQ(vm.getVar("DEVICE", pos), DEV);
  EXPECT_EQ(pos, 3u);
  pos = 0;
  EXPECT_EQ(vm.getVar("XYZ", pos), QZ::unknown_register);
  EXPECT_EQ(pos, 0u);
  pos = 1;
  EXPECT_EQ(vm.getVar("X", pos), QZ::unknown_register);
  EXPECT_EQ(pos, 1u);
}

TEST(Registers, EveryNameFindsItsRegister) {
  vm_t vm;
  for (const auto& row : QZ::vocabulary::registers) {
    unsigned long pos = 0;
    EXPECT_EQ(vm.getVar(row.name, pos), row.var) << row.name;
    EXPECT_EQ(pos, std::string(row.name).size()) << row.name;
  }
}

TEST(Registers, AResetRestoresDefaultsAndKeepsTheRandomState) {
  vm_t vm;
  vm.set(SEED, 9ul);
  vm.set(MIO, 5ul);
  vm.set(MFN, new std::string("model"));
  std::mt19937 rng(9);
  rng.discard(2);
  vm.getR(UNI);
  EXPECT_EQ(vm.reset(), 1);
  EXPECT_EQ(vm.get(MIO), 1000u);
  EXPECT_EQ(vm.get(MFN), 0u);
  EXPECT_EQ(vm.get(SEED), 0u);
  EXPECT_EQ(vm.getR(UNI), std::uniform_real_distribution<double>(0.0, 1.0)(rng));
  EXPECT_EQ(vm.reset(), 1);
  EXPECT_EQ(vm.get(MIO), 1000u);
}

TEST(Registers, AResetForgetsTwoTextsWithoutRelease) {
  vm_t vm;
  auto* lfn = new std::string("still here");
  auto* nam = new std::string("this one too");
  vm.set(LFN, lfn);
  vm.set(NAM, nam);
  EXPECT_EQ(vm.reset(), 1);
  EXPECT_EQ(vm.get(LFN), 0u);
  EXPECT_EQ(vm.get(NAM), 0u);
  EXPECT_EQ(*lfn, "still here");
  EXPECT_EQ(*nam, "this one too");
  delete lfn;
  delete nam;
}

TEST(Registers, AFailedResetCanBeRepeated) {
  vm_t vm;
  vm.set(MFN, new std::string("model"));
  vm.set(GPT, static_cast<void*>(new QZ::Chain<unsigned long>(3)));
  vm.set(IDX, 9ul);
  EXPECT_EQ(message_of([&] { vm.reset(); }), "unsupported storage type");
  EXPECT_EQ(vm.get(MFN), 0u);
  vm.set(IDX, 3ul);
  EXPECT_EQ(vm.reset(), 1);
}

TEST(Registers, AGraphOfUnknownTypeDoesNotStopTheDestructor) {
  QZ::Chain<unsigned long> chain(3);
  {
    vm_t vm;
    vm.set(GPT, static_cast<void*>(&chain));
    vm.set(IDX, 9ul);
  }
  EXPECT_EQ(chain.vertices(), 3u);
}

}  // namespace
