/// Learning the graph of a model, counting included. One item of the trees and of the strongest
/// associations is one pair of columns in one row, and one of the cliques is one histogram of three
/// columns in one row.

#include <benchmark/benchmark.h>
#include <omp.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <set>
#include <vector>

#include "QZ/comb/subsets.h"
#include "QZ/data/joint_counter.h"
#include "QZ/graph/complete.h"
#include "scalar_exp.h"
#include "support/learned_model.h"

namespace {

using Index = unsigned int;
using Model = qz_test::OwnedModel<Index, double>;

constexpr unsigned long rows = 100000;
constexpr unsigned long states = 4;

/// Columns that copy their left neighbour two times out of three.
std::unique_ptr<qz_test::PlainTable> table_of(unsigned long columns) {
  return qz_test::random_table(rows, std::vector<unsigned long>(columns, states), 0, 1);
}

/// The distance between the columns of every edge, in order of the edges.
std::vector<Index> distances(const Model& model) {
  std::vector<Index> apart;
  for (Index e = 0; e < model->graph->edges(); ++e) {
    const auto [s, t] = endpoints(*model->graph, e);
    apart.push_back(t - s);
  }
  return apart;
}

/// Counts all pairs of 50 columns and has `learn` thin the complete graph, which is expected to
/// leave `edges` edges between neighbours.
template <class Learn>
void thin(benchmark::State& state, std::size_t edges, Learn&& learn) {
  constexpr Index columns = 50;
  omp_set_num_threads(static_cast<int>(state.range(0)));
  const auto table = table_of(columns);
  std::vector<Index> apart;
  for (auto _ : state) {
    const Model model = qz_test::counted_model<Index, double>(*table, new QZ::Kn<Index>(columns));
    learn(*model);
    state.PauseTiming();
    apart = distances(model);
    state.ResumeTiming();
  }
  if (apart != std::vector<Index>(edges, 1)) state.SkipWithError("not the neighbours");
  state.SetItemsProcessed(
      static_cast<long>(state.iterations() * rows * QZ::subset_count(columns, 2)));
}

void chow_liu(benchmark::State& state) {
  thin(state, 49, [](auto& model) { model.buildChowLiu(nullptr); });
}
BENCHMARK(chow_liu)
    ->ArgName("threads")
    ->Arg(1)
    ->Arg(2)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

void elementary(benchmark::State& state) {
  thin(state, 25, [](auto& model) { model.buildElemGM(0.02, nullptr); });
}
BENCHMARK(elementary)
    ->ArgName("threads")
    ->Arg(1)
    ->Arg(2)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

/// Whether the blocks of all edges are those of the table.
bool counted(const qz_test::PlainTable& table, const Model& model) {
  bool right = true;
  const Index n = model->graph->vertices();
  for (Index e = 0; e < model->graph->edges(); ++e) {
    const auto [s, t] = endpoints(*model->graph, e);
    const auto block =
        qz_test::plain_block<double>(table, {s, t}, qz_test::states_of<Index>(table));
    right = right && std::equal(block.begin(), block.end(), model->stats + model->offsets[n + e]);
  }
  return right;
}

constexpr Index clique_columns = 30;
constexpr Index clique_order = 3;

void cliques(benchmark::State& state) {
  omp_set_num_threads(static_cast<int>(state.range(0)));
  const auto table = table_of(clique_columns);
  bool right = true;
  for (auto _ : state) {
    const Model model = qz_test::counted_model<Index, double>(
        *table, new QZ::Kn<Index>(clique_columns), clique_order);
    const QZ::JointCounter<Index, double> joint(*table, clique_columns, model->states);
    model->buildCliques(0, clique_order, nullptr, std::cref(joint));
    state.PauseTiming();
    right = right && model->graph->edges() >= clique_columns - 1 && counted(*table, model);
    state.ResumeTiming();
  }
  if (!right) state.SkipWithError("wrong counts");
  state.SetItemsProcessed(static_cast<long>(state.iterations() * rows *
                                            QZ::subset_count(clique_columns, clique_order)));
}
BENCHMARK(cliques)
    ->ArgName("threads")
    ->Arg(1)
    ->Arg(2)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

/// The 4,060 histograms of three columns alone, from a counter that stands ready (1) or row by row
/// (0).
void triples(benchmark::State& state) {
  omp_set_num_threads(1);
  const auto table = table_of(clique_columns);
  auto counts = qz_test::states_of<Index>(*table);
  const QZ::JointCounter<Index, double> joint(*table, clique_columns, counts.data());
  const auto histogram = [&](std::set<Index> members) {
    std::set<Index>* const pointer = &members;
    const auto handle = reinterpret_cast<unsigned long>(&pointer);
    Index* of = counts.data();
    constexpr Index size = states * states * states;
    const std::unique_ptr<double[]> made(
        state.range(0) == 1
            ? joint(handle, size)
            : QZ::sumStatsOnlineSUI<Index, double>(table.get(), clique_columns, of, handle, size));
    return std::vector<double>(made.get(), made.get() + size);
  };
  const unsigned long count = QZ::subset_count(clique_columns, clique_order);
  for (auto _ : state) {
    for (unsigned long rank = 0; rank < count; ++rank) {
      Index members[clique_order];
      QZ::unrank(clique_columns, clique_order, rank, members);
      benchmark::DoNotOptimize(histogram({members, members + clique_order}).data());
    }
  }
  if (histogram({3, 8, 29}) != qz_test::plain_block<double>(*table, {3, 8, 29}, counts)) {
    state.SkipWithError("wrong counts");
  }
  state.SetItemsProcessed(static_cast<long>(state.iterations() * rows * count));
}
BENCHMARK(triples)->ArgName("counter")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

}  // namespace
