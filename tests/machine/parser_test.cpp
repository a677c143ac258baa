#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "QZ/machine/vm.h"
#include "QZ/machine/vocabulary.h"
#include "support/statements.h"

namespace {

using QZ::vm_t;
using enum QZ::VarType;
using qz_test::execute;
using qz_test::message_of;

template <class row_t>
std::string names_and_numbers(std::span<const row_t> rows, auto member) {
  std::ostringstream out;
  for (const row_t& row : rows) {
    out << row.name << ' ' << static_cast<unsigned>(row.*member) << ' ';
  }
  return out.str();
}

template <class enum_t>
std::string keywords(std::span<const QZ::vocabulary::Keyword<enum_t>> rows) {
  return names_and_numbers(rows, &QZ::vocabulary::Keyword<enum_t>::value);
}

TEST(Vocabulary, ListsOperationsByTheirOperands) {
  const auto& rows = QZ::vocabulary::operations;
  const auto take = [&](std::size_t first, std::size_t count, unsigned operands) {
    for (const auto& row : rows.subspan(first, count)) EXPECT_EQ(row.operands, operands);
    return names_and_numbers(rows.subspan(first, count), &QZ::vocabulary::Operation::op);
  };
  ASSERT_EQ(rows.size(), 31u);
  EXPECT_EQ(take(0, 17, 0),
            "ESTIMATE 0 STATS 1 MODEL 40 INFER 3 PREDICT 4 SCORE 64 SAMPLE 5 SET 7 STGRAPH 32 "
            "BOLTZMANNTREE 63 JUNCTIONTREE 66 BASEGRAPH 33 CLEARSTACK 52 INITLATENT 54 "
            "CLOSEDFORM 65 INITGAUSS 61 INITZERO 62 ");
  EXPECT_EQ(take(17, 8, 1), "INC 21 DEC 22 LDX 9 STORE 12 DEL 8 BRA 25 PUSH 34 POP 35 ");
  EXPECT_EQ(take(25, 4, 2), "MOV 18 ADD 14 MUL 15 BNZ 20 ");
  EXPECT_EQ(take(29, 2, 3), "BLT 16 BNE 45 ");
}

TEST(Vocabulary, ListsTheKeywordsInOrder) {
  using namespace QZ::vocabulary;
  EXPECT_EQ(keywords(engines), "LBP 0 JT 1 SQM 2 EXTI 3 ");
  EXPECT_EQ(keywords(optimizers), "GD 4 PL1 5 FL1 6 EA11 7 IGD 8 EXTO 9 ");
  EXPECT_EQ(keywords(index_types), "UINT8 0 UINT16 1 UINT32 2 UINT64 3 ");
  EXPECT_EQ(keywords(value_types),
            "UINT8 0 UINT16 1 UINT32 2 UINT64 3 FLT32 4 FLT64 5 FLTMPREC 6 ");
  EXPECT_EQ(keywords(parametrisations),
            "NONE 0 STLINEAR 1 STQUAD 2 STCUBIC 3 STRATIONAL 4 STEXPONENTIAL 5 STINVQUAD 6 "
            "STINVCUBIC 7 STINVRATIONAL 8 STINVEXPONENTIAL 9 INTEGER 10 DBT 11 ISING 12 ");
  EXPECT_EQ(keywords(QZ::vocabulary::exports), "ADJ 0 TGF 1 FG 2 ");
  EXPECT_EQ(keywords(graphs),
            "FILE 0 CHAIN 1 GRID 2 STAR 3 RBM 4 FULL 5 CHOWLIU 6 ELEMGM 7 OTHER 8 JT 9 DBT 10 "
            "ST 11 CLIQUES 12 RNDCLIQUES 13 ");
}

TEST(Vocabulary, GivesEveryWordAMeaning) {
  for (const auto& row : QZ::vocabulary::registers) EXPECT_STRNE(row.meaning, "") << row.name;
  for (const auto& row : QZ::vocabulary::operations) EXPECT_STRNE(row.meaning, "") << row.name;
}

// Where parsing goes on.

TEST(Parser, AnOperationEndsBehindItsLastOperand) {
  vm_t vm;
  EXPECT_EQ(vm.parseNext("CLEARSTACK;", 0), 10u);
  EXPECT_EQ(vm.parseNext("INC GP0;", 0), 7u);
  EXPECT_EQ(vm.parseNext("MOV \t GP0GP1 ;", 0), 12u);
  EXPECT_EQ(vm.parseNext("  BLT GP0 GP1 GP2;", 2), 17u);
}

TEST(Parser, ASemicolonEndsTheLine) {
  vm_t vm;
  const std::string line = "SET; and what follows is a remark";
  EXPECT_EQ(vm.parseNext(line, 3), line.size());
}

TEST(Parser, ABlankIsConsumedAlone) {
  vm_t vm;
  EXPECT_EQ(vm.parseNext("  SET;", 0), 1u);
  EXPECT_EQ(vm.parseNext("\tSET;", 0), 1u);
}

TEST(Parser, AnAssignmentEndsBehindItsToken) {
  vm_t vm;
  EXPECT_EQ(vm.parseNext("MIO  500 ;", 0), 8u);
  EXPECT_EQ(vm.parseNext("MIS 'x';", 0), 7u);
  EXPECT_EQ(vm.parseNext("MIO500;", 0), 6u);
}

TEST(Parser, ASetterAdvancesByTheNameEvenBehindANumber) {
  vm_t vm;
  EXPECT_EQ(vm.parseNext("val_t FLT64;", 0), 11u);
  EXPECT_EQ(vm.parseNext("val_t 5;", 0), 11u);
  EXPECT_EQ(vm.parseNext("GRA CHAIN;", 0), 9u);
}

TEST(Parser, ASetterLeavesItsRegisterAsTheOperand) {
  vm_t vm;
  // The operation that waits takes the register that the setter named last.
  execute(vm, "INC GP0 ALG GD;");
  EXPECT_EQ(vm.get(OPT), 5u);
  EXPECT_EQ(vm.getR(GP0), 0.0);
}

TEST(Parser, AnUnknownClassOfRegisterIsRefused) {
  vm_t vm;
  const auto unknown = static_cast<QZ::TypeType>(6);
  EXPECT_THROW(vm.assign(MIO, unknown, "5"), std::logic_error);
  EXPECT_EQ(message_of([&] { vm.assign(MIO, unknown, "5"); }), "unknown data type");
  EXPECT_EQ(vm.get(MIO), 1000u);
}

TEST(Parser, SettersAreThereForEveryKeywordList) {
  vm_t vm;
  unsigned long pos = 0;
  const vm_t::NameTable<QZ::GraphExport> forms = {{"A", QZ::GraphExport::ADJ},
                                                  {"B", QZ::GraphExport::FG}};
  // The row counts, and not the value that it stores.
  EXPECT_TRUE(vm.parseSetter(pos, "FMT B;", "graph format", FMT, 3, forms, 7));
  EXPECT_EQ(vm.get(FMT), 8u);
  EXPECT_EQ(pos, 5u);
  pos = 0;
  EXPECT_FALSE(vm.parseSetter(pos, "FMT C;", "graph format", FMT, 3, forms, 7));
}

TEST(Parser, ANumberTooLongForAWordFitsNoRow) {
  vm_t vm;
  EXPECT_EQ(message_of([&] { execute(vm, "idx_t 184467440737095516161;"); }), "parser error");
  EXPECT_EQ(message_of([&] { execute(vm, "idx_t 18446744073709551617;"); }), "parser error");
}

}  // namespace
