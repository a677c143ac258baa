/// Fields over time slices, from a table to marginals, scores and samples.

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "QZ/data/categorical_data.h"
#include "QZ/opt/optimizer.h"
#include "support/enumeration_oracle.h"
#include "support/model_program.h"
#include "support/pairwise_models.h"
#include "support/small_model.h"

namespace {

using namespace qz_test;

using Lines = std::vector<std::string>;
using Values = std::vector<double>;

const char* const decays[] = {"NONE",          "STLINEAR",        "STQUAD",    "STCUBIC",
                              "STRATIONAL",    "STEXPONENTIAL",   "STINVQUAD", "STINVCUBIC",
                              "STINVRATIONAL", "STINVEXPONENTIAL"};

/// The factors that a decay gives to the steps 0 to `time`, worked out from its definition: the
/// forward forms by their formula, the others as the inverse function on the range [c, 1].
Values factors(const std::string& decay, int time) {
  Values list;
  const double span = time + 1;
  for (int i = 0; i <= time; ++i) {
    const double p = (i + 1) / span;
    // From the steps 0 to time, or from anything on that scale, onto [c, 1].
    const auto onto = [&](double c, double x) { return time == 0 ? 1 : c + (1 - c) * x / time; };
    const auto inverse = [&](double c, auto&& undo) { return onto(c, undo(onto(c, i))); };
    if (decay == "NONE") list.push_back(1);
    if (decay == "STLINEAR") list.push_back(p);
    if (decay == "STQUAD") list.push_back(p * p);
    if (decay == "STCUBIC") list.push_back(p * p * p);
    if (decay == "STRATIONAL") list.push_back(1.0 / (time - i + 1));
    if (decay == "STEXPONENTIAL") list.push_back(std::exp(i - time));
    if (decay == "STINVQUAD") {
      list.push_back(inverse(1 / (span * span), [&](double y) { return span * std::sqrt(y) - 1; }));
    }
    if (decay == "STINVCUBIC") {
      list.push_back(
          inverse(1 / (span * span * span), [&](double y) { return span * std::cbrt(y) - 1; }));
    }
    if (decay == "STINVRATIONAL") {
      list.push_back(inverse(1 / span, [&](double y) { return span - 1 / y; }));
    }
    if (decay == "STINVEXPONENTIAL") {
      list.push_back(inverse(std::exp(-time), [&](double y) { return std::log(y) + time; }));
    }
    if (decay == "INTEGER" || decay == "DBT") list.push_back(0);
  }
  return list;
}

// Two columns of 2 and 3 states over three slices: vertices a0, b0, a1, b1, a2, b2.

/// The eleven edges: temporal, then spatial, forward and backward of each step, then the last
/// slice.
const std::vector<std::pair<std::size_t, std::size_t>> edges{
    {0, 2}, {2, 4}, {1, 3}, {3, 5}, {0, 1}, {0, 3}, {2, 1}, {2, 3}, {2, 5}, {4, 3}, {4, 5}};
/// The like edges of each at the steps up to its own.
const std::array<std::vector<std::size_t>, 11> like_edges{
    {{0}, {0, 1}, {2}, {2, 3}, {4}, {5}, {6}, {4, 7}, {5, 8}, {6, 9}, {4, 7, 10}}};

TestModel<unsigned int, double> plain_model() { return {6, edges, {2, 3, 2, 3, 2, 3}}; }

/// The plain field with the expanded weights of time-step parameters.
template <class V>
TestModel<unsigned int, double> expand(const std::string& decay, const V* parameters) {
  auto model = plain_model();
  for (std::size_t e = 0; e < edges.size(); ++e) {
    const auto& sources = like_edges[e];
    const Values factor = factors(decay, static_cast<int>(sources.size()) - 1);
    for (std::size_t k = model.offsets[e]; k < model.offsets[e + 1]; ++k) {
      for (std::size_t j = 0; j < sources.size(); ++j) {
        model.weights[k] +=
            factor[j] *
            static_cast<double>(parameters[model.offsets[sources[j]] + k - model.offsets[e]]);
      }
    }
  }
  return model;
}

/// Every row of six states once, and the slower switches' repetitions four times.
std::string series() {
  std::ostringstream text;
  text << "a0,b0,a1,b1,a2,b2\n\n";
  for (int x = 0; x < 216; ++x) {
    const int a[] = {x % 2, x / 2 % 2, x / 4 % 2};
    const int b[] = {x / 8 % 3, x / 24 % 3, x / 72};
    const int copies = 1 + 2 * (a[0] == a[1]) + (b[1] == b[2]) + (a[2] == b[2]);
    for (int copy = 0; copy < copies; ++copy) {
      for (int t = 0; t < 3; ++t) text << a[t] << ',' << b[t] << (t < 2 ? ',' : '\n');
    }
  }
  return text.str();
}

class StrfProgram : public testing::Test {
 protected:
  Lines lines(const std::string& decay) const {
    return {"DFN '" + table.path() + "';",
            "LDX DPT;",
            "TXX 3;",
            "GRA CHAIN;",
            "LDX GPT;",
            "STGRAPH;",
            "ALG JT;",
            "REP " + decay + ";",
            "MODEL;",
            "SEED 3;",
            "SDE 0.4;",
            "INITGAUSS;"};
  }
  static Lines query(const TempFile& file) {
    return {"DEL DPT;", "DEL DFN;", "DFN '" + file.path() + "';", "LDX DPT;"};
  }

