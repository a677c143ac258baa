/// Prints the tables of docs/NUMERICS.md on sampled polynomial moments: how far log Z and the edge
/// marginals are from enumeration, by degree of the polynomial and number of samples.
///   moment_accuracy [TABLE]        default examples/titanic.csv

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "QZ/inference/sqm.h"
#include "QZ/inference/sqm_plus.h"
#include "accuracy.h"
#include "support/model_program.h"

namespace {

using accuracy::Errors;
// Wide enough to tell all tuples of the largest model apart.
using Index = unsigned long;
using Model = qz_test::TestModel<Index, double>;

constexpr Index least_degree = 2;
constexpr Index largest_degree = 8;
constexpr unsigned seeds = 5;
constexpr Index sample_counts[] = {100, 1000, 10000};
// Points at which the deviation of a polynomial is looked for.
constexpr Index scan = 2000;

struct Subject {
  std::string name;
  Model model;
  qz_test::ExactAnswers exact;
};

Subject grid(std::size_t side, double deviation) {
  std::mt19937 rng(5);
  char name[64];
  std::snprintf(name, sizeof name, "%zu x %zu grid, deviation %.1f", side, side, deviation);
  Model model(side * side, accuracy::grid_edges(side), std::vector<std::size_t>(side * side, 2));
  model.gaussian(deviation, rng);
  qz_test::ExactAnswers exact = enumerate(model);
  return {name, std::move(model), std::move(exact)};
}

/// A chain fitted to the table, as in examples/titanic.qz.
Subject fitted_chain(const std::string& table) {
  using namespace qz_test;
  const Program program(fit_lines(table, "CHAIN") +
                        std::vector<std::string>{"EPL 1e-12;", "ALG FL1;", "STP 1;", "MIO 5000;",
                                                 "EPO 1e-8;", "ESTIMATE;"});
  const auto& container = container_of<Index, double>(program);
  std::vector<std::pair<std::size_t, std::size_t>> edges;
  for (Index e = 0; e < container.graph->edges(); ++e) {
    const auto [s, t] = endpoints(*container.graph, e);
    edges.emplace_back(s, t);
  }
  Model model(container.graph->vertices(), edges,
              {container.states, container.states + container.graph->vertices()});
  std::copy_n(container.weights, model.weights.size(), model.weights.begin());
  ExactAnswers exact = enumerate(model);
  return {"Titanic chain", std::move(model), std::move(exact)};
}

/// The polynomial in place of the exponential, summed over all configurations.
Errors polynomial_errors(const Subject& subject, const double* coefficients, Index degree) {
  const Model& model = subject.model;
  std::vector<double> moments(model.weights.size());
  std::vector<std::size_t> x(model.vertices());
  double total = 0;
  for (bool more = true; more;) {
    double energy = 0;
    for (std::size_t e = 0; e < model.edges(); ++e) {
      energy += model.weights[model.at(e, x[model.ends(e).s], x[model.ends(e).t])];
    }
    double value = 0;
    for (Index d = degree + 1; d-- > 0;) value = value * energy + coefficients[d];
    total += value;
    for (std::size_t e = 0; e < model.edges(); ++e) {
      moments[model.at(e, x[model.ends(e).s], x[model.ends(e).t])] += value;
    }
    std::size_t v = 0;
    while (v < x.size() && ++x[v] == model.states[v]) x[v++] = 0;
    more = v < x.size();
  }
  const double exact_log = static_cast<double>(subject.exact.log_partition);
  Errors errors{std::abs(std::log(total) - exact_log), 0};
  for (std::size_t k = 0; k < moments.size(); ++k) {
    errors.marginal =
        std::max(errors.marginal, std::abs(moments[k] / total - subject.exact.edge[k]));
  }
  return errors;
}

/// A NaN where there is nothing to take it of.
double median(std::vector<double> values) {
  if (values.empty()) return std::nan("");
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

/// Medians over the seeds. A run that finds no new tuples has no answer and is left out.
template <class Engine>
Errors sampled_errors(Subject& subject, Index degree, Index samples) {
  std::vector<double> log_errors, marginal_errors;
  for (unsigned seed = 0; seed < seeds; ++seed) {
    std::mt19937 rng(seed);
    Engine engine(subject.model.graph.get(), subject.model.states.data(),
                  subject.model.weights.data(), &rng, degree);
    engine.max_iterations = samples;
    try {
      engine.infer(0);
    } catch (const std::logic_error&) {
      continue;
    }
    const Errors errors = accuracy::errors_of(engine, subject.model, subject.exact);
    log_errors.push_back(errors.log_partition);
    marginal_errors.push_back(errors.marginal);
  }
  return {median(log_errors), median(marginal_errors)};
}

void print(const Errors& errors) {
  if (std::isnan(errors.log_partition) && std::isnan(errors.marginal)) {
    std::printf(" none |");
    return;
  }
  std::printf(" %.2g, %.2g |", errors.log_partition, errors.marginal);
}

void print_header() {
  std::printf("| model | `KXX` |");
  for (const Index samples : sample_counts) std::printf(" %lu |", samples);
  std::printf("\n|---|---|---|---|---|\n");
}

void print_polynomials(std::vector<Subject>& subjects) {
  std::printf(
      "| model | `KXX` | width of the range | levelled error | largest deviation | "
      "log Z, marginals |\n");
  std::printf("|---|---|---|---|---|---|\n");
  for (Subject& subject : subjects) {
    for (Index degree = least_degree; degree <= largest_degree; ++degree) {
      std::mt19937 rng(0);
      QZ::SQM<Index, double> engine(subject.model.graph.get(), subject.model.states.data(),
                                    subject.model.weights.data(), &rng, degree);
      engine.init_sqm();
      double lower = 0;
      double upper = 0;
      engine.lowerupper(lower, upper);
      QZ::RealFunction<double> exponential = QZ::SQM<Index, double>::mexp;
      std::printf("%s %lu | %.3g | %.2g | %.2g |",
                  accuracy::row_start(subject.name, degree == least_degree).c_str(), degree,
                  upper - lower, engine.approximation_error,
                  engine.approximation->error(exponential, scan));
      print(polynomial_errors(subject, engine.coefficients, degree));
      std::printf("\n");
    }
  }
}

template <class Engine>
void print_samples(std::vector<Subject>& subjects) {
  print_header();
  for (Subject& subject : subjects) {
    for (Index degree = least_degree; degree <= largest_degree; ++degree) {
      std::printf("%s %lu |", accuracy::row_start(subject.name, degree == least_degree).c_str(),
                  degree);
      for (const Index samples : sample_counts) {
        print(sampled_errors<Engine>(subject, degree, samples));
      }
      std::printf("\n");
      std::fflush(stdout);
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<Subject> subjects;
  subjects.push_back(grid(2, 0.1));
  subjects.push_back(grid(2, 0.5));
  subjects.push_back(grid(3, 0.1));
  subjects.push_back(grid(3, 0.5));
  subjects.push_back(fitted_chain(argc > 1 ? argv[1] : "examples/titanic.csv"));
  std::printf("The polynomial alone\n\n");
  print_polynomials(subjects);
  std::printf("\nThe mean over draws (SQM)\n\n");
  print_samples<QZ::SQM<Index, double>>(subjects);
  std::printf("\nDistinct tuples (SQMplus)\n\n");
  print_samples<QZ::SQMplus<Index, double>>(subjects);
}
