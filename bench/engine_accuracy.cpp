/// Prints the tables of docs/NUMERICS.md on propagation: how far log Z and the edge marginals are
/// from enumeration, by the size of the weights and the value type.

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "QZ/bp/bit_length_bp.h"
#include "QZ/bp/hugin.h"
#include "QZ/bp/lbp.h"
#include "accuracy.h"

namespace {

using accuracy::Errors;
using Edges = std::vector<std::pair<std::size_t, std::size_t>>;
using Index = unsigned int;

struct Shape {
  const char* name;
  std::size_t vertices;
  Edges edges;
};

const Shape& tree() {
  static const Shape shape{
      "tree of 9", 9, {{0, 1}, {1, 2}, {1, 3}, {3, 4}, {0, 5}, {5, 6}, {5, 7}, {7, 8}}};
  return shape;
}
const Shape& grid() {
  static const Shape shape{"3 x 3 grid", 9, accuracy::grid_edges(3)};
  return shape;
}

constexpr unsigned seeds = 9;
constexpr Index iterations = 1000;

double median(std::vector<double> values) {
  std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
  return values[values.size() / 2];
}

template <class val_t>
using Model = qz_test::TestModel<Index, val_t>;

template <class val_t>
Model<val_t> gaussian_model(const Shape& shape, double deviation, unsigned seed) {
  std::mt19937 rng(seed);
  Model<val_t> model(shape.vertices, shape.edges, std::vector<std::size_t>(shape.vertices, 3));
  model.gaussian(deviation, rng);
  return model;
}

template <class val_t>
struct Loopy : QZ::LBP<Index, val_t> {
  explicit Loopy(Model<val_t>& model)
      : QZ::LBP<Index, val_t>(model.graph.get(), model.states.data(), model.weights.data(), nullptr,
                              0) {
    this->epsilon = static_cast<val_t>(1e-6);
    this->max_iterations = iterations;
  }
};

template <class val_t>
struct Exact : QZ::HuginAlgorithm<Index, val_t> {
  explicit Exact(Model<val_t>& model)
      : QZ::HuginAlgorithm<Index, val_t>(model.graph.get(), model.states.data(),
                                         model.weights.data(), nullptr) {}
};

/// Medians over the seeds; the log partition function relative to its size.
template <template <class> class Engine, class val_t>
Errors errors_of(const Shape& shape, double deviation) {
  std::vector<double> log_errors, marginal_errors;
  for (unsigned seed = 0; seed < seeds; ++seed) {
    Model<val_t> model = gaussian_model<val_t>(shape, deviation, seed);
    const qz_test::ExactAnswers answers = enumerate(model);
    Engine<val_t> engine(model);
    engine.infer(0);
    const Errors errors = accuracy::errors_of(engine, model, answers);
    log_errors.push_back(errors.log_partition /
                         std::abs(static_cast<double>(answers.log_partition)));
    marginal_errors.push_back(errors.marginal);
  }
  return {median(log_errors), median(marginal_errors)};
}

void print(const Errors& errors) {
  std::printf(" %.1g, %.1g |", errors.log_partition, errors.marginal);
}

void print_real_engines() {
  std::printf(
      "| model | deviation | `JT`, float | `JT`, double | `LBP`, float | `LBP`, double |\n");
  std::printf("|---|---|---|---|---|---|\n");
  for (const Shape* shape : {&tree(), &grid()}) {
    for (const double deviation : {0.5, 2.0, 10.0, 30.0, 100.0, 300.0}) {
      std::printf("%s %g |", accuracy::row_start(shape->name, deviation == 0.5).c_str(), deviation);
      print(errors_of<Exact, float>(*shape, deviation));
      print(errors_of<Exact, double>(*shape, deviation));
      print(errors_of<Loopy, float>(*shape, deviation));
      print(errors_of<Loopy, double>(*shape, deviation));
      std::printf("\n");
    }
  }
}

/// The model in base 2, for enumeration, and in integers of one width.
template <class idx_t>
Errors bit_length_errors(const Shape& shape, unsigned largest) {
  std::vector<double> log_errors, marginal_errors;
  for (unsigned seed = 0; seed < seeds; ++seed) {
    std::mt19937 rng(seed);
    const std::vector<std::size_t> counts(shape.vertices, 3);
    qz_test::TestModel<idx_t, idx_t> model(shape.vertices, shape.edges, counts);
    qz_test::TestModel<Index, double> base_two(shape.vertices, shape.edges, counts);
    for (std::size_t k = 0; k < model.weights.size(); ++k) {
      model.weights[k] = static_cast<idx_t>(rng() % (largest + 1));
      base_two.weights[k] = model.weights[k] * std::log(2.0);
    }
    const qz_test::ExactAnswers answers = enumerate(base_two);
    QZ::BitLengthBP<idx_t> engine(model.graph.get(), model.states.data(), model.weights.data(),
                                  nullptr);
    engine.max_iterations = static_cast<idx_t>(200);
    engine.infer(0);
    marginal_errors.push_back(accuracy::errors_of(engine, model, answers).marginal);
    const double bits = static_cast<double>(answers.log_partition) / std::log(2.0);
    log_errors.push_back(std::abs(static_cast<double>(engine.log_partition) - bits));
  }
  return {median(log_errors), median(marginal_errors)};
}

void print_integer_engine() {
  std::printf("| model | largest exponent | `UINT8` | `UINT16` | `UINT32` | `UINT64` |\n");
  std::printf("|---|---|---|---|---|---|\n");
  for (const Shape* shape : {&tree(), &grid()}) {
    for (const unsigned largest : {1u, 3u, 7u, 15u, 63u, 127u, 255u}) {
      std::printf("%s %u |", accuracy::row_start(shape->name, largest == 1).c_str(), largest);
      print(bit_length_errors<unsigned char>(*shape, largest));
      print(bit_length_errors<unsigned short>(*shape, largest));
      print(bit_length_errors<unsigned int>(*shape, largest));
      print(bit_length_errors<unsigned long>(*shape, largest));
      std::printf("\n");
    }
  }
}

}  // namespace

int main() {
  std::printf("Propagation in real numbers: relative error of log Z, error of the marginals\n\n");
  print_real_engines();
  std::printf("\nPropagation in bit lengths: error of log2 Z in bits, error of the marginals\n\n");
  print_integer_engine();
}