  TempFile table{".csv", series()};
};

template <class V>
void expect_marginals(const Program& program, const ExactAnswers& exact, V tolerance) {
  EXPECT_NEAR(program.real("LNZ"), static_cast<double>(exact.log_partition), tolerance * 8);
  const double* found = program.marginals();
  for (const double p : exact.edge) EXPECT_NEAR(*found++, p, tolerance);
  for (const auto& states : exact.vertex) {
    for (const double p : states) EXPECT_NEAR(*found++, p, tolerance);
  }
}

TEST_F(StrfProgram, InferenceSeesTheExpandedWeights) {
  for (const std::string decay : decays) {
    if (decay == "NONE") continue;
    for (const std::string threads : {"1", "2"}) {
      SCOPED_TRACE(decay + " " + threads);
      const Lines omp{"OMP " + threads + ";"};
      const Program wide(omp + types("UINT32", "FLT64") + lines(decay) +
                         Lines{"DEL DPT;", "INFER;"});
      const auto& model = container_of<unsigned int, double>(wide);
      expect_marginals(wide, enumerate(expand(decay, model.weights)), 1e-12);

      const Program narrow(omp + types("UINT8", "FLT32") + lines(decay) +
                           Lines{"DEL DPT;", "INFER;"});
      const auto& small = container_of<unsigned char, float>(narrow);
      expect_marginals(narrow, enumerate(expand(decay, small.weights)), 1e-5);
    }
  }
}

TEST_F(StrfProgram, WithoutADecayTheFieldIsThePlainOne) {
  const Program program(types("UINT32", "FLT64") + lines("NONE") + Lines{"DEL DPT;", "INFER;"});
  auto model = plain_model();
  const auto& container = container_of<unsigned int, double>(program);
  std::copy_n(container.weights, model.weights.size(), model.weights.begin());
  expect_marginals(program, enumerate(model), 1e-12);
}

TEST_F(StrfProgram, EveryOptimizerAndDecayMeetsTheMomentsOfTheData) {
  for (const std::string decay : decays) {
    for (const std::string method : {"GD", "PL1", "FL1"}) {
      for (const std::string value : {"FLT32", "FLT64"}) {
        for (const std::string threads : {"1", "2"}) {
          SCOPED_TRACE(decay + " " + method + " " + value + " " + threads);
          const Program program(
              Lines{"OMP " + threads + ";"} + types("UINT32", value) + lines(decay) +
              Lines{"ALG " + method + ";", "EPO 0;", "STP 1;",
                    method == "FL1" ? "MIO 150;" : "MIO 600;", "ESTIMATE;", "DEL DPT;", "INFER;"});
          const auto compare = [&]<class V>(const QZ::IO<unsigned int, V>& model) {
            const V* counts = model.stats + model.offsets[6];
            for (std::size_t k = 0; k < model.dim; ++k) {
              EXPECT_NEAR(program.marginals()[k], static_cast<double>(counts[k]) / model.samples,
                          2e-3);
            }
          };
          if (value == "FLT32") compare(container_of<unsigned int, float>(program));
          if (value == "FLT64") compare(container_of<unsigned int, double>(program));
        }
      }
    }
  }
}

TEST_F(StrfProgram, AStepIsTheChainRuleThroughTheExpansion) {
  for (const std::string decay : decays) {
    if (decay == "NONE") continue;
    SCOPED_TRACE(decay);
    const Lines start = types("UINT32", "FLT64") + lines(decay);
    const Program before(start);
    const Program after(start + Lines{"ALG GD;", "STP 0.01;", "MIO 1;", "ESTIMATE;"});
    const auto& old_model = container_of<unsigned int, double>(before);
    const auto& model = container_of<unsigned int, double>(after);
    const auto expanded = expand(decay, old_model.weights);
    const ExactAnswers exact = enumerate(expanded);
    Values gradient(model.dim);
    for (std::size_t e = 0; e < edges.size(); ++e) {
      const auto& sources = like_edges[e];
      const Values factor = factors(decay, static_cast<int>(sources.size()) - 1);
      for (std::size_t k = expanded.offsets[e]; k < expanded.offsets[e + 1]; ++k) {
        const double wanted = model.stats[model.offsets[6] + k] / model.samples;
        for (std::size_t j = 0; j < sources.size(); ++j) {
          gradient[expanded.offsets[sources[j]] + k - expanded.offsets[e]] +=
              factor[j] * (exact.edge[k] - wanted);
        }
      }
    }
    for (std::size_t k = 0; k < model.dim; ++k) {
      EXPECT_NEAR(model.weights[k], old_model.weights[k] - 0.01 * gradient[k], 1e-12) << k;
    }
  }
}

TEST_F(StrfProgram, TheObjectivePairsTheDataWithTheExpandedWeights) {
  const Program program(types("UINT32", "FLT64") + lines("STRATIONAL") +
                        Lines{"ALG FL1;", "STP 0.1;", "MIO 5;", "ESTIMATE;"});
  const auto& model = container_of<unsigned int, double>(program);
  const auto expanded = expand("STRATIONAL", model.weights);
  double objective = static_cast<double>(enumerate(expanded).log_partition);
  for (std::size_t k = 0; k < model.dim; ++k) {
    objective -= expanded.weights[k] * model.stats[model.offsets[6] + k] / model.samples;
  }
  EXPECT_NEAR(program.real("RES"), objective, 1e-12);
}

TEST_F(StrfProgram, KindsThatAreNoDecayNeverMove) {
  for (const std::string kind : {"INTEGER", "DBT"}) {
    for (const std::string method : {"GD", "PL1", "FL1"}) {
      SCOPED_TRACE(kind + " " + method);
      const Lines start = types("UINT32", "FLT64") + lines(kind);
      const Program before(start);
      const Program program(start + Lines{"ALG " + method + ";", "STP 1;", "EPO 0;", "MIO 5;",
                                          "ESTIMATE;", "SCORE;", "MOV HP0 RES;", "DEL DPT;",
                                          "INFER;"});
      const auto& old_model = container_of<unsigned int, double>(before);
      const auto& model = container_of<unsigned int, double>(program);
      EXPECT_EQ(copy_of(model.weights, model.dim), copy_of(old_model.weights, model.dim));
      // All 216 rows are equally likely.
      EXPECT_NEAR(program.real("LNZ"), std::log(216.0), 1e-12);
      EXPECT_NEAR(program.real("HP0"), -std::log(216.0), 1e-12);
      expect_marginals(program, enumerate(plain_model()), 1e-12);
      EXPECT_EQ(model.baseGraph, nullptr);
    }
  }
}

TEST_F(StrfProgram, KindsThatAreNoDecayNeedAGraphOverTimeToo) {
  for (const std::string kind : {"INTEGER", "DBT"}) {
    for (const char* operation : {"ESTIMATE;", "INFER;", "SCORE;", "PREDICT;"}) {
      EXPECT_EQ(failure_of(fit_lines(table.path(), "CHAIN") +
                           Lines{"REP " + kind + ";", "ALG GD;", operation}),
                logic_error("a model with decay requires a graph over time slices", 7));
    }
  }
}

TEST_F(StrfProgram, AStoredModelHoldsTheParametersOfTheSteps) {
  for (const std::string decay : decays) {
    if (decay == "NONE") continue;
    for (const std::string value : {"FLT32", "FLT64"}) {
      SCOPED_TRACE(decay + " " + value);
      const TempFile file;
      const Program stored(types("UINT16", value) + lines(decay) +
                           Lines{"ALG FL1;", "STP 0.1;", "MIO 5;", "ESTIMATE;", "DEL DPT;",
                                 "INFER;", "MFN '" + file.path() + "';", "STORE MPT;"});
      const Program loaded(types("UINT16", value) +
                           Lines{"MFN '" + file.path() + "';", "LDX MPT;", "ALG JT;", "INFER;"});
      const auto compare = [&]<class V>(const QZ::IO<unsigned short, V>& model,
                                        const QZ::IO<unsigned short, V>& again) {
        EXPECT_EQ(copy_of(again.weights, again.dim), copy_of(model.weights, model.dim));
        EXPECT_EQ(again.slices, 3);
        EXPECT_EQ(again.graphType, 11);
        EXPECT_EQ(again.baseGraph->vertices(), 2);
        EXPECT_EQ(again.reparam, loaded.word("REP"));
        const double tolerance = value == "FLT32" ? 1e-5 : 1e-12;
        expect_marginals(loaded, enumerate(expand(decay, model.weights)), tolerance);
      };
      if (value == "FLT32") {
        compare(container_of<unsigned short, float>(stored),
                container_of<unsigned short, float>(loaded));
      } else {
        compare(container_of<unsigned short, double>(stored),
                container_of<unsigned short, double>(loaded));
      }
      EXPECT_EQ(loaded.real("LNZ"), stored.real("LNZ"));
      EXPECT_EQ(loaded.word("GVX"), 6u);
      EXPECT_EQ(loaded.word("GEX"), 11u);
    }
  }
}

TEST_F(StrfProgram, AnotherFitGoesOnFromTheParametersOfTheSteps) {
  const Lines start = types("UINT32", "FLT64") + lines("STQUAD");
  const Lines fit{"ALG GD;", "STP 0.01;", "MIO 1;", "ESTIMATE;"};
  const TempFile file;
  const Program twice(start + fit + Lines{"ESTIMATE;"});
  const Program stored(start + fit + Lines{"MFN '" + file.path() + "';", "STORE MPT;"});
  const Program resumed(types("UINT32", "FLT64") +
                        Lines{"ALG JT;", "MFN '" + file.path() + "';", "LDX MPT;"} + fit);
  const auto& model = container_of<unsigned int, double>(twice);
  const auto& again = container_of<unsigned int, double>(resumed);
  EXPECT_EQ(copy_of(again.weights, again.dim), copy_of(model.weights, model.dim));
}

TEST_F(StrfProgram, ScoresRowsByTheExpandedWeights) {
  const TempFile fresh{".csv", "a0,b0,a1,b1,a2,b2\n\n0,1,1,2,0,0\n1,1,1,0,0,2\n"};
  const std::vector<std::vector<std::size_t>> rows{{0, 1, 1, 2, 0, 0}, {1, 1, 1, 0, 0, 2}};
  for (const std::string decay : decays) {
    if (decay == "NONE") continue;
    const Program program(types("UINT32", "FLT64") + lines(decay) + query(fresh) + Lines{"SCORE;"});
    const auto expanded = expand(decay, container_of<unsigned int, double>(program).weights);
    double mean = -static_cast<double>(enumerate(expanded).log_partition);
    for (const auto& row : rows) {
      for (std::size_t e = 0; e < edges.size(); ++e) {
        mean += expanded.weights[expanded.at(e, row[edges[e].first], row[edges[e].second])] / 2;
      }
    }
    EXPECT_NEAR(program.real("RES"), mean, 1e-12) << decay;
  }
}

TEST_F(StrfProgram, PredictsByTheExpandedWeights) {
  const TempFile gaps{".csv", "a0,b0,a1,b1,a2,b2\n\n0,1,?,2,0,0\n"};
  const Program program(types("UINT32", "FLT64") + lines("STCUBIC") + query(gaps) +
                        Lines{"ALG LBP;", "PPX true;", "PREDICT;"});
  const auto expanded = expand("STCUBIC", container_of<unsigned int, double>(program).weights);
  const Values p = enumerate(expanded, {0, 1, -1, 2, 0, 0}).vertex[2];
  std::ostringstream expected;
  expected << "[0:" << p[0] << ";1:" << p[1] << "]";
  const auto& table = *reinterpret_cast<QZ::CategoricalData*>(program.word("DPT"));
  EXPECT_EQ(table.annotations.at({0, 2}), expected.str());
}

TEST_F(StrfProgram, SamplesByTheExpandedWeights) {
  const int count = 6000;
  std::string text = "a0,b0,a1,b1,a2,b2\n\n";
  for (int row = 0; row < count; ++row) text += "?,?,?,?,?,?\n";
  const TempFile open{".csv", text};
  for (const std::string threads : {"1", "2"}) {
    Program program(Lines{"OMP " + threads + ";"} + types("UINT32", "FLT64") + lines("STLINEAR") +
                    query(open));
    auto& drawn = *reinterpret_cast<QZ::CategoricalData*>(program.word("DPT"));
    // No state, and not missing: a cell to draw.
    std::fill_n(drawn.data, 6 * count, 65534);
    program.run({"PAM 0;", "GRE 30;", "SAMPLE;"});
    const auto exact =
        enumerate(expand("STLINEAR", container_of<unsigned int, double>(program).weights));
    for (std::size_t v = 0; v < 6; ++v) {
      Values found(exact.vertex[v].size());
      for (int row = 0; row < count; ++row) found.at(drawn.get(v, row)) += 1.0 / count;
      for (std::size_t x = 0; x < found.size(); ++x) {
        const double p = exact.vertex[v][x];
        EXPECT_NEAR(found[x], p, 5 * std::sqrt(p * (1 - p) / count)) << v;
      }
    }
  }
}

TEST_F(StrfProgram, ADecayBoundsTheStepByItsCurvature) {
  static double smallest = 0;
  static double step = 0;
  using State = QZ::OptState<unsigned int, double>;
  void (*const keep)(State*) = [](State* s) {
    smallest = s->min_step;
    step = s->step;
  };
  Program program(types("UINT32", "FLT64") + lines("STLINEAR"));
  program.write("CBU", reinterpret_cast<std::uint64_t>(keep));
  program.run({"ALG GD;", "STP 1e-4;", "MIO 4;", "ESTIMATE;"});
  // Squared factors of three times, times the blocks of one slice, times twice the edges.
  const double squares = 1 + (0.25 + 1) + (1.0 / 9 + 4.0 / 9 + 1);
  const double bound = squares * (2 * 2 + 3 * 3 + 3 * 2 * 3) * 2 * 11;
  EXPECT_NEAR(smallest, std::min(1e-4, 1 / (bound * 1.001)), 1e-12);
  EXPECT_NEAR(step, std::max(smallest, 1e-4 / 2), 1e-12);
}

TEST_F(StrfProgram, IntegersHaveOneModelWhateverTheRegisterSays) {
  const Lines run{"DEL DPT;", "INFER;"};
  const Program plain(types("UINT32", "UINT32") + lines("NONE") + run);
  const Program other(types("UINT32", "UINT32") + lines("STLINEAR") + run);
  EXPECT_EQ(other.word("LNZ"), plain.word("LNZ"));
}

TEST_F(StrfProgram, TwoSlicesAreTheFirstAndTheLast) {
  // The first four columns as two slices.
  const TempFile pair{".csv", "a0,b0,a1,b1\n\n0,0,0,0\n1,1,1,1\n0,2,1,2\n1,0,0,2\n"};
  const Program program(types("UINT32", "FLT64") +
                        Lines{"DFN '" + pair.path() + "';", "LDX DPT;", "TXX 2;", "GRA CHAIN;",
                              "LDX GPT;", "STGRAPH;", "REP STEXPONENTIAL;", "MODEL;", "SEED 3;",
                              "INITGAUSS;", "ALG JT;", "DEL DPT;", "INFER;"});
  const auto& container = container_of<unsigned int, double>(program);
  TestModel<unsigned int, double> model(4, {{0, 2}, {1, 3}, {0, 1}, {0, 3}, {2, 1}, {2, 3}},
                                        {2, 3, 2, 3});
  std::copy_n(container.weights, model.weights.size(), model.weights.begin());
  for (std::size_t k = 0; k < 6; ++k) {
    model.weights[model.offsets[5] + k] += std::exp(-1.0) * container.weights[model.offsets[2] + k];
  }
  expect_marginals(program, enumerate(model), 1e-12);
}

}  // namespace
