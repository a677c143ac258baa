/// Every operation with teams of one, two and four threads: what it leaves behind does not depend
/// on their number, except for the order in which real numbers are summed.

#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include "QZ/data/categorical_data.h"
#include "QZ/graph/abstract_graph.h"
#include "support/model_program.h"

namespace {

using namespace qz_test;

using Lines = std::vector<std::string>;

constexpr int team_sizes[] = {1, 2, 4};

/// What a program leaves behind.
struct Trace {
  /// Counts, states, edges, cells: equal to the bit.
  std::vector<std::uint64_t> words;
  /// Sums of real numbers: equal up to rounding.
  std::vector<double> reals;
};

void add_table(const Program& program, Trace& trace) {
  const auto* table = reinterpret_cast<const QZ::CategoricalData*>(program.word("DPT"));
  if (table == nullptr) return;
  for (unsigned long row = 0; row < table->N; ++row) {
    for (unsigned long c = 0; c < table->n + table->H; ++c) {
      trace.words.push_back(table->get(c, row));
    }
  }
  for (const auto& [place, text] : table->annotations) {
    trace.words.push_back(place.first);
    trace.words.push_back(place.second);
  }
}

template <class idx_t>
void add_graph(const Program& program, Trace& trace) {
  const auto* graph = reinterpret_cast<const QZ::AbstractGraph<idx_t>*>(program.word("GPT"));
  if (graph == nullptr) return;
  for (idx_t e = 0; e < graph->edges(); ++e) {
    idx_t s = 0;
    idx_t t = 0;
    graph->edge(e, s, t);
    trace.words.push_back(s);
    trace.words.push_back(t);
  }
}

template <class val_t>
void add_values(const val_t* values, std::size_t count, Trace& trace) {
  if constexpr (std::is_integral_v<val_t>) {
    trace.words.insert(trace.words.end(), values, values + count);
  } else {
    trace.reals.insert(trace.reals.end(), values, values + count);
  }
}

template <class idx_t, class val_t>
void add_model(const Program& program, Trace& trace) {
  if (program.word("MPT") == 0) return;
  const auto& model = container_of<idx_t, val_t>(program);
  std::size_t entries = model.dim;
  for (idx_t v = 0; v < model.graph->vertices(); ++v) {
    trace.words.push_back(model.states[v]);
    entries += model.states[v];
  }
  // Counts are whole numbers in every type.
  for (idx_t i = 0; i < model.statsLength; ++i) {
    trace.words.push_back(static_cast<std::uint64_t>(model.stats[i]));
  }
  trace.words.insert(trace.words.end(), model.offsets, model.offsets + model.numOffsets);
  add_values(model.weights, model.weights == nullptr ? 0 : model.dim, trace);
  if (program.word("PPT") != 0) add_values(program.marginals(), entries, trace);
}

Trace trace_of(const Program& program) {
  Trace trace;
  for (const char* name : {"GVX", "GEX", "DIM", "NXX", "GRA", "GNU"}) {
    trace.words.push_back(program.word(name));
  }
  for (const char* name : {"RES", "LNZ"}) trace.reals.push_back(program.real(name));
  add_table(program, trace);
  QZ::dispatch_pair(static_cast<unsigned char>(program.word("IDX")),
                    static_cast<unsigned char>(program.word("VAL")),
                    [&]<class idx_t, class val_t>(QZ::type_pair<idx_t, val_t>) {
                      add_graph<idx_t>(program, trace);
                      add_model<idx_t, val_t>(program, trace);
                    });
  return trace;
}

/// 150 rows of six columns with two to four states, each close to its left neighbour; with
/// `missing`, some cells are open.
std::string random_rows(unsigned seed, bool missing) {
  std::mt19937 rng(seed);
  std::string text = "a,b,c,d,e,f\n\n";
  for (int row = 0; row < 150; ++row) {
    unsigned left = row % 4;
    for (unsigned column = 0; column < 6; ++column) {
      const unsigned states = 2 + column % 3;
      if (rng() % 4 == 0) left = static_cast<unsigned>(rng());
      const std::string cell = std::to_string(row < 4 ? row % states : left % states);
      text += (column == 0 ? "" : ",") + (missing && rng() % 6 == 0 ? "?" : cell);
    }
    text += "\n";
  }
  return text;
}

struct Types {
  std::string index;
  std::string value;
  bool integers() const { return index == value; }
};

void PrintTo(const Types& types, std::ostream* out) { *out << types.index << ' ' << types.value; }

class Threads : public testing::TestWithParam<Types> {
 protected:
  const TempFile table{".csv", random_rows(1, false)};
  const TempFile gaps{".csv", random_rows(2, true)};

  void TearDown() override { omp_set_num_threads(1); }

  Program& run(Program& program, int threads, const Lines& lines) const {
    program.run(types(GetParam().index, GetParam().value) +
                Lines{"OMP " + std::to_string(threads) + ";", "SEED 7;"} + lines);
    return program;
  }

