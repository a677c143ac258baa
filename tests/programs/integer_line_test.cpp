/// Models of integers only, from a table to a stored model.

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "support/program.h"
#include "support/temp_file.h"

namespace {

using qz_test::failure_of;
using qz_test::out_of_range;
using qz_test::Program;
using qz_test::TempFile;

/// 180 rows of three columns in which neighbours mostly agree; few enough for one-byte counts.
std::string agreeing_rows() {
  std::string text = "a,b,c\n\n";
  for (int row = 0; row < 180; ++row) {
    const int a = row % 2;
    const int b = row % 9 == 0 ? 1 - a : a;
    const int c = row % 7 == 0 ? 2 : b;
    text += std::to_string(a) + "," + std::to_string(b) + "," + std::to_string(c) + "\n";
  }
  return text;
}

/// The 64-bit hash of Fowler, Noll and Vo.
std::uint64_t checksum(const std::string& bytes) {
  std::uint64_t hash = 0xcbf29ce484222325u;
  for (const char byte : bytes) {
    hash = (hash ^ static_cast<unsigned char>(byte)) * 0x100000001b3u;
  }
  return hash;
}

struct Width {
  std::string name;
  std::uint64_t descent_file;
  std::uint64_t evolution_file;
};

class IntegerLine : public testing::TestWithParam<Width> {
 protected:
  const TempFile table{".csv", agreeing_rows()};
  const TempFile stored{".model"};
  Program program;

  void estimate(const std::string& optimizer, const std::string& iterations) {
    program.run({"idx_t " + GetParam().name + ";", "val_t " + GetParam().name + ";", "OMP 2",
                 "SEED 5", "DFN '" + table.path() + "'", "MFN '" + stored.path() + "'", "OVW true",
                 "GRA CHAIN;", "LDX DPT;", "LDX GPT;", "MODEL;", "KXX 12", "MIL 20",
                 "MIO " + iterations, "ALG " + optimizer + ";", "ESTIMATE;", "STORE MPT;"});
  }
  void TearDown() override { program.run({"DEL DFN;", "DEL MFN;"}); }
};

// The same bits on every machine and for any number of threads.
INSTANTIATE_TEST_SUITE_P(Widths, IntegerLine,
                         testing::Values(Width{"UINT8", 0xd7f2cee3b7f8c5d2, 0xb37d86959d11e626},
                                         Width{"UINT16", 0x805541de89c0d7a8, 0x705c850dc9891768},
                                         Width{"UINT32", 0x138f1461aca4f0e0, 0xedf8708605842018},
                                         Width{"UINT64", 0xa5f9689f0a619b90, 0x0fe178d94b2ca0f8}),
                         [](const auto& info) { return info.param.name; });

TEST_P(IntegerLine, CoordinateStepsLeaveTheKeptFile) {
  estimate("IGD", "120");
  EXPECT_LT(program.word("RES"), 30u);
  EXPECT_EQ(checksum(stored.read()), GetParam().descent_file)
      << std::hex << checksum(stored.read());
}

TEST_P(IntegerLine, EvolutionLeavesTheKeptFile) {
  estimate("EA11", "200");
  EXPECT_LT(program.word("RES"), 100u);
  EXPECT_EQ(checksum(stored.read()), GetParam().evolution_file)
      << std::hex << checksum(stored.read());
}

TEST_P(IntegerLine, TheStoredModelGivesTheSameMarginals) {
  estimate("IGD", "120");
  program.run({"DEL DPT;", "INFER;"});
  Program reader({"idx_t " + GetParam().name + ";", "val_t " + GetParam().name + ";",
                  "MFN '" + stored.path() + "'", "LDX MPT;", "INFER;", "DEL MFN;"});
  ASSERT_EQ(reader.word("DIM"), 10u);
  EXPECT_EQ(reader.real("LNZ"), program.real("LNZ"));
  for (int i = 0; i < 17; ++i) EXPECT_EQ(reader.marginals()[i], program.marginals()[i]);
}

TEST_P(IntegerLine, TheEngineRegisterHasNoInfluence) {
  estimate("IGD", "30");
  program.run({"DEL DPT;", "INFER;"});
  const double log_partition = program.real("LNZ");
  program.run({"ALG JT;", "INFER;", "ALG EXTI;", "INFER;"});
  EXPECT_EQ(program.real("LNZ"), log_partition);
}

TEST_P(IntegerLine, WithoutStepsTheResultIsAllOnes) {
  estimate("IGD", "0");
  const unsigned bits = 8u << (GetParam().name == "UINT8"    ? 0
                               : GetParam().name == "UINT16" ? 1
                               : GetParam().name == "UINT32" ? 2
                                                             : 3);
  EXPECT_EQ(program.word("RES"), ~std::uint64_t{0} >> (64 - bits));
}

TEST_P(IntegerLine, ClosedFormsAndGaussianWeightsAreLeftOut) {
  estimate("IGD", "60");
  const std::string before = stored.read();
  program.run({"CLOSEDFORM;", "INITGAUSS;", "STORE MPT;"});
  EXPECT_EQ(stored.read(), before);
  program.run({"INITZERO;", "STORE MPT;"});
  EXPECT_NE(stored.read(), before);
}

TEST(IntegerOptimizer, RealMethodsAreUnknown) {
  const TempFile table(".csv", agreeing_rows());
  for (const std::string optimizer : {"GD", "PL1", "FL1", "EXTO"}) {
    EXPECT_EQ(
        failure_of({"idx_t UINT8;", "val_t UINT8;", "DFN '" + table.path() + "'", "GRA CHAIN;",
                    "LDX DPT;", "LDX GPT;", "MODEL;", "ALG " + optimizer + ";", "ESTIMATE;"}),
        out_of_range("unknown optimization algorithm", 8));
  }
}

}  // namespace
