#pragma once

/// The road of `LBP` through linear values, and how its results are turned into the logarithms that
/// the class shows.

#include <vector>

#include "QZ/bp/lbp.h"

namespace QZ {

template <class idx_t, class val_t>
void LBP<idx_t, val_t>::infer(const idx_t& mode) {
  if (mode == 10) return this->infer_slow(mode);
  if (!infer_linear(mode != 0)) this->infer_as(*this, mode, false);
}

/// Returns false, with no result, where linear values do not serve.
template <class idx_t, class val_t>
bool LBP<idx_t, val_t>::infer_linear(bool max) {
  if (!linear_) {
    if (!LinearLayout::suits(*graph, states)) return false;
    linear_ = std::make_unique<Linear>(this->model());
  }
  this->message_count = static_cast<idx_t>(this->message_storage / 2);
  linear_->begin();
  bool done = true;
  val_t bethe = 0;
#pragma omp parallel
  {
    if (!linear_->iterate(this->model(), this->observed,
                          {max, this->epsilon, this->max_iterations})) {
#pragma omp single nowait
      done = false;
    } else {
      linear_->take_logarithms();
      const auto vertices = linear_->my_vertices();
      std::vector<val_t> scratch(4 * std::size_t{this->max_states});
      show_messages(vertices);
      val_t mine = 0;
      for (std::size_t v = vertices.begin; v < vertices.end; ++v) {
        mine += show_vertex(static_cast<idx_t>(v), scratch.data());
      }
#pragma omp barrier
      const auto edges = my_share<idx_t>(graph->edges());
      for (idx_t e = edges.begin; e < edges.end; ++e) mine -= show_edge(e, scratch.data());
      atomic_add(bethe, mine);
    }
  }
  if (!done) return false;
  this->iterations = linear_->iterations();
  // Exact moments of an earlier exhaustive run take the place of the edge tables.
  this->log_partition = this->moment_norms[0] != free_state<val_t> ? A_local() : bethe;
  return true;
}

/// Stores the messages to some vertices, the same in both generations.
template <class idx_t, class val_t>
void LBP<idx_t, val_t>::show_messages(Range<std::size_t> vertices) {
  const LinearLayout& layout = linear_->layout();
  for (std::size_t v = vertices.begin; v < vertices.end; ++v) {
    const val_t* incoming = linear_->log_messages(v);
    for (std::size_t k = layout.first_slot[v]; k < layout.first_slot[v + 1]; ++k) {
      val_t* shown = messages + this->message_offsets[layout.message_of_slot[k]];
      std::copy(incoming, incoming + states[v], shown);
      std::copy(incoming, incoming + states[v], shown + this->message_count);
      incoming += layout.stride(v);
    }
  }
}

/// Stores the beliefs of v and returns its term of the Bethe estimate.
template <class idx_t, class val_t>
val_t LBP<idx_t, val_t>::show_vertex(idx_t v, val_t* scratch) {
  const LinearLayout& layout = linear_->layout();
  const std::size_t count = states[v];
  const std::size_t degree = layout.first_slot[std::size_t{v} + 1] - layout.first_slot[v];
  const std::size_t stride = layout.stride(v);
  const val_t* incoming = linear_->log_messages(v);
  val_t* belief = beliefs + belief_offsets[v];
  std::fill_n(belief, count, val_t(0));
  for (std::size_t j = 0; j < degree; ++j) {
    for (std::size_t x = 0; x < count; ++x) belief[x] += incoming[j * stride + x];
  }
  val_t sum = 0;
  for (std::size_t x = 0; x < count; ++x) sum += belief[x];
  const val_t mean = sum / static_cast<val_t>(count);
  for (std::size_t x = 0; x < count; ++x) belief[x] -= mean;
  vertex_partition[v] = free_state<val_t>;

  exp_all(belief, scratch, count);
  val_t z = 0;
  val_t weighted = 0;
  for (std::size_t x = 0; x < count; ++x) {
    z += scratch[x];
    weighted += scratch[x] * belief[x];
  }
  // The sum of p log p with log p = belief - log z.
  const val_t h = weighted / z - std::log(z);
  return static_cast<val_t>(static_cast<long>(degree) - 1) * h;
}

/// Stores centre and partition of e and returns its term of the Bethe estimate.
///
/// With centred cavities a and b the table is exp(a(x)) exp(w(x, y)) exp(b(y)): the exponential of
/// the weight is known, so an edge costs an exponential per state and not one per state pair, and
/// the logarithm of a probability is a sum of known numbers.
template <class idx_t, class val_t>
val_t LBP<idx_t, val_t>::show_edge(idx_t e, val_t* scratch) {
  const EdgeTable table = edge_table(e);
  val_t* a = scratch;
  val_t* b = a + table.rows;
  val_t* exp_a = b + table.columns;
  val_t* exp_b = exp_a + table.rows;
  val_t mean_a = 0;
  val_t mean_b = 0;
  val_t mean_w = 0;
  for (std::size_t x = 0; x < table.rows; ++x) mean_a += a[x] = table.cavity_s(x);
  for (std::size_t y = 0; y < table.columns; ++y) mean_b += b[y] = table.cavity_t(y);
  const std::size_t pairs = table.rows * table.columns;
  for (std::size_t i = 0; i < pairs; ++i) mean_w += table.block[i];
  mean_a /= static_cast<val_t>(table.rows);
  mean_b /= static_cast<val_t>(table.columns);
  mean_w /= static_cast<val_t>(pairs);
  val_t reach = 0;
  for (std::size_t x = 0; x < table.rows; ++x) reach = std::max(reach, std::abs(a[x] -= mean_a));
  val_t reach_b = 0;
  for (std::size_t y = 0; y < table.columns; ++y) {
    reach_b = std::max(reach_b, std::abs(b[y] -= mean_b));
  }
  reach += reach_b;
  for (std::size_t i = 0; i < pairs; ++i) {
    if (reach + std::abs(table.block[i]) + std::abs(mean_w) > safe_exponent<val_t>) {
      normalize_edge(e);
      return edge_term(e);
    }
  }

  exp_all(a, exp_a, table.rows + table.columns);
  const val_t* potential = linear_->potential(e);
  const std::size_t stride = linear_->layout().stride(endpoints(*graph, e).t);
  val_t z = 0;
  val_t weighted = 0;
  for (std::size_t x = 0; x < table.rows; ++x) {
    const val_t* row = potential + x * stride;
    val_t row_sum = 0;
    val_t row_weighted = 0;
    for (std::size_t y = 0; y < table.columns; ++y) {
      const val_t term = row[y] * exp_b[y];
      row_sum += term;
      row_weighted += term * b[y];
    }
    z += exp_a[x] * row_sum;
    weighted += exp_a[x] * (row_weighted + row_sum * a[x]);
  }
  edge_centre[e] = mean_a + mean_w + mean_b;
  edge_partition[e] = z * std::exp(-mean_w);
  return weighted / z - std::log(z);
}

}  // namespace QZ