  /// Runs the lines with each number of threads and compares the traces.
  void expect_same(const Lines& lines) const {
    Program alone;
    const Trace expected = trace_of(run(alone, 1, lines));
    for (const int threads : team_sizes) {
      Program program;
      compare(trace_of(run(program, threads, lines)), expected, threads);
    }
  }

  void compare(const Trace& found, const Trace& expected, int threads) const {
    EXPECT_EQ(found.words, expected.words) << threads << " threads";
    ASSERT_EQ(found.reals.size(), expected.reals.size()) << threads << " threads";
    const double rounding = GetParam().value == "FLT32" ? 1e-4 : 1e-10;
    for (std::size_t i = 0; i < expected.reals.size(); ++i) {
      const double size = std::max(std::abs(expected.reals[i]), std::abs(found.reals[i]));
      // Infinities are equal or not.
      if (found.reals[i] == expected.reals[i]) continue;
      EXPECT_LE(std::abs(found.reals[i] - expected.reals[i]), rounding * std::max(size, 1e-3))
          << "number " << i << ", " << threads << " threads";
    }
  }

  Lines fit(const std::string& graph) const { return fit_lines(table.path(), graph); }
  Lines weighted(const std::string& graph) const {
    return fit(graph) + Lines{"SDE 0.3;", "INITGAUSS;"};
  }
  /// Puts the table with open cells in place of the complete one.
  Lines open_cells() const {
    return {"DEL DPT;", "DEL DFN;", "DFN '" + gaps.path() + "';", "LDX DPT;"};
  }
  std::string integer_or(const std::string& optimizer, const std::string& other) const {
    return "ALG " + (GetParam().integers() ? optimizer : other) + ";";
  }
};

INSTANTIATE_TEST_SUITE_P(Pairs, Threads,
                         testing::Values(Types{"UINT32", "UINT32"}, Types{"UINT32", "FLT32"},
                                         Types{"UINT32", "FLT64"}, Types{"UINT64", "UINT64"},
                                         Types{"UINT64", "FLT64"}),
                         [](const auto& info) { return info.param.index + info.param.value; });

TEST_P(Threads, ModelAndStatsCountTheSame) {
  for (const std::string graph : {"CHAIN", "FULL", "STAR"}) {
    expect_same(fit(graph));
    expect_same(fit(graph) + Lines{"STATS;"});
  }
}

TEST_P(Threads, StatsImputeTheSame) {
  expect_same(fit_lines(gaps.path(), "FULL"));
  expect_same(fit("FULL") + open_cells() + Lines{"STATS;"});
}

TEST_P(Threads, LearnersFindTheSameGraph) {
  for (const std::string graph : {"CHOWLIU", "ELEMGM"}) expect_same(Lines{"PEL 0.6"} + fit(graph));
  expect_same(Lines{"KXX 3", "PEL 1.0"} + fit("CLIQUES"));
  expect_same(Lines{"KXX 2", "PEL 1.0"} + fit("RNDCLIQUES"));
}

TEST_P(Threads, WeightsStartTheSame) {
  expect_same(weighted("FULL"));
  expect_same(fit("FULL") + Lines{"INITZERO;"});
  if (!GetParam().integers()) expect_same(fit("CHAIN") + Lines{"CLOSEDFORM;"});
}

TEST_P(Threads, PropagationGivesTheSameMarginals) {
  for (const std::string graph : {"CHAIN", "FULL"}) {
    for (const std::string exact : {"SLW false;", "SLW true;"}) {
      const Lines lines = weighted(graph) + Lines{"ALG LBP;", "MIL 30", exact};
      expect_same(lines + Lines{"DEL DPT;", "INFER;"});
      expect_same(lines + open_cells() + Lines{"INFER;"});
    }
  }
}

TEST_P(Threads, OtherEnginesGiveTheSameMarginals) {
  if (GetParam().integers()) {
    expect_same(weighted("FULL") + Lines{"ALG LBP;", "DEL DPT;", "INFER;"});
    return;
  }
  expect_same(weighted("FULL") + Lines{"ALG JT;", "DEL DPT;", "INFER;"});
  expect_same(weighted("CHAIN") + Lines{"ALG SQM;", "KXX 2", "MIL 50", "DEL DPT;", "INFER;"});
}

TEST_P(Threads, EstimatesAgree) {
  const Lines lines = fit("FULL") + Lines{"MIO 15", "MIL 20", "EPO 0", "STP 0.5", "KXX 12"};
  for (const std::string optimizer : {"GD", "PL1", "FL1"}) {
    expect_same(lines + Lines{integer_or("IGD", optimizer), "LAM 0.01", "ESTIMATE;"});
  }
  if (GetParam().integers()) expect_same(lines + Lines{"ALG EA11;", "ESTIMATE;"});
}

TEST_P(Threads, EstimatesOfOtherModelsAgree) {
  if (GetParam().integers()) {
    expect_same(fit("CHAIN") + Lines{"MIO 30", "KXX 8", "ALG IGD;", "ESTIMATE;"});
    return;
  }
  const Lines few{"MIO 5", "MIL 10", "EPO 0", "STP 0.2", "ALG FL1;"};
  const TempFile binary(".csv", csv("a,b,c,d", {"0,0,1,1", "1,1,0,0", "0,1,1,0", "1,1,1,1"}));
  expect_same(Lines{"REP ISING;"} + fit_lines(binary.path(), "FULL") + few + Lines{"ESTIMATE;"});
  expect_same(Lines{"TXX 2", "REP STLINEAR;", "DFN '" + binary.path() + "';", "LDX DPT;",
                    "GRA CHAIN;", "LDX GPT;", "STGRAPH;", "MODEL;"} +
              few + Lines{"ESTIMATE;"});
}

TEST_P(Threads, PredictionsAgree) {
  expect_same(weighted("CHAIN") + open_cells() + Lines{"MIL 30", "PPX true;", "PREDICT;"});
}

TEST_P(Threads, ScoresAgree) {
  expect_same(weighted("FULL") + Lines{"MIL 30", "SCORE;"});
  expect_same(weighted("CHAIN") + open_cells() + Lines{"MIL 30", "SCORE;"});
}

TEST_P(Threads, GraphConversionsAgree) {
  const Lines graph{"GVX 9;", "GRA GRID;", "LDX GPT;"};
  expect_same(graph + Lines{"TXX 3;", "STGRAPH;"});
  expect_same(graph + Lines{"JUNCTIONTREE;"});
  expect_same(Lines{"GVX 40;", "GRA FULL;", "LDX GPT;"});
  expect_same(Lines{"GVX 8;", "GRA CHAIN;", "LDX GPT;", "SNK 2;", "BOLTZMANNTREE;"});
}

TEST_P(Threads, HiddenColumnsGetTheSameLabels) {
  const auto trace = [&](int threads) {
    Program program;
    program.write("LPT", reinterpret_cast<std::uint64_t>(new std::vector<unsigned long>{6, 3, 0}));
    run(program, threads, {"DFN '" + table.path() + "'", "GRA RBM;", "LDX DPT;", "LDX GPT;"});
    program.run({"LSN 3", "INITLATENT;", "MODEL;"});
    return trace_of(program);
  };
  const Trace expected = trace(1);
  for (const int threads : team_sizes) compare(trace(threads), expected, threads);
}

// The rows that a thread draws come from its own seed, so their states may differ.
TEST_P(Threads, SamplesKeepWhatIsKnownAndFillTheRest) {
  const auto cells = [](const Program& program) {
    const auto& found = *reinterpret_cast<const QZ::CategoricalData*>(program.word("DPT"));
    std::vector<unsigned long> list;
    for (unsigned long row = 0; row < found.N; ++row) {
      for (unsigned long c = 0; c < found.n; ++c) list.push_back(found.get(c, row));
    }
    return list;
  };
  for (const std::string method : {"PAM 0;", "PAM 0.5;"}) {
    for (const int threads : team_sizes) {
      Program program;
      run(program, threads, weighted("CHAIN") + open_cells());
      const auto before = cells(program);
      program.run({method, "GRE 3", "SAMPLE;"});
      const auto after = cells(program);
      ASSERT_EQ(after.size(), before.size());
      for (std::size_t i = 0; i < before.size(); ++i) {
        const unsigned long states = 2 + i % 6 % 3;
        EXPECT_TRUE(before[i] < states ? after[i] == before[i] : after[i] < states)
            << "cell " << i << ", " << threads << " threads";
      }
    }
  }
}

TEST(DiscretizeThreads, LearnAndApplyTheSameBins) {
  std::mt19937 rng(5);
  std::normal_distribution<double> normal;
  std::vector<double> column(5000);
  for (double& x : column) x = std::round(normal(rng) * 200) / 50;
  const auto discretized = [&](int threads) {
    omp_set_num_threads(threads);
    std::vector<double> in = column;
    std::vector<unsigned short> out(2 * in.size());
    const DiscretizationModel model = discretize(out.data(), in.data(), in.size(), 20);
    discretize_precomputed(out.data() + in.size(), in.data(), in.size(), model);
    std::vector<double> reals(model.intervals, model.intervals + 2 * model.num_intervals);
    reals.insert(reals.end(), model.moments, model.moments + 5 * model.num_moments);
    delete[] model.intervals;
    delete[] model.moments;
    return std::pair(out, reals);
  };
  const auto expected = discretized(1);
  for (const int threads : team_sizes) {
    const auto found = discretized(threads);
    EXPECT_EQ(found.first, expected.first);
    ASSERT_EQ(found.second.size(), expected.second.size());
    for (std::size_t i = 0; i < expected.second.size(); ++i) {
      EXPECT_NEAR(found.second[i], expected.second[i], 1e-10) << i;
    }
  }
  omp_set_num_threads(1);
}

}  // namespace
