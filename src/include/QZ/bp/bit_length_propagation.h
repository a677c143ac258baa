#pragma once

/// Bit-length propagation in machine words, vertex after vertex.

#include <omp.h>

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <type_traits>
#include <vector>

#include "QZ/bp/bit_length_sweep.h"
#include "QZ/bp/clamped_message.h"
#include "QZ/bp/linear_layout.h"
#include "QZ/inference/pairwise_model.h"
#include "QZ/support/conversions.h"

namespace QZ {

/// The iterations of bit-length propagation on a copy of the model that is arranged by receiving
/// vertex. Gives the same bits as the rule that goes edge by edge.
///
/// Each thread owns a contiguous run of vertices and computes their incoming messages and beliefs
/// in one pass, from the generation before; one barrier separates the iterations.
///
/// Numbers are kept in words of 32 bits, narrower ones cut to their width. For 64-bit numbers that
/// is the same as long as nothing wraps, see `suits_words`; otherwise words have 64 bits. Weights
/// below 256 are kept as bytes.
template <class idx_t, class word_t>
class BitLengthPropagation {
 public:
  using Model = PairwiseModel<idx_t, idx_t>;

  /// Whether the model can be arranged, see `LinearLayout::suits`.
  static bool suits(const Model& model) {
    for (idx_t v = 0; v < model.graph->vertices(); ++v) {
      if (model.states[v] > most_fixed_point_terms) return false;
    }
    return LinearLayout::suits(*model.graph, model.states);
  }

  /// Whether words of this size hold all numbers of a run. The entries of a message differ by no
  /// more than the weights do, a belief is the sum of its messages, and an exponent stays below it
  /// by one message and above it by one weight.
  bool suits_words(idx_t largest_weight) const {
    if (sizeof(word_t) >= sizeof(idx_t)) return true;
    return largest_weight <= largest_byte && largest_degree_ < 1u << 22;
  }

  /// Arranges a model that suits. Each run reads its weights anew.
  explicit BitLengthPropagation(const Model& model);

  /// Makes room for the weights and the team of the next run; called outside the parallel region.
  void begin(idx_t largest_weight);

  /// The iterations, called by every thread of the team.
  void iterate(const Model& model, const idx_t* observed, bool max, idx_t max_iterations);

  /// How many iterations the last run took, and the largest change in the last one.
  idx_t iterations() const { return iterations_; }
  idx_t moved() const { return moved_; }

  /// Afterwards: calls `take(message, entries, count)` for the messages to the vertices of this
  /// thread, numbered 2e for the one to the second endpoint of e and 2e + 1 for the one to the
  /// first, and `take_belief(v, entries, count)`.
  template <class Take, class TakeBelief>
  void show(Take&& take, TakeBelief&& take_belief) const;

 private:
  /// What a thread tells the others, on cache lines of its own. The movement alternates between two
  /// places, so that a fast thread does not overwrite what a slow one still reads.
  struct alignas(128) Report {
    word_t moved[2] = {0, 0};
  };

  static constexpr idx_t largest_byte = 255;
  static constexpr bool bytes_suit =
      sizeof(word_t) == 4 && std::endian::native == std::endian::little;
  using cell_t = std::conditional_t<bytes_suit, unsigned char, word_t>;

  Range<std::size_t> my_vertices() const {
    return layout_.share(omp_get_thread_num(), omp_get_num_threads());
  }
  void start_vertex(const Model& model, const idx_t* observed, std::size_t v);
  template <class T>
  void copy_weights(const Model& model, std::size_t v, T* to) const;

