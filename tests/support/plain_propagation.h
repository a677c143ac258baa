#pragma once

/// Loopy belief propagation on clamped logarithms, one step after the other and on one thread: the
/// reference for the fast one.

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

#include "support/pairwise_models.h"

namespace qz_test {

template <class idx_t, class val_t>
class PlainPropagation {
 public:
  using Message = std::vector<val_t>;
  using Generation = std::vector<std::array<Message, 2>>;

  /// `observed` has one entry per vertex, -1 for a free one.
  PlainPropagation(const TestModel<idx_t, val_t>& model, std::vector<val_t> observed)
      : model_(model), observed_(std::move(observed)) {
    for (std::size_t e = 0; e < model.edges(); ++e) {
      const auto [s, t] = model.ends(e);
      fresh.push_back({Message(model.states[t], 0), Message(model.states[s], 0)});
    }
    for (std::size_t v = 0; v < model.vertices(); ++v) {
      belief.emplace_back(model.states[v], val_t(0));
    }
    centre.resize(model.edges());
    partition.resize(model.edges());
  }

  void run(bool max, val_t epsilon, std::size_t max_iterations, bool keep_messages = false) {
    for (auto& b : belief) std::fill(b.begin(), b.end(), val_t(0));
    if (!keep_messages) {
      for (auto& pair : fresh) {
        for (auto& m : pair) std::fill(m.begin(), m.end(), val_t(0));
      }
    }
    val_t delta = epsilon + 1;
    iterations = 0;
    while (delta > epsilon && delta != 0 && iterations < max_iterations) {
      const Generation old = fresh;
      for (std::size_t e = 0; e < model_.edges(); ++e) {
        send(e, 0, old, max);
        send(e, 1, old, max);
        normalise(fresh[e][0]);
        normalise(fresh[e][1]);
      }
      delta = movement(old);
      collect_beliefs();
      ++iterations;
    }
    for (std::size_t e = 0; e < model_.edges(); ++e) sum_edge(e);
  }

  double vertex_probability(std::size_t v, std::size_t x) const {
    val_t z = 0;
    for (const val_t b : belief[v]) z += linear(b);
    return static_cast<double>(linear(belief[v][x])) / static_cast<double>(z);
  }

  double edge_probability(std::size_t e, std::size_t xs, std::size_t xt) const {
    return static_cast<double>(linear(table(e, xs, xt) - centre[e])) /
           static_cast<double>(partition[e]);
  }

  double bethe() const {
    double total = 0;
    for (std::size_t v = 0; v < model_.vertices(); ++v) {
      const double others =
          static_cast<double>(model_.graph->num_neighbors(static_cast<idx_t>(v))) - 1;
      for (std::size_t x = 0; x < model_.states[v]; ++x) {
        const double p = vertex_probability(v, x);
        if (p != 0) total += others * p * std::log(p);
      }
    }
    for (std::size_t e = 0; e < model_.edges(); ++e) {
      const auto [s, t] = model_.ends(e);
      for (std::size_t xs = 0; xs < model_.states[s]; ++xs) {
        for (std::size_t xt = 0; xt < model_.states[t]; ++xt) {
          const double p = edge_probability(e, xs, xt);
          if (p != 0) {
            total -= p * (std::log(p) - static_cast<double>(model_.weights[model_.at(e, xs, xt)]));
          }
        }
      }
    }
    return total;
  }

  static val_t linear(val_t x) {
    const val_t p = std::exp(x);
    if (p == 0) return std::numeric_limits<val_t>::min();
    return std::min(p, std::numeric_limits<val_t>::max());
  }

  static val_t logarithm(val_t x) { return x == 0 ? val_t(0) : std::log(x); }

  /// fresh[e][0] goes to the second end of e, fresh[e][1] to the first.
  Generation fresh;
  std::vector<Message> belief;
  std::vector<val_t> centre;
  std::vector<val_t> partition;
  std::size_t iterations = 0;

 private:
  val_t weight(std::size_t e, int direction, std::size_t x, std::size_t y) const {
    return model_.weights[direction == 0 ? model_.at(e, x, y) : model_.at(e, y, x)];
  }

