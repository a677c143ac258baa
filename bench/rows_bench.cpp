/// PREDICT, SCORE and SAMPLE on a chain of 20 vertices with 3 states each. One item is one row.

#include <benchmark/benchmark.h>

#include <cmath>
#include <fstream>
#include <string>
#include <vector>

#include "QZ/data/categorical_data.h"
#include "QZ/io/model_container.h"
#include "scalar_exp.h"
#include "support/program.h"
#include "support/temp_file.h"

namespace {

constexpr unsigned long rows = 500;
constexpr unsigned long columns = 20;
constexpr unsigned long states = 3;

/// A fitted chain on one thread, with a table whose states follow each other.
struct Chain {
  Chain() {
    std::ofstream out(file.path());
    for (unsigned long c = 0; c < columns; ++c) out << (c == 0 ? "c" : ",c") << c;
    out << "\n\n";
    for (unsigned long r = 0; r < rows; ++r) {
      for (unsigned long c = 0; c < columns; ++c) {
        out << (c == 0 ? "" : ",") << (r + c * (r % 4)) % states;
      }
      out << '\n';
    }
    out.close();
    program.run({"OMP 1;", "SEED 1;", "DFN '" + file.path() + "';", "LDX DPT;", "GRA CHAIN;",
                 "LDX GPT;", "MODEL;", "INITGAUSS;"});
  }
  QZ::CategoricalData& table() {
    return *reinterpret_cast<QZ::CategoricalData*>(program.word("DPT"));
  }
  /// The mean log-likelihood from the container, with the partition function of the chain.
  double mean_log_likelihood() {
    const auto& model = *reinterpret_cast<QZ::IO<unsigned long, double>*>(program.word("MPT"));
    const auto weight = [&](unsigned long e, unsigned long x, unsigned long y) {
      return model.weights[e * states * states + x * states + y];
    };
    std::vector<double> forward(states, 1);
    for (unsigned long e = 0; e + 1 < columns; ++e) {
      std::vector<double> next(states, 0);
      for (unsigned long x = 0; x < states; ++x) {
        for (unsigned long y = 0; y < states; ++y)
          next[y] += forward[x] * std::exp(weight(e, x, y));
      }
      forward = next;
    }
    double sum = 0;
    for (unsigned long r = 0; r < rows; ++r) {
      for (unsigned long e = 0; e + 1 < columns; ++e) {
        sum += weight(e, table().get(e, r), table().get(e + 1, r));
      }
    }
    return sum / rows - std::log(forward[0] + forward[1] + forward[2]);
  }

  qz_test::TempFile file{".csv"};
  qz_test::Program program;
};

void run(benchmark::State& state, const std::vector<std::string>& setting, const char* operation) {
  Chain chain;
  chain.program.run(setting);
  const double expected = chain.mean_log_likelihood();
  chain.program.run({"SCORE;"});
  if (std::abs(chain.program.real("RES") - expected) > 1e-6) state.SkipWithError("wrong score");
  for (auto _ : state) {
    state.PauseTiming();
    // Every row has a gap, which the operations fill again.
    for (unsigned long r = 0; r < rows; ++r) {
      chain.table().set(QZ::CategoricalData::MIS_VAL, r % columns, r);
    }
    state.ResumeTiming();
    chain.program.run({operation});
  }
  state.SetItemsProcessed(state.iterations() * rows);
}

void predict(benchmark::State& state) { run(state, {}, "PREDICT;"); }
void predict_texts(benchmark::State& state) { run(state, {"PPX true;"}, "PREDICT;"); }
void score(benchmark::State& state) { run(state, {}, "SCORE;"); }
void sample_gibbs(benchmark::State& state) { run(state, {"PAM 0;"}, "SAMPLE;"); }
void sample_perturbed(benchmark::State& state) { run(state, {}, "SAMPLE;"); }

BENCHMARK(predict);
BENCHMARK(predict_texts);
BENCHMARK(score);
BENCHMARK(sample_gibbs);
BENCHMARK(sample_perturbed);

}  // namespace
