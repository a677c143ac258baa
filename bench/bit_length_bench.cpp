/// Belief propagation on integers, on the graphs of the floating engine's benchmark. One item is
/// one message entry in one iteration, as there; a run ends when no message changes, or after 50
/// iterations.
///
///   word     as the library runs it
///   plain    sums of powers of two in words, one entry after the other
///   sparse   every sum as a number of any size, the general form that the others stand in for

#include <benchmark/benchmark.h>
#include <omp.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <string>

#include "QZ/bp/bit_length_bp.h"
#include "propagation_models.h"
#include "scalar_exp.h"
#include "support/plain_bit_length.h"

namespace {

constexpr unsigned iterations = 50;

/// The engine without its fast form.
template <class T>
struct PlainEngine : QZ::BitLengthBP<T> {
  using QZ::BitLengthBP<T>::BitLengthBP;
  void infer(const T& mode) override {
    std::fill_n(this->messages, this->message_storage, T(0));
    this->infer_continue(mode);
  }
};

/// The engine without sums in words.
template <class T>
struct SparseEngine : QZ::BitLengthBP<T> {
  using QZ::BitLengthBP<T>::BitLengthBP;
  void infer(const T& mode) override { this->infer_as(*this, mode, false); }
  template <class Exponent>
  T sum_length(std::size_t count, Exponent&& exponent) const {
    T length = 0;
    for (std::size_t x = 0; x < count; ++x) length = this->map_other(exponent(x), x == 0);
    return length;
  }
};

/// Whether the messages after a few iterations are those of the plain rule.
template <class T>
bool right(QZ::BitLengthBP<T>& engine, const qz_test::TestModel<T, T>& model) {
  qz_test::PlainBitLength<T> plain(model, std::vector<T>(model.vertices(), QZ::all_ones<T>));
  plain.run(false, 3);
  engine.max_iterations = 3;
  engine.infer(0);
  bool same = true;
  for (std::size_t e = 0; e < model.edges(); ++e) {
    for (int d : {0, 1}) {
      const auto& expected = plain.fresh[e][d];
      same = same && std::equal(expected.begin(), expected.end(),
                                engine.messages + engine.message_offsets[2 * e + d]);
    }
  }
  return same;
}

template <class T, template <class> class Engine>
void infer(benchmark::State& state, const std::string& name) {
  auto model = propagation_model<T, T>(name);
  std::mt19937 rng(3);
  for (T& w : model.weights) w = static_cast<T>(rng() % 8);
  omp_set_num_threads(static_cast<int>(state.range(0)));
  Engine<T> engine(model.graph.get(), model.states.data(), model.weights.data(), nullptr);
  if (!right(engine, model)) state.SkipWithError("the messages are not those of the plain rule");
  engine.max_iterations = iterations;
  for (auto _ : state) engine.infer(0);
  const auto items = static_cast<std::int64_t>(engine.message_count) *
                     static_cast<std::int64_t>(engine.iterations);
  state.SetItemsProcessed(items * state.iterations());
  state.counters["time_per_item"] =
      benchmark::Counter(static_cast<double>(items), benchmark::Counter::kIsIterationInvariantRate |
                                                         benchmark::Counter::kInvert);
}

template <class T>
void add(const std::string& type, const std::string& name) {
  const auto in_form = [&](const std::string& form,
                           void (*run)(benchmark::State&, const std::string&), int threads) {
    auto* added = benchmark::RegisterBenchmark((form + "/" + type + "/" + name).c_str(),
                                               [=](benchmark::State& state) { run(state, name); });
    added->ArgName("threads")->Arg(threads);
    if (threads > 1) added->UseRealTime();
  };
  in_form("word", infer<T, QZ::BitLengthBP>, 1);
  in_form("word", infer<T, QZ::BitLengthBP>, 2);
  in_form("plain", infer<T, PlainEngine>, 1);
  in_form("sparse", infer<T, SparseEngine>, 1);
}

const bool registered = [] {
  add<unsigned char>("uint8", "grid_4x4_2_states");
  for (const std::string name : {"grid_60x60_2_states", "grid_20x20_8_states",
                                 "complete_30_4_states", "tree_300_10_states"}) {
    add<unsigned short>("uint16", name);
  }
  for (const std::string name : {"grid_100x100_2_states", "grid_100x100_8_states",
                                 "complete_30_4_states", "tree_2000_10_states"}) {
    add<unsigned int>("uint32", name);
    add<unsigned long>("uint64", name);
  }
  return true;
}();

}  // namespace
