// Counting sufficient statistics. One item is a cell of the table for a chain, and one pair of
// columns in one row for the complete graph and for a single pair.

#include <benchmark/benchmark.h>
#include <omp.h>

#include <memory>
#include <numeric>
#include <random>

#include "QZ/data/joint_histogram.h"
#include "QZ/data/statistics.h"
#include "QZ/graph/chain.h"
#include "QZ/graph/complete.h"
#include "scalar_exp.h"
#include "support/plain_table.h"

namespace {

using idx_t = unsigned int;

constexpr unsigned long rows = 100000;

/// Counts once and returns the sum of all counts.
double count_all(QZ::CategoricalData& table, const QZ::AbstractGraph<idx_t>& graph,
                 std::vector<idx_t>& states) {
  std::mt19937 rng(1);
  double* stats = nullptr;
  idx_t* offsets = nullptr;
  idx_t places = 0;
  idx_t length = 0;
  QZ::sumStats(&table, &graph, states.data(), &rng, stats, offsets, places, length);
  const double sum = std::accumulate(stats, stats + length, 0.0);
  delete[] stats;
  delete[] offsets;
  return sum;
}

void count_graph(benchmark::State& state, const QZ::AbstractGraph<idx_t>& graph,
                 unsigned long count, unsigned long items_per_row) {
  const unsigned long n = graph.vertices();
  const auto table = qz_test::random_table(rows, std::vector<unsigned long>(n, count), 0, 1);
  auto states = qz_test::states_of<idx_t>(*table);
  double sum = 0;
  for (auto _ : state) sum = count_all(*table, graph, states);
  // Each row adds one to every vertex and every edge.
  if (sum != static_cast<double>(rows * (n + graph.edges()))) state.SkipWithError("wrong counts");
  state.SetItemsProcessed(static_cast<long>(state.iterations() * rows * items_per_row));
}

void complete_graph(benchmark::State& state) {
  omp_set_num_threads(static_cast<int>(state.range(2)));
  const QZ::Kn<idx_t> graph(static_cast<idx_t>(state.range(0)));
  count_graph(state, graph, state.range(1), graph.edges());
}
BENCHMARK(complete_graph)
    ->ArgNames({"columns", "states", "threads"})
    ->Args({50, 2, 1})
    ->Args({50, 4, 1})
    ->Args({50, 4, 2})
    ->Args({50, 12, 1})
    ->Args({50, 24, 1})
    ->Args({50, 32, 1})
    ->Args({10, 200, 1})
    ->Args({50, 1, 1})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

void chain(benchmark::State& state) {
  omp_set_num_threads(static_cast<int>(state.range(1)));
  count_graph(state, QZ::Chain<idx_t>(50), state.range(0), 50);
}
BENCHMARK(chain)
    ->ArgNames({"states", "threads"})
    ->Args({4, 1})
    ->Args({4, 2})
    ->Args({100, 1})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

/// The two forms of a pair at the given number of states: this is where the limits of
/// `QZ::BitCounting` come from.
void one_pair(benchmark::State& state, QZ::CommonBits common, unsigned long most_states) {
  const auto count = static_cast<unsigned long>(state.range(0));
  const auto table = qz_test::random_table(1ul << 15, {count, count}, 0, 1);
  const auto states = qz_test::states_of<idx_t>(*table);
  QZ::ColumnBlock block(*table, 2, states.data(), {common, most_states});
  block.load(0, table->N);
  std::vector<double> counts(count * count);
  for (auto _ : state) QZ::add_pair_counts(block, 0, 1, counts.data());
  state.SetItemsProcessed(static_cast<long>(state.iterations() * table->N));
}
void pair_by_numbers(benchmark::State& state) { one_pair(state, QZ::common_bits_portable, 0); }
void pair_by_bits(benchmark::State& state) { one_pair(state, QZ::bit_counting().common, 64); }
void pair_by_portable_bits(benchmark::State& state) {
  one_pair(state, QZ::common_bits_portable, 64);
}
BENCHMARK(pair_by_numbers)->Arg(4)->Arg(8)->Arg(12)->Arg(24)->Arg(60)->Arg(100);
BENCHMARK(pair_by_bits)->Arg(2)->Arg(4)->Arg(8)->Arg(12)->Arg(24)->Arg(60);
BENCHMARK(pair_by_portable_bits)->Arg(2)->Arg(4)->Arg(6)->Arg(8)->Arg(12);

#if defined(__x86_64__)
void pair_by_popcnt_bits(benchmark::State& state) {
  if (!__builtin_cpu_supports("popcnt")) return state.SkipWithError("no such instruction");
  one_pair(state, QZ::common_bits_popcnt, 64);
}
BENCHMARK(pair_by_popcnt_bits)->Arg(2)->Arg(4)->Arg(8)->Arg(12)->Arg(24);
#endif

/// The histogram of three columns, per row.
void joint_histogram(benchmark::State& state) {
  omp_set_num_threads(1);
  const auto table = qz_test::random_table(rows, std::vector<unsigned long>(50, 4), 0, 1);
  auto states = qz_test::states_of<idx_t>(*table);
  const std::set<idx_t> vertices{3, 20, 41};
  const std::set<idx_t>* pointer = &vertices;
  idx_t* counts = states.data();
  for (auto _ : state) {
    delete[] QZ::sumStatsOnlineSUI<idx_t, double>(table.get(), 50, counts,
                                                  reinterpret_cast<unsigned long>(&pointer), 64);
  }
  state.SetItemsProcessed(static_cast<long>(state.iterations() * rows));
}
BENCHMARK(joint_histogram)->Unit(benchmark::kMicrosecond);

}  // namespace
