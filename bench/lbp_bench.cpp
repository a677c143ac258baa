/// Loopy belief propagation. One item is one message entry in one iteration, a state of a directed
/// message: 2 * edges * states of them per iteration, and as many iterations per inference as ran,
/// at most 50. What is done before and after the iterations counts as well.

#include <benchmark/benchmark.h>
#include <omp.h>

#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "QZ/bp/lbp.h"
#include "propagation_models.h"
#include "scalar_exp.h"
#include "support/plain_propagation.h"

namespace {

using Index = unsigned int;

constexpr Index iterations = 50;

template <class val_t>
qz_test::TestModel<Index, val_t> make_model(const std::string& name) {
  auto made = propagation_model<Index, val_t>(name);
  std::mt19937 rng(3);
  made.gaussian(name == "complete_30_4_states" ? 0.3 : 0.5, rng);
  return made;
}

/// The largest distance between the messages after a few iterations and those of the plain rule.
template <class val_t>
double error(QZ::LBP<Index, val_t>& engine, const qz_test::TestModel<Index, val_t>& model) {
  qz_test::PlainPropagation<Index, val_t> plain(model, std::vector<val_t>(model.vertices(), -1));
  plain.run(false, 0, 2);
  engine.max_iterations = 2;
  engine.infer(0);
  double worst = 0;
  for (std::size_t e = 0; e < model.edges(); ++e) {
    for (int d : {0, 1}) {
      const val_t* shown = engine.messages + engine.message_offsets[2 * e + d];
      for (const val_t entry : plain.fresh[e][d]) {
        worst = std::max(worst, static_cast<double>(std::abs(entry - *shown++)));
      }
    }
  }
  return worst;
}

template <class val_t>
void infer(benchmark::State& state, const std::string& name) {
  auto model = make_model<val_t>(name);
  omp_set_num_threads(static_cast<int>(state.range(0)));
  QZ::LBP<Index, val_t> engine(model.graph.get(), model.states.data(), model.weights.data(),
                               nullptr);
  engine.epsilon = 0;
  if (error(engine, model) > (sizeof(val_t) == 4 ? 1e-4 : 1e-10)) {
    state.SkipWithError("the messages are not those of the plain rule");
  }
  engine.max_iterations = iterations;
  for (auto _ : state) engine.infer(0);
  const std::int64_t items = std::int64_t{engine.message_count} * engine.iterations;
  state.SetItemsProcessed(items * state.iterations());
  state.counters["time_per_item"] =
      benchmark::Counter(static_cast<double>(items), benchmark::Counter::kIsIterationInvariantRate |
                                                         benchmark::Counter::kInvert);
}

const bool registered = [] {
  for (const std::string name : {"grid_100x100_2_states", "grid_100x100_8_states",
                                 "complete_30_4_states", "tree_2000_10_states"}) {
    for (const int threads : {1, 2}) {
      benchmark::RegisterBenchmark(("lbp/double/" + name).c_str(),
                                   [name](benchmark::State& state) { infer<double>(state, name); })
          ->ArgName("threads")
          ->Arg(threads)
          ->UseRealTime();
    }
  }
  benchmark::RegisterBenchmark(
      "lbp/float/grid_100x100_2_states",
      [](benchmark::State& state) { infer<float>(state, "grid_100x100_2_states"); })
      ->ArgName("threads")
      ->Arg(1)
      ->UseRealTime();
  return true;
}();

}  // namespace
