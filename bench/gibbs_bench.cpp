/// Gibbs sampling. One item is one site update.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <random>
#include <vector>

#include "QZ/bp/lbp.h"
#include "QZ/inference/gibbs_rule.h"
#include "QZ/support/random.h"
#include "scalar_exp.h"
#include "support/pairwise_models.h"

namespace {

using Index = unsigned int;

template <class val_t>
struct Sampler {
  explicit Sampler(std::size_t states)
      : model(10000, qz_test::grid_edges(100, 100), std::vector<std::size_t>(10000, states)),
        engine(model.graph.get(), model.states.data(), model.weights.data(), &rng),
        state(10000) {
    std::mt19937 source(3);
    model.gaussian(0.5, source);
  }

  /// Whether a few sweeps end where the rule, applied vertex by vertex, ends.
  bool follows_the_rule() {
    constexpr Index sweeps = 5;
    std::mt19937 reference = rng;
    std::vector<val_t> expected = state;
    std::vector<val_t> potentials(engine.max_states);
    for (Index sweep = 0; sweep < sweeps; ++sweep) {
      for (Index v = 0; v < expected.size(); ++v) {
        const double u = QZ::draw_canonical(reference);
        expected[v] = static_cast<val_t>(
            QZ::gibbs_choice(engine.model(), expected.data(), v, u, potentials.data()));
      }
    }
    val_t* x = state.data();
    engine.GIBBS(x, sweeps, false);
    return state == expected && rng == reference;
  }

  std::mt19937 rng{1};
  qz_test::TestModel<Index, val_t> model;
  QZ::LBP<Index, val_t> engine;
  std::vector<val_t> state;
};

template <class val_t>
void gibbs(benchmark::State& state) {
  Sampler<val_t> sampler(static_cast<std::size_t>(state.range(0)));
  const Index sweeps = static_cast<Index>(state.range(1));
  if (!sampler.follows_the_rule()) state.SkipWithError("the choices are not those of the rule");
  val_t* x = sampler.state.data();
  for (auto _ : state) sampler.engine.GIBBS(x, sweeps, false);
  const std::int64_t items = std::int64_t{10000} * sweeps;
  state.SetItemsProcessed(items * state.iterations());
  state.counters["time_per_item"] =
      benchmark::Counter(static_cast<double>(items), benchmark::Counter::kIsIterationInvariantRate |
                                                         benchmark::Counter::kInvert);
}

void sizes(benchmark::internal::Benchmark* b) {
  b->ArgNames({"states", "sweeps"});
  b->Args({2, 100})->Args({2, 10})->Args({2, 1})->Args({4, 100});
}

BENCHMARK(gibbs<double>)->Name("gibbs/double/grid_100x100")->Apply(sizes);
BENCHMARK(gibbs<float>)->Name("gibbs/float/grid_100x100")->Apply(sizes);

}  // namespace
