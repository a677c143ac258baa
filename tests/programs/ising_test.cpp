/// Binary fields of biases and couplings, from a table to marginals, scores and samples.

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <limits>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "QZ/data/categorical_data.h"
#include "support/model_program.h"
#include "support/plain_ising.h"
#include "support/small_model.h"

namespace {

using namespace qz_test;

using Lines = std::vector<std::string>;
using Point = PlainIsing::Point;
using Rows = std::vector<std::vector<int>>;

// A small table: four columns, all sixteen rows and some of them more often.

/// States are numbered as they appear, so the first row is all zeros.
Rows small_rows() {
  Rows rows;
  for (int x = 0; x < 16; ++x) rows.push_back({x & 1, x >> 1 & 1, x >> 2 & 1, x >> 3 & 1});
  for (const int x : {0, 3, 3, 7, 15, 15, 15, 12, 9, 0, 0, 6}) rows.push_back(rows[x]);
  return rows;
}

std::string text_of(const Rows& rows) {
  std::string text = "a";
  for (std::size_t c = 1; c < rows[0].size(); ++c) text += "," + std::string(1, 'a' + char(c));
  text += "\n\n";
  for (const auto& row : rows) {
    for (std::size_t c = 0; c < row.size(); ++c)
      text += (c > 0 ? "," : "") + std::to_string(row[c]);
    text += "\n";
  }
  return text;
}

double share(const Rows& rows, auto&& claim) {
  double count = 0;
  for (const auto& row : rows) count += claim(row);
  return count / static_cast<double>(rows.size());
}

/// How often each vertex is in state 1, and both ends of each edge are.
Point moments_of(const Rows& rows, const PlainIsing& field) {
  Point moments;
  for (std::size_t v = 0; v < field.vertices; ++v) {
    moments.push_back(share(rows, [&](const auto& row) { return row[v] == 1; }));
  }
  for (const auto& [s, t] : field.edges) {
    moments.push_back(share(rows, [&](const auto& row) { return row[s] + row[t] == 2; }));
  }
  return moments;
}

class IsingProgram : public testing::Test {
 protected:
  Lines ring_lines() const {
    return {"DFN '" + table.path() + "';",
            "LDX DPT;",
            "GFN '" + adjacency.path() + "';",
            "GRA FILE;",
            "LDX GPT;",
            "REP ISING;",
            "MODEL;",
            "ALG JT;",
            "EPO 0;",
            "STP 4;",
            "MIO 2000;"};
  }
  static Lines query(const TempFile& file) {
    return {"DEL DPT;", "DEL DFN;", "DFN '" + file.path() + "';", "LDX DPT;"};
  }
  template <class I, class V>
  static Point point_of(const Program& program) {
    const auto& model = container_of<I, V>(program);
    const std::size_t n = model.graph->vertices() + model.graph->edges();
    return Point(model.weights, model.weights + n);
  }