  LinearLayout layout_;
  /// First weight of each vertex's slots, and the total.
  std::vector<std::size_t> first_weight_;
  bool as_bytes_ = true;
  std::vector<cell_t> bytes_;
  std::vector<word_t> words_;
  /// Two generations; after a run those at `current_` are the last ones.
  std::vector<word_t> messages_[2];
  std::vector<word_t> beliefs_[2];
  int current_ = 0;
  idx_t iterations_ = 0;
  idx_t moved_ = 0;
  std::size_t largest_stride_ = 1;
  std::size_t largest_degree_ = 0;
  std::vector<Report> reports_;
  std::vector<std::vector<word_t>> cavities_;
};

template <class idx_t, class word_t>
BitLengthPropagation<idx_t, word_t>::BitLengthPropagation(const Model& model)
    : layout_(*model.graph, model.states) {
  for (int generation : {0, 1}) {
    messages_[generation].resize(layout_.first_entry.back());
    beliefs_[generation].resize(layout_.first_belief.back());
  }
  std::size_t weights = 0;
  for (std::size_t v = 0; v < layout_.vertices(); ++v) {
    first_weight_.push_back(weights);
    for (std::size_t k = layout_.first_slot[v]; k < layout_.first_slot[v + 1]; ++k) {
      weights += layout_.slots[k].states * layout_.stride(v);
    }
    largest_stride_ = std::max(largest_stride_, layout_.stride(v));
    largest_degree_ =
        std::max<std::size_t>(largest_degree_, layout_.first_slot[v + 1] - layout_.first_slot[v]);
  }
  first_weight_.push_back(weights);
}

template <class idx_t, class word_t>
void BitLengthPropagation<idx_t, word_t>::begin(idx_t largest_weight) {
  as_bytes_ = bytes_suit && largest_weight <= largest_byte;
  if (as_bytes_) {
    bytes_.resize(first_weight_.back());
  } else {
    words_.resize(first_weight_.back());
  }
  reports_.assign(static_cast<std::size_t>(omp_get_max_threads()), Report{});
  cavities_.resize(reports_.size());
  // Padded, so that the ends of two threads' entries share no cache line.
  for (auto& cavity : cavities_) cavity.resize(largest_stride_ + 128 / sizeof(word_t));
}

template <class idx_t, class word_t>
void BitLengthPropagation<idx_t, word_t>::iterate(const Model& model, const idx_t* observed,
                                                  bool max, idx_t max_iterations) {
  const auto team = static_cast<std::size_t>(omp_get_num_threads());
  const auto rank = static_cast<std::size_t>(omp_get_thread_num());
  const auto range = my_vertices();
  for (std::size_t v = range.begin; v < range.end; ++v) start_vertex(model, observed, v);
#pragma omp barrier
  constexpr word_t mask = sizeof(idx_t) < sizeof(word_t)
                              ? static_cast<word_t>(std::numeric_limits<idx_t>::max())
                              : static_cast<word_t>(-1);
  const auto function =
      as_bytes_ ? bit_length_sweep_function<word_t, cell_t, mask>(layout_.uniform_states)
                : bit_length_sweep_function<word_t, word_t, mask>(layout_.uniform_states);
  const std::size_t first = first_weight_[range.begin];
  const void* weights = as_bytes_ ? static_cast<const void*>(bytes_.data() + first)
                                  : static_cast<const void*>(words_.data() + first);
  int current = 0;
  idx_t iterations = 0;
  word_t moved = 1;
  while (moved != 0 && iterations != max_iterations) {
    const BitLengthSweep<word_t> sweep{&layout_,
                                       range,
                                       weights,
                                       messages_[current].data(),
                                       messages_[1 - current].data(),
                                       beliefs_[current].data(),
                                       beliefs_[1 - current].data(),
                                       cavities_[rank].data(),
                                       max,
                                       iterations == 0};
    reports_[rank].moved[current] = function(sweep);
#pragma omp barrier
    moved = 0;
    for (std::size_t i = 0; i < team; ++i) moved = std::max(moved, reports_[i].moved[current]);
    current = 1 - current;
    ++iterations;
  }
#pragma omp single
  {
    current_ = current;
    iterations_ = iterations;
    moved_ = wrapping_cast<idx_t>(moved);
  }
}

/// Sets the belief of v and the messages to it to 0, and copies the weights of its slots. What
/// clamped neighbours send goes where the first iteration writes.
template <class idx_t, class word_t>
void BitLengthPropagation<idx_t, word_t>::start_vertex(const Model& model, const idx_t* observed,
                                                       std::size_t v) {
  const std::size_t stride = layout_.stride(v);
  const std::size_t entry = layout_.first_entry[v];
  const std::size_t entries = layout_.first_entry[v + 1] - entry;
  std::fill_n(beliefs_[0].data() + layout_.first_belief[v], stride, word_t(0));
  std::fill_n(messages_[0].data() + entry, entries, word_t(0));
  std::fill_n(messages_[1].data() + entry, entries, word_t(0));
  if (as_bytes_) {
    copy_weights(model, v, bytes_.data() + first_weight_[v]);
  } else {
    copy_weights(model, v, words_.data() + first_weight_[v]);
  }
  word_t* constant = messages_[1].data() + entry;
  for (std::size_t k = layout_.first_slot[v]; k < layout_.first_slot[v + 1]; ++k) {
    const std::size_t sender = layout_.sender[k];
    const bool clamped = is_clamped<idx_t>(observed[sender], model.states[sender]);
    layout_.slots[k].constant = clamped ? 1 : 0;
    if (clamped) {
      const std::size_t e = layout_.message_of_slot[k] / 2;
      const auto [s, t] = endpoints(*model.graph, static_cast<idx_t>(e));
      const BlockView block = block_view(model.weight_offsets[e], model.states[s], model.states[t],
                                         layout_.message_of_slot[k] % 2 == 1);
      for (std::size_t y = 0; y < block.receiver_states; ++y) {
        constant[y] = clamped_entry<idx_t>(model.weights, block, observed[sender], y);
      }
      const word_t least = *std::min_element(constant, constant + block.receiver_states);
      for (std::size_t y = 0; y < block.receiver_states; ++y) constant[y] -= least;
    }
    constant += stride;
  }
}

/// Writes the weights of the slots of v, one row per state of the sender, 0 behind the states.
template <class idx_t, class word_t>
template <class T>
void BitLengthPropagation<idx_t, word_t>::copy_weights(const Model& model, std::size_t v,
                                                       T* to) const {
  const std::size_t stride = layout_.stride(v);
  const std::size_t receivers = layout_.states[v];
  for (std::size_t k = layout_.first_slot[v]; k < layout_.first_slot[v + 1]; ++k) {
    const std::size_t e = layout_.message_of_slot[k] / 2;
    const bool to_first = layout_.message_of_slot[k] % 2 == 1;
    const std::size_t senders = layout_.slots[k].states;
    const idx_t* block = model.weights + model.weight_offsets[e];
    const std::size_t down = to_first ? 1 : receivers;
    const std::size_t right = to_first ? senders : 1;
    for (std::size_t y = 0; y < stride; ++y) {
      T* column = to + (sizeof(T) == 1 ? byte_place(y, stride) : y);
      for (std::size_t x = 0; x < senders; ++x) {
        column[x * stride] = y < receivers ? static_cast<T>(block[x * down + y * right]) : T(0);
      }
    }
    to += senders * stride;
  }
}

template <class idx_t, class word_t>
template <class Take, class TakeBelief>
void BitLengthPropagation<idx_t, word_t>::show(Take&& take, TakeBelief&& take_belief) const {
  const auto range = my_vertices();
  for (std::size_t v = range.begin; v < range.end; ++v) {
    const std::size_t count = layout_.states[v];
    const word_t* entries = messages_[current_].data() + layout_.first_entry[v];
    for (std::size_t k = layout_.first_slot[v]; k < layout_.first_slot[v + 1]; ++k) {
      take(layout_.message_of_slot[k], entries, count);
      entries += layout_.stride(v);
    }
    take_belief(v, beliefs_[current_].data() + layout_.first_belief[v], count);
  }
}

}  // namespace QZ