  void send(std::size_t e, int direction, const Generation& old, bool max) {
    const auto [s, t] = model_.ends(e);
    const std::size_t from = direction == 0 ? s : t;
    const std::size_t count = model_.states[from];
    const val_t seen = observed_[from];
    // Through a signed number, so that -1 is above every count.
    const idx_t state = static_cast<idx_t>(static_cast<std::int64_t>(seen));
    for (std::size_t y = 0; y < fresh[e][direction].size(); ++y) {
      val_t& out = fresh[e][direction][y];
      if (state < count) {
        const std::size_t row = seen < 0 ? 0 : state;
        out = weight(e, direction, row, y);
        if (seen > 0 && seen < 1) {
          out = std::fma(1 - seen, weight(e, direction, 0, y), seen * weight(e, direction, 1, y));
        }
        continue;
      }
      const val_t limit = std::numeric_limits<val_t>::max();
      val_t best = -limit;
      val_t sum = 0;
      for (std::size_t x = 0; x < count; ++x) {
        const val_t term = belief[from][x] - old[e][1 - direction][x] + weight(e, direction, x, y);
        best = term > best ? term : best;
        sum += linear(term);
      }
      if (sum == 0 || std::isnan(sum)) sum = std::numeric_limits<val_t>::min();
      out = max ? best : logarithm(sum);
      if (std::abs(out) > limit) out = limit;
    }
  }

  static void normalise(Message& message) {
    if (message.empty()) return;
    val_t mean = 0;
    for (const val_t m : message) mean += m;
    mean /= static_cast<val_t>(message.size());
    val_t z = 0;
    for (val_t& m : message) z += linear(m -= mean);
    for (val_t& m : message) m -= logarithm(z);
  }

  val_t movement(const Generation& old) const {
    val_t delta = 0;
    for (std::size_t e = 0; e < fresh.size(); ++e) {
      for (int d : {0, 1}) {
        for (std::size_t y = 0; y < fresh[e][d].size(); ++y) {
          delta = std::max(delta, std::abs(linear(fresh[e][d][y]) - linear(old[e][d][y])));
        }
      }
    }
    return delta;
  }

  void collect_beliefs() {
    for (auto& b : belief) std::fill(b.begin(), b.end(), val_t(0));
    for (std::size_t e = 0; e < model_.edges(); ++e) {
      const auto [s, t] = model_.ends(e);
      for (std::size_t x = 0; x < model_.states[t]; ++x) belief[t][x] += fresh[e][0][x];
      for (std::size_t x = 0; x < model_.states[s]; ++x) belief[s][x] += fresh[e][1][x];
    }
    for (auto& b : belief) {
      val_t mean = 0;
      for (const val_t x : b) mean += x;
      mean /= static_cast<val_t>(b.size());
      for (val_t& x : b) x -= mean;
    }
  }

  val_t table(std::size_t e, std::size_t xs, std::size_t xt) const {
    const auto [s, t] = model_.ends(e);
    return (belief[s][xs] - fresh[e][1][xs]) + model_.weights[model_.at(e, xs, xt)] +
           (belief[t][xt] - fresh[e][0][xt]);
  }

  void sum_edge(std::size_t e) {
    const auto [s, t] = model_.ends(e);
    val_t sum = 0;
    for (std::size_t xs = 0; xs < model_.states[s]; ++xs) {
      for (std::size_t xt = 0; xt < model_.states[t]; ++xt) sum += table(e, xs, xt);
    }
    centre[e] = sum / static_cast<val_t>(std::size_t{model_.states[s]} * model_.states[t]);
    partition[e] = 0;
    for (std::size_t xs = 0; xs < model_.states[s]; ++xs) {
      for (std::size_t xt = 0; xt < model_.states[t]; ++xt) {
        partition[e] += linear(table(e, xs, xt) - centre[e]);
      }
    }
  }

  const TestModel<idx_t, val_t>& model_;
  std::vector<val_t> observed_;
};

}  // namespace qz_test
