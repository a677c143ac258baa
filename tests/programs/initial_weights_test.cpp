/// INITZERO and INITGAUSS through the exported functions.

#include <gtest/gtest.h>

#include <random>

#include "support/model_program.h"
#include "support/small_model.h"

namespace {

using namespace qz_test;

class InitialWeights : public testing::Test {
 protected:
  TempFile table{".csv", csv("a,b,c", {"x,u,0", "y,v,1", "x,v,2"})};
};

TEST_F(InitialWeights, GaussDrawsInIndexOrderFromOneDistribution) {
  const Program program(fit_lines(table.path(), "CHAIN") +
                        std::vector<std::string>{"SDE 0.5;", "SEED 11;", "INITGAUSS;"});
  std::mt19937 rng(11);
  std::normal_distribution<double> normal(0, 0.5);
  const auto& model = container_of<unsigned long, double>(program);
  ASSERT_EQ(model.dim, 10);
  for (int i = 0; i < 10; ++i) EXPECT_EQ(model.weights[i], normal(rng));
}

TEST_F(InitialWeights, GaussNarrowsToFloat) {
  const Program program(types("UINT8", "FLT32") + fit_lines(table.path(), "CHAIN") +
                        std::vector<std::string>{"SEED 12;", "INITGAUSS;"});
  std::mt19937 rng(12);
  std::normal_distribution<double> normal(0, 1);
  const auto& model = container_of<unsigned char, float>(program);
  for (int i = 0; i < 10; ++i) EXPECT_EQ(model.weights[i], static_cast<float>(normal(rng)));
}

TEST_F(InitialWeights, GaussWithoutSpreadIsZero) {
  const Program program(fit_lines(table.path(), "CHAIN") +
                        std::vector<std::string>{"SDE 0;", "INITGAUSS;"});
  EXPECT_EQ(copy_of(container_of<unsigned long, double>(program).weights, 10),
            std::vector<double>(10, 0));
}

TEST_F(InitialWeights, GaussLeavesIntegersAndTheirEngineAlone) {
  const auto lines = types("UINT32", "UINT32") + fit_lines(table.path(), "CHAIN");
  Program program(lines);
  auto& model = container_of<unsigned, unsigned>(program);
  model.weights[3] = 5;
  program.run({"SEED 13;", "INITGAUSS;", "MOV GP0 UNI;"});
  EXPECT_EQ(model.weights[3], 5);
  const Program fresh({"SEED 13;", "MOV GP0 UNI;"});
  EXPECT_EQ(program.real("GP0"), fresh.real("GP0"));
}

TEST_F(InitialWeights, ZeroServesAllTypePairs) {
  for (const auto& [index, value] : all_type_names()) {
    Program program(types(index, value) + fit_lines(table.path(), "CHAIN"));
    QZ::dispatch_pair(static_cast<unsigned char>(program.word("IDX")),
                      static_cast<unsigned char>(program.word("VAL")),
                      [&]<class I, class V>(QZ::type_pair<I, V>) {
                        auto& model = container_of<I, V>(program);
                        for (int i = 0; i < 10; ++i) model.weights[i] = static_cast<V>(i + 1);
                        program.run({"INITZERO;"});
                        EXPECT_EQ(copy_of(model.weights, 10), std::vector<V>(10, 0));
                      });
  }
}

TEST_F(InitialWeights, DoNothingToThePlaceholder) {
  EXPECT_EQ(failure_of({"MPT 1;", "INITZERO;", "INITGAUSS;"}), std::nullopt);
}

TEST_F(InitialWeights, NeedAModel) {
  EXPECT_EQ(failure_of({"INITZERO;"}), logic_error("no model loaded"));
  EXPECT_EQ(failure_of({"INITGAUSS;"}), logic_error("no model loaded"));
}

}  // namespace
