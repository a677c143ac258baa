#pragma once

/// Engines on test models, and their comparison with the references.

#include <gtest/gtest.h>
#include <omp.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "QZ/bp/lbp.h"
#include "support/enumeration_oracle.h"
#include "support/plain_propagation.h"

namespace qz_test {

/// Sets the default team size for the length of a scope.
class ThreadCount {
 public:
  explicit ThreadCount(int threads) : before_(omp_get_max_threads()) {
    omp_set_num_threads(threads);
  }
  ~ThreadCount() { omp_set_num_threads(before_); }
  ThreadCount(const ThreadCount&) = delete;
  ThreadCount& operator=(const ThreadCount&) = delete;

 private:
  int before_;
};

/// A propagation engine on a test model with bounds on its iterations.
template <class idx_t, class val_t>
class TestLbp : public QZ::LBP<idx_t, val_t> {
 public:
  TestLbp(TestModel<idx_t, val_t>& model, std::size_t max_iterations, double epsilon = 0)
      : QZ::LBP<idx_t, val_t>(model.graph.get(), model.states.data(), model.weights.data(),
                              nullptr) {
    this->max_iterations = static_cast<idx_t>(max_iterations);
    this->epsilon = static_cast<val_t>(epsilon);
  }
};

template <class idx_t, class val_t>
double vertex_probability(const QZ::InferenceAlgorithm<idx_t, val_t>& engine, std::size_t v,
                          std::size_t x) {
  val_t q = 0;
  val_t Z = 0;
  engine.vertex_marginal(static_cast<idx_t>(v), static_cast<idx_t>(x), q, Z);
  return static_cast<double>(q) / static_cast<double>(Z);
}

template <class idx_t, class val_t>
double edge_probability(const QZ::InferenceAlgorithm<idx_t, val_t>& engine, std::size_t e,
                        std::size_t xs, std::size_t xt) {
  val_t q = 0;
  val_t Z = 0;
  engine.edge_marginal(static_cast<idx_t>(e), static_cast<idx_t>(xs), static_cast<idx_t>(xt), q, Z);
  return static_cast<double>(q) / static_cast<double>(Z);
}

/// All marginals of the engine against exact ones.
template <class idx_t, class val_t>
void expect_exact_marginals(const QZ::InferenceAlgorithm<idx_t, val_t>& engine,
                            const TestModel<idx_t, val_t>& model, const ExactAnswers& exact,
                            double tolerance) {
  for (std::size_t v = 0; v < model.vertices(); ++v) {
    for (std::size_t x = 0; x < model.states[v]; ++x) {
      EXPECT_NEAR(vertex_probability(engine, v, x), exact.vertex[v][x], tolerance)
          << "vertex " << v << " state " << x;
    }
  }
  for (std::size_t e = 0; e < model.edges(); ++e) {
    const auto [s, t] = model.ends(e);
    for (std::size_t xs = 0; xs < model.states[s]; ++xs) {
      for (std::size_t xt = 0; xt < model.states[t]; ++xt) {
        EXPECT_NEAR(edge_probability(engine, e, xs, xt), exact.edge[model.at(e, xs, xt)], tolerance)
            << "edge " << e << " states " << xs << " " << xt;
      }
    }
  }
}

/// Two numbers that agree relative to their size, or are no numbers or infinite both.
inline void expect_close(double got, double want, double tolerance) {
  if (std::isfinite(want)) {
    EXPECT_NEAR(got, want, tolerance * std::max(1.0, std::abs(want)));
  } else {
    EXPECT_TRUE(got == want || (std::isnan(got) && std::isnan(want))) << got << " for " << want;
  }
}

/// Everything that the class shows after a run against the reference, the old generation included.
template <class idx_t, class val_t>
void expect_same_run(const QZ::LBP<idx_t, val_t>& engine, const TestModel<idx_t, val_t>& model,
                     const PlainPropagation<idx_t, val_t>& plain, double tolerance) {
  for (std::size_t e = 0; e < model.edges(); ++e) {
    for (int d : {0, 1}) {
      const std::size_t at = engine.message_offsets[2 * e + d];
      for (std::size_t y = 0; y < plain.fresh[e][d].size(); ++y) {
        SCOPED_TRACE("message " + std::to_string(2 * e + d));
        expect_close(engine.messages[at + y], plain.fresh[e][d][y], tolerance);
        EXPECT_EQ(engine.messages[at + y], engine.messages[at + y + engine.message_count]);
      }
    }
    SCOPED_TRACE("edge " + std::to_string(e));
    expect_close(engine.edge_centre[e], plain.centre[e], tolerance);
    expect_close(engine.edge_partition[e], plain.partition[e], tolerance);
  }
  for (std::size_t v = 0; v < model.vertices(); ++v) {
    SCOPED_TRACE("vertex " + std::to_string(v));
    for (std::size_t x = 0; x < model.states[v]; ++x) {
      expect_close(engine.beliefs[engine.belief_offsets[v] + x], plain.belief[v][x], tolerance);
    }
  }
  expect_close(engine.log_partition, plain.bethe(), tolerance);
  EXPECT_EQ(engine.iterations, plain.iterations);
}

}  // namespace qz_test
