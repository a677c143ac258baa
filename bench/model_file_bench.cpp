// Storing and loading model files. One item, and one byte, is a byte of the file.

#include <benchmark/benchmark.h>

#include <filesystem>
#include <vector>

#include "QZ/graph/chain.h"
#include "scalar_exp.h"
#include "support/small_model.h"
#include "support/temp_file.h"

namespace {

using idx_t = unsigned int;
using Model = qz_test::OwnedModel<idx_t, double>;

/// A chain; its statistics and weights make up most of the file where the states are many, and its
/// names where they are few.
Model chain_model(benchmark::State& state) {
  const auto vertices = static_cast<idx_t>(state.range(0));
  const std::vector<int> states(vertices, static_cast<int>(state.range(1)));
  return qz_test::numbered_model<idx_t, double>(new QZ::Chain<idx_t>(vertices), states);
}

void report_bytes(benchmark::State& state, const std::string& path) {
  const auto bytes = static_cast<long>(std::filesystem::file_size(path)) * state.iterations();
  state.SetBytesProcessed(bytes);
  state.SetItemsProcessed(bytes);
}

void store(benchmark::State& state) {
  const Model model = chain_model(state);
  const qz_test::TempFile file;
  for (auto _ : state) model->store(file.path());
  report_bytes(state, file.path());
  const Model again = qz_test::read_model<idx_t, double>(file.path());
  if (again->dim != model->dim || again->weights[again->dim - 1] != model->dim - 1.0) {
    state.SkipWithError("wrong weights");
  }
}

void load(benchmark::State& state) {
  const Model model = chain_model(state);
  const qz_test::TempFile file;
  model->store(file.path());
  idx_t dim = 0;
  for (auto _ : state) dim = qz_test::read_model<idx_t, double>(file.path())->dim;
  report_bytes(state, file.path());
  if (dim != model->dim) state.SkipWithError("wrong dimension");
}

void shapes(benchmark::internal::Benchmark* bench) {
  bench->ArgNames({"vertices", "states"})->Args({100000, 2})->Args({1000, 26});
}
BENCHMARK(store)->Apply(shapes);
BENCHMARK(load)->Apply(shapes);

}  // namespace
