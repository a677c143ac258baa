/// Inference on models from elsewhere whose answers are known. The large ones are used where they
/// lie beside the source tree.

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "support/factor_graphs.h"
#include "support/program.h"
#include "support/temp_file.h"

namespace {

using namespace qz_test;

const std::filesystem::path models = std::filesystem::path(QZ_SOURCE_DIR) / "../shared/data/models";

/// Loads the model into a program and infers.
std::vector<std::string> infer_lines(const std::string& file, const std::string& engine) {
  return {"idx_t UINT32;",       "val_t FLT64;", "MFN '" + file + "';", "LDX MPT;",
          "ALG " + engine + ";", "EPL 1e-14;",   "MIL 10000;",          "INFER;"};
}

/// The log partition function and the marginals of the vertices, one state after another.
struct Answer {
  double log_partition = 0;
  std::vector<double> marginals;
};

Answer infer(const FoldedModel& model, const std::string& engine) {
  const TempFile file(".model");
  write_model_file(model, file.path());
  const Program program(infer_lines(file.path(), engine));
  Answer answer{program.real("LNZ"), {}};
  const double* next = program.marginals() + model.dim();
  for (const std::size_t states : model.states) {
    answer.marginals.insert(answer.marginals.end(), next, next + states);
    next += states;
  }
  return answer;
}

/// By adding up all configurations, from the factors as they were read.
Answer enumerate(const FactorGraph& graph) {
  Answer answer;
  std::size_t total = 1;
  std::size_t places = 0;
  for (const std::size_t states : graph.states) {
    total *= states;
    places += states;
  }
  answer.marginals.resize(places);
  double sum = 0;
  for (std::size_t number = 0; number < total; ++number) {
    std::vector<std::size_t> x;
    std::size_t rest = number;
    for (const std::size_t states : graph.states) {
      x.push_back(rest % states);
      rest /= states;
    }
    double product = 1;
    for (const Factor& factor : graph.factors) {
      std::size_t at = 0;
      for (const std::size_t v : factor.vertices) at = at * graph.states[v] + x[v];
      product *= factor.values[at];
    }
    sum += product;
    std::size_t place = 0;
    for (std::size_t v = 0; v < x.size(); place += graph.states[v++]) {
      answer.marginals[place + x[v]] += product;
    }
  }
  for (double& marginal : answer.marginals) marginal /= sum;
  answer.log_partition = std::log(sum);
  return answer;
}

/// The column of probabilities of a table of vertices and states in order.
std::vector<double> read_marginals(const std::filesystem::path& name) {
  std::ifstream in(name);
  std::vector<double> column;
  std::string line;
  std::getline(in, line);
  while (std::getline(in, line)) column.push_back(std::stod(line.substr(line.rfind(',') + 1)));
  return column;
}

void expect_near(const Answer& found, const Answer& wanted, double tolerance) {
  EXPECT_NEAR(found.log_partition, wanted.log_partition,
              tolerance * std::max(1.0, std::abs(wanted.log_partition)));
  ASSERT_EQ(found.marginals.size(), wanted.marginals.size());
  for (std::size_t i = 0; i < wanted.marginals.size(); ++i) {
    EXPECT_NEAR(found.marginals[i], wanted.marginals[i], tolerance) << i;
  }
}

/// A path over three vertices with 2, 3 and 2 states in the factor graph form.
const char* const path_text =
    "# a comment\n4\n\n2\n0 1\n2 3\n6\n0 1\n1 2\n2 3\n3 4\n4 5\n5 6\n\n"
    "2\n2 1\n2 3\n5\n0 1\n1 0.5\n2 2\n4 3\n5 1\n\n1\n1\n3\n3\n0 1\n1 4\n2 2\n\n1\n2\n2\n2\n0 3\n1 "
    "1\n";

/// The same model as a Markov network.
const char* const path_network =
    "MARKOV\n3\n2 3 2\n4\n2 0 1\n2 2 1\n1 1\n1 2\n\n6\n1 3 5\n2 4 6\n\n6\n1 2 3\n0.5 0 1\n\n"
    "3\n1 4 2\n\n2\n3 1\n";

FactorGraph small_graph() {
  std::istringstream in(path_text);
  return read_factor_graph_text(in);
}

TEST(KnownModels, TwoTextFormsHoldTheSameModel) {
  std::istringstream in(path_network);
  const FactorGraph network = read_markov_text(in);
  const FactorGraph graph = small_graph();
  EXPECT_EQ(network.states, graph.states);
  ASSERT_EQ(network.factors.size(), graph.factors.size());
  for (std::size_t f = 0; f < graph.factors.size(); ++f) {
    EXPECT_EQ(network.factors[f].vertices, graph.factors[f].vertices);
    EXPECT_EQ(network.factors[f].values, graph.factors[f].values);
  }
}

TEST(KnownModels, FoldingKeepsTheModel) {
  FactorGraph graph = small_graph();
  // No logarithm of zero.
  for (double& value : graph.factors[1].values) value += 0.25;
  const FoldedModel folded = fold(graph);
  EXPECT_EQ(folded.edges.size(), 2u);
  EXPECT_EQ(folded.dim(), 12u);
  expect_near(infer(folded, "LBP"), enumerate(graph), 1e-9);
}

class KnownModelFiles : public testing::Test {
 protected:
  static FactorGraph read(const std::string& name) {
    std::ifstream in(models / name);
    return name.ends_with(".uai") ? read_markov_text(in) : read_factor_graph_text(in);
  }
};

TEST_F(KnownModelFiles, LoopyPropagationFindsTheFixedPointOfTheGrid) {
  Answer known{14.3289520102, read_marginals(models / "testfast.bp_marginals.csv")};
  FactorGraph graph = small_graph();
  if (std::filesystem::exists(models / "testfast.fg")) {
    graph = read("testfast.fg");
  } else {
    // On the path the fixed point is the answer itself.
    for (double& value : graph.factors[1].values) value += 0.25;
    known = enumerate(graph);
  }
  expect_near(infer(fold(graph), "LBP"), known, 1e-6);
}

/// The bound that the figures' last digit leaves: 1e-9 relative, and half a
/// digit.
void expect_exact(const Answer& found, const Answer& wanted) {
  EXPECT_NEAR(found.log_partition, wanted.log_partition, 1e-9 * wanted.log_partition);
  ASSERT_EQ(found.marginals.size(), wanted.marginals.size());
  for (std::size_t i = 0; i < wanted.marginals.size(); ++i) {
    EXPECT_NEAR(found.marginals[i], wanted.marginals[i], 1e-9 * wanted.marginals[i] + 5e-13) << i;
  }
}

TEST(KnownModels, TheJunctionTreeIsExactOnAFoldedModel) {
  FactorGraph graph = small_graph();
  for (double& value : graph.factors[1].values) value += 0.25;
  graph.factors.push_back({{2, 0}, {1, 2, 3, 0.5}});
  expect_exact(infer(fold(graph), "JT"), enumerate(graph));
}

TEST_F(KnownModelFiles, TheJunctionTreeIsExactOnTheGrids) {
  const struct {
    const char* model;
    const char* marginals;
    double log_partition;
  } grids[] = {{"testfast.fg", "testfast.exact_marginals.csv", 14.3282332811},
               {"Grids_12.uai", "Grids_12.exact_marginals.csv", 697.8812055304}};
  for (const auto& grid : grids) {
    if (!std::filesystem::exists(models / grid.model)) continue;
    expect_exact(infer(fold(read(grid.model)), "JT"),
                 {grid.log_partition, read_marginals(models / grid.marginals)});
  }
}

}  // namespace