  Rows rows = small_rows();
  TempFile table{".csv", text_of(rows)};
  TempFile adjacency{".csv", "0,1,0,1\n1,0,1,0\n0,1,0,1\n1,0,1,0\n"};
  const PlainIsing ring{4, {{0, 1}, {0, 3}, {1, 2}, {2, 3}}};
};

TEST_F(IsingProgram, EachOptimizerMeetsTheMomentsOfTheData) {
  const Point wanted = moments_of(rows, ring);
  for (const std::string method : {"GD", "PL1", "FL1"}) {
    for (const std::string index : {"UINT8", "UINT16", "UINT32", "UINT64"}) {
      for (const std::string value : {"FLT32", "FLT64", "FLTMPREC"}) {
        for (const std::string threads : {"1", "2"}) {
          SCOPED_TRACE(method + " " + index + " " + value + " " + threads);
          const Program program(types(index, value) + Lines{"OMP " + threads + ";"} + ring_lines() +
                                // Narrow indices count iterations in themselves.
                                Lines{index == "UINT8" ? "MIO 250;" : "MIO 2000;",
                                      "ALG " + method + ";", "ESTIMATE;", "DEL DPT;", "INFER;"});
          const double tolerance = index == "UINT8" ? 0.01 : value == "FLT32" ? 1e-4 : 1e-5;
          const double* pairs = program.marginals();
          const double* states = pairs + 16;
          for (std::size_t v = 0; v < 4; ++v) {
            EXPECT_NEAR(states[2 * v + 1], wanted[v], tolerance);
          }
          for (std::size_t e = 0; e < 4; ++e) {
            EXPECT_NEAR(pairs[4 * e + 3], wanted[4 + e], tolerance);
            EXPECT_NEAR(pairs[4 * e + 2] + pairs[4 * e + 3], wanted[ring.edges[e].first],
                        tolerance);
            EXPECT_NEAR(pairs[4 * e + 1] + pairs[4 * e + 3], wanted[ring.edges[e].second],
                        tolerance);
          }
        }
      }
    }
  }
}

TEST_F(IsingProgram, TheContainerKeepsTheCompactPointInItsFirstEntries) {
  const Program program(
      ring_lines() + Lines{"SEED 5;", "INITGAUSS;", "ALG GD;", "ESTIMATE;", "DEL DPT;", "INFER;"});
  const auto& model = container_of<unsigned long, double>(program);
  const Point point = point_of<unsigned long, double>(program);
  // The compact point has exactly one best place, where the data's moments are met.
  const auto answers = ring.infer(point);
  const Point wanted = moments_of(rows, ring);
  for (std::size_t k = 0; k < 8; ++k) EXPECT_NEAR(answers.moments[k], wanted[k], 1e-6);
  EXPECT_NEAR(program.real("LNZ"), answers.log_partition, 1e-9);
  // What stands behind is left from the last expansion: the blocks of edges 1-2 and 2-3, of which
  // the first carries the bias of vertex 2.
  ASSERT_EQ(model.dim, 16u);
  EXPECT_EQ(copy_of(model.weights + 8, 8),
            (Point{0, point[2], 0, point[6] + point[2], 0, 0, 0, point[7]}));
}

TEST_F(IsingProgram, InferenceLeavesTheWeightsOfTheContainerAlone) {
  Program program(ring_lines() + Lines{"SEED 5;", "INITGAUSS;", "DEL DPT;"});
  auto& model = container_of<unsigned long, double>(program);
  const auto before = copy_of(model.weights, 16);
  program.run({"INFER;"});
  EXPECT_EQ(copy_of(model.weights, 16), before);
  const auto answers = ring.infer(point_of<unsigned long, double>(program));
  EXPECT_NEAR(program.real("LNZ"), answers.log_partition, 1e-12);
  for (std::size_t k = 0; k < 16; ++k) {
    EXPECT_NEAR(program.marginals()[k], answers.pairs[k], 1e-12);
  }
}

TEST_F(IsingProgram, TheObjectiveSumsOverTheFirstBlockEntriesOnly) {
  const Program program(ring_lines() +
                        Lines{"ALG GD;", "MIO 30;", "ESTIMATE;", "DEL DPT;", "INFER;"});
  const Point point = point_of<unsigned long, double>(program);
  // Edges 0-1 and 0-3 have the first eight entries. They carry the biases of vertices 0 and 1, and
  // of vertex 3; that of vertex 2 lies in edge 1-2.
  const double block[] = {0, point[1], point[0], point[0] + point[1] + point[4],
                          0, point[3], 0,        point[3] + point[5]};
  double product = 0;
  for (int k = 0; k < 8; ++k) {
    const auto& [s, t] = ring.edges[k / 4];
    product += block[k] * share(rows, [&, s = s, t = t](const auto& row) {
                 return 2 * row[s] + row[t] == k % 4;
               });
  }
  EXPECT_NEAR(program.real("RES"), program.real("LNZ") - product, 1e-9);
}

TEST_F(IsingProgram, PlainStepsAreThoseOfTheCompactGradient) {
  const Program program(ring_lines() + Lines{"ALG GD;", "STP 0.5;", "MIO 4;", "ESTIMATE;"});
  const Point wanted = moments_of(rows, ring);
  Point x(8);
  for (int k = 0; k < 4; ++k) {
    const Point model = ring.infer(x).moments;
    const double step = std::max(0.5 / std::sqrt(k + 1.0), 1 / (8 * 1.001));
    for (std::size_t i = 0; i < 8; ++i) x[i] -= step * (model[i] - wanted[i]);
  }
  const Point found = point_of<unsigned long, double>(program);
  for (std::size_t i = 0; i < 8; ++i) EXPECT_NEAR(found[i], x[i], 1e-12) << i;
}

TEST_F(IsingProgram, AcceleratedStepsTakeTheGradientOfThePointLastDecoded) {
  const Program program(ring_lines() + Lines{"ALG FL1;", "STP 0.5;", "MIO 4;", "ESTIMATE;"});
  const Point wanted = moments_of(rows, ring);
  // Steps go from y, with the gradient at x.
  Point x(8), y(8);
  double momentum = 1;
  for (int k = 0; k < 4; ++k) {
    const Point model = ring.infer(x).moments;
    const Point last = x;
    const double step = std::max(0.5 / std::sqrt(k + 1.0), 1 / (8 * 1.001));
    for (std::size_t i = 0; i < 8; ++i) x[i] = y[i] - step * (model[i] - wanted[i]);
    const double next = (1 + std::sqrt(1 + 4 * momentum * momentum)) / 2;
    for (std::size_t i = 0; i < 8; ++i) y[i] = x[i] + (momentum - 1) / next * (x[i] - last[i]);
    momentum = next;
  }
  const Point found = point_of<unsigned long, double>(program);
  for (std::size_t i = 0; i < 8; ++i) EXPECT_NEAR(found[i], x[i], 1e-12) << i;
}

TEST_F(IsingProgram, AnotherFitGoesOnFromTheCompactPoint) {
  const Lines fit{"ALG GD;", "STP 0.1;", "MIO 1;", "ESTIMATE;"};
  const Program twice(ring_lines() + fit + Lines{"ESTIMATE;"});
  const Program restarted(ring_lines() + fit + Lines{"RST true;", "ESTIMATE;"});
  const Program once(ring_lines() + fit);
  const Point first = point_of<unsigned long, double>(once);
  const Point wanted = moments_of(rows, ring);
  const Point model = ring.infer(first).moments;
  const Point second = point_of<unsigned long, double>(twice);
  for (std::size_t i = 0; i < 8; ++i) {
    EXPECT_NEAR(second[i], first[i] - 0.1 * (model[i] - wanted[i]), 1e-12);
  }
  EXPECT_EQ((point_of<unsigned long, double>(restarted)), first);
}

TEST_F(IsingProgram, AStoredModelIsABinaryFieldAgain) {
  for (const std::string value : {"FLT32", "FLT64"}) {
    const TempFile file;
    const Program stored(types("UINT16", value) + ring_lines() +
                         Lines{"ALG FL1;", "ESTIMATE;", "DEL DPT;", "INFER;",
                               "MFN '" + file.path() + "';", "STORE MPT;"});
    const Program loaded(types("UINT16", value) +
                         Lines{"MFN '" + file.path() + "';", "LDX MPT;", "ALG JT;", "INFER;"});
    EXPECT_EQ(loaded.word("REP"), 12u);
    EXPECT_EQ(loaded.real("LNZ"), stored.real("LNZ"));
    EXPECT_EQ(copy_of(loaded.marginals(), 24), copy_of(stored.marginals(), 24));
  }
}

TEST_F(IsingProgram, ScoresRowsByTheExpandedWeights) {
  const TempFile fresh{".csv", text_of({{0, 0, 0, 1}, {1, 1, 0, 1}, {1, 0, 1, 1}})};
  const Program program(ring_lines() + Lines{"SEED 5;", "INITGAUSS;"} + query(fresh) +
                        Lines{"SCORE;"});
  const Point point = point_of<unsigned long, double>(program);
  double mean = 0;
  for (const std::size_t x : {8, 11, 13}) mean += ring.energy(point, x) / 3;
  mean -= ring.infer(point).log_partition;
  EXPECT_NEAR(program.real("RES"), mean, 1e-12);
}

TEST_F(IsingProgram, PredictsByTheExpandedWeights) {
  const TempFile gaps{".csv", "a,b,c,d\n\n1,?,1,0\n"};
  Program program(ring_lines() + Lines{"SEED 5;", "INITGAUSS;"} + query(gaps) +
                  Lines{"ALG LBP;", "PPX true;", "PREDICT;"});
  const Point point = point_of<unsigned long, double>(program);
  const double zero = std::exp(ring.energy(point, 5));
  const double one = std::exp(ring.energy(point, 7));
  std::ostringstream expected;
  expected << "[0:" << zero / (zero + one) << ";1:" << one / (zero + one) << "]";
  const auto& table = *reinterpret_cast<QZ::CategoricalData*>(program.word("DPT"));
  EXPECT_EQ(table.annotations.at({0, 1}), expected.str());
}

TEST_F(IsingProgram, SamplesByTheExpandedWeights) {
  const int count = 8000;
  std::string text = "a,b,c,d\n\n";
  for (int row = 0; row < count; ++row) text += "?,?,?,?\n";
  const TempFile open{".csv", text};
  for (const std::string threads : {"1", "2"}) {
    Program program(Lines{"OMP " + threads + ";"} + ring_lines() +
                    Lines{"SEED 5;", "SDE 1.5;", "INITGAUSS;"} + query(open));
    // An open cell of a floating type starts, and stays, at the state 0: numbers that are no state
    // ask for a draw.
    auto& table = *reinterpret_cast<QZ::CategoricalData*>(program.word("DPT"));
    std::fill_n(table.data, 4 * count, 65534);
    program.run({"PAM 0;", "GRE 30;", "SAMPLE;"});
    Rows drawn(count, std::vector<int>(4));
    for (std::size_t r = 0; r < count; ++r) {
      for (std::size_t c = 0; c < 4; ++c) drawn[r][c] = table.get(c, r);
    }
    const Point found = moments_of(drawn, ring);
    const Point wanted = ring.infer(point_of<unsigned long, double>(program)).moments;
    for (std::size_t k = 0; k < 8; ++k) {
      const double spread = std::sqrt(wanted[k] * (1 - wanted[k]) / count);
      EXPECT_NEAR(found[k], wanted[k], 5 * spread) << k;
    }
  }
}

TEST_F(IsingProgram, PerturbsNoFurtherThanThePointGoes) {
  Program program(ring_lines() + Lines{"SEED 5;", "INITGAUSS;", "PAM 1;", "SAMPLE;"});
  EXPECT_EQ(program.word("GNU"), rows.size());
  // Complete rows are clamped.
  const auto& table = *reinterpret_cast<QZ::CategoricalData*>(program.word("DPT"));
  for (std::size_t r = 0; r < rows.size(); ++r) {
    for (std::size_t c = 0; c < 4; ++c) EXPECT_EQ(table.get(c, r), rows[r][c]);
  }
}

TEST_F(IsingProgram, RequiresTwoStatesInEveryColumn) {
  const TempFile three{".csv", csv("a,b", {"x,0", "y,1", "z,0"})};
  const Lines model{
      "DFN '" + three.path() + "';", "LDX DPT;", "GRA CHAIN;", "LDX GPT;", "REP ISING;", "MODEL;"};
  for (const char* operation : {"ESTIMATE;", "INFER;", "SCORE;", "PREDICT;"}) {
    EXPECT_EQ(failure_of(model + Lines{"ALG GD;", operation}),
              out_of_range("Ising model requires binary states.", 7))
        << operation;
  }
}

TEST_F(IsingProgram, RequiresAnEdgeAtEveryColumn) {
  const TempFile apart{".csv", "0,1,0,0\n1,0,1,0\n0,1,0,0\n0,0,0,0\n"};
  EXPECT_EQ(failure_of({"DFN '" + table.path() + "';", "LDX DPT;", "GFN '" + apart.path() + "';",
                        "GRA FILE;", "LDX GPT;", "REP ISING;", "MODEL;", "INFER;"}),
            logic_error("Ising model requires an edge at every vertex.", 7));
}

TEST_F(IsingProgram, IntegersHaveOneModelWhateverTheRegisterSays) {
  const Lines run = fit_lines(table.path(), "CHAIN") + Lines{"DEL DPT;", "INFER;"};
  const Program plain(types("UINT32", "UINT32") + run);
  const Program other(types("UINT32", "UINT32") + Lines{"REP ISING;"} + run);
  EXPECT_EQ(other.word("LNZ"), plain.word("LNZ"));
}

// The survey of sixteen binary questions where it lies beside the source tree, otherwise a made-up
// one: people are able or not, and answers follow that and the answer before.

struct Survey {
  Rows rows;
  std::string text;
  bool published;
};

Survey numbered(std::string header, const std::vector<std::vector<std::string>>& cells,
                bool published) {
  Survey survey{{}, header + "\n\n", published};
  std::vector<std::map<std::string, int>> numbers(16);
  for (const auto& row : cells) {
    survey.rows.emplace_back();
    for (std::size_t c = 0; c < row.size(); ++c) {
      const int next = static_cast<int>(numbers[c].size());
      survey.rows.back().push_back(numbers[c].emplace(row[c], next).first->second);
      survey.text += (c > 0 ? "," : "") + row[c];
    }
    survey.text += "\n";
  }
  return survey;
}

Survey survey() {
  std::vector<std::vector<std::string>> cells;
  std::ifstream file(std::string(QZ_SOURCE_DIR) + "/../shared/data/tables/nltcs.train.csv");
  std::string header;
  if (std::getline(file, header)) {
    for (std::string line; std::getline(file, line);) {
      cells.emplace_back();
      std::istringstream in(line);
      for (std::string cell; std::getline(in, cell, ',');) cells.back().push_back(cell);
    }
    return numbered(header, cells, true);
  }
  std::mt19937 rng(3);
  for (int person = 0; person < 4000; ++person) {
    const bool able = rng() % 3 != 0;
    cells.emplace_back();
    for (int c = 0; c < 16; ++c) {
      const bool same = c > 0 && rng() % 3 == 0;
      const bool yes = same ? cells.back().back() == "1" : rng() % 10 < (able ? 2u : 7u);
      cells.back().push_back(yes ? "1" : "0");
    }
  }
  return numbered("q1,q2,q3,q4,q5,q6,q7,q8,q9,q10,q11,q12,q13,q14,q15,q16", cells, false);
}

class IsingOnASurvey : public testing::TestWithParam<std::string> {};

TEST_P(IsingOnASurvey, AcceleratedFitMeetsTheEdgeMarginalsOfTheData) {
  const Survey data = survey();
  const TempFile table(".csv", data.text);
  // The gradient that lags behind the point needs more steps than the default allows.
  const Program program(types("UINT32", "FLT64") +
                        Lines{"DFN '" + table.path() + "';", "LDX DPT;", "GRA " + GetParam() + ";",
                              "LDX GPT;", "REP ISING;", "MODEL;", "ALG JT;", "ALG FL1;", "STP 1;",
                              "EPO 0;", "MIO 20000;", "ESTIMATE;", "DEL DPT;", "INFER;"});
  const auto& model = container_of<unsigned int, double>(program);
  ASSERT_EQ(model.graph->vertices(), 16u);
  ASSERT_EQ(model.graph->edges(), 15u);
  double log_likelihood = -program.real("LNZ");
  for (std::size_t v = 0; v < 16; ++v) {
    log_likelihood +=
        model.weights[v] * share(data.rows, [&](const auto& row) { return row[v] == 1; });
  }
  for (unsigned int e = 0; e < 15; ++e) {
    const auto [s, t] = endpoints(*model.graph, e);
    for (int pair = 0; pair < 4; ++pair) {
      const double wanted = share(
          data.rows, [&, s = s, t = t](const auto& row) { return 2 * row[s] + row[t] == pair; });
      EXPECT_NEAR(program.marginals()[4 * e + pair], wanted, 1e-5) << "edge " << e;
      if (pair == 3) log_likelihood += model.weights[16 + e] * wanted;
    }
  }
  if (data.published && GetParam() == "CHOWLIU") {
    // Worked out without this library.
    EXPECT_NEAR(log_likelihood, -6.76005596, 1e-6);
  }
  EXPECT_LT(log_likelihood, -4);
}
INSTANTIATE_TEST_SUITE_P(Graphs, IsingOnASurvey, testing::Values("CHAIN", "CHOWLIU"));

}  // namespace
