#pragma once

/// The joint histograms of a table that is asked for many of them.

#include <omp.h>

#include <algorithm>
#include <memory>
#include <set>
#include <vector>

#include "QZ/data/column_block.h"
#include "QZ/data/joint_histogram.h"
#include "QZ/data/pair_counting.h"
#include "QZ/support/parallel.h"

namespace QZ {

/// The columns of a histogram, the last one as the fastest digit, and the distance of their digits.
struct HistogramColumn {
  unsigned long column;
  unsigned long states;
  unsigned long stride;
};
using HistogramColumns = std::vector<HistogramColumn>;

/// Adds the rows of the block by the states of `columns` to `table`.
inline void add_joint_counts_by_numbers(const ColumnBlock& block, const HistogramColumns& columns,
                                        unsigned long* table) {
  constexpr unsigned long most = 512;
  unsigned int entry[most];
  for (unsigned long begin = 0; begin < block.rows(); begin += most) {
    const unsigned long rows = std::min(most, block.rows() - begin);
    std::fill(entry, entry + rows, 0);
    for (const HistogramColumn& c : columns) {
      const unsigned short* state = block.numbers(c.column) + begin;
      const auto stride = static_cast<unsigned int>(c.stride);
      for (unsigned long i = 0; i < rows; ++i) entry[i] += stride * state[i];
    }
    for (unsigned long i = 0; i < rows; ++i) ++table[entry[i]];
  }
}

/// Adds the rows of the block to `table` by the states of the columns from `at` on, where the last
/// digit of a column stands for any of its states. Counts the rows of the bit set `rows`, which are
/// `count`; all of them if it is null.
inline void add_open_counts(const ColumnBlock& block, const HistogramColumns& columns,
                            std::size_t at, const ColumnBlock::Word* rows, unsigned long count,
                            unsigned long* table) {
  if (at == columns.size()) {
    *table += count;
    return;
  }
  const auto& [column, states, stride] = columns[at];
  for (unsigned long x = 0; x + 1 < states; ++x, table += stride) {
    const ColumnBlock::Word* set = block.bits(column, x);
    const unsigned long common =
        rows == nullptr ? block.counts(column)[x] : block.common(rows, set);
    if (rows == nullptr || at + 1 == columns.size()) {
      add_open_counts(block, columns, at + 1, set, common, table);
      continue;
    }
    ColumnBlock::Word both[ColumnBlock::most_words];
    for (unsigned long i = 0; i < block.words(); ++i) both[i] = rows[i] & set[i];
    add_open_counts(block, columns, at + 1, both, common, table);
  }
  add_open_counts(block, columns, at + 1, rows, count, table);
}

/// Turns the counts of any state at the last digits into those of the last state.
inline void close_counts(const HistogramColumns& columns, unsigned long size,
                         unsigned long* table) {
  for (const auto& [column, states, stride] : columns) {
    const unsigned long last = (states - 1) * stride;
    for (unsigned long group = 0; group < size; group += states * stride) {
      for (unsigned long i = group; i < group + last; ++i) {
        table[group + last + (i - group) % stride] -= table[i];
      }
    }
  }
}

/// Counts joint states as `sumStatsOnlineSUI` does, from a copy of the table that lies column by
/// column and serves any number of histograms, from any thread.
///
/// Columns of few states are intersected as bit sets, all others read as numbers, whichever reads
/// less. The table must stay as it was when the counter was made.
template <class idx_t, class val_t>
class JointCounter {
 public:
  /// Copies the first `columns` columns. Throws logic_error for a cell that is missing or beyond
  /// the states of its column.
  JointCounter(CategoricalData& data, unsigned long columns, idx_t* states,
               BitCounting counting = bit_counting())
      : data_(data), columns_(columns), states_(states) {
    for (unsigned long begin = 0; begin < data.N; begin += blocks_.back().rows()) {
      blocks_.emplace_back(data, columns, states, counting, true);
      blocks_.back().load(begin, std::min(begin + blocks_.back().capacity(), data.N));
    }
  }

  /// The histogram of a vertex set, see `StatFunction`.
  val_t* operator()(unsigned long set, const idx_t& size) const {
    const auto& vertices = **reinterpret_cast<const std::set<idx_t>* const*>(set);
    const HistogramColumns columns = layout(vertices, size);
    if (columns.empty()) {
      idx_t* states = states_;
      return sumStatsOnlineSUI<idx_t, val_t>(&data_, 0, states, set, size);
    }
    const bool bits = std::all_of(columns.begin(), columns.end(), [&](const HistogramColumn& c) {
      return blocks_[0].has_bits(c.column);
    });
    const std::vector<unsigned long> counts =
        count(columns, size, bits && blocks_[0].prefers_bits(size));
    auto histogram = std::make_unique<val_t[]>(size);
    for (std::size_t i = 0; i < counts.size(); ++i) add_ones(histogram[i], counts[i]);
    return histogram.release();
  }

 private:
  /// Empty if the blocks cannot serve the set: it has no vertex or one beyond the columns, `size`
  /// is not the product of its state counts, or there are no rows.
  HistogramColumns layout(const std::set<idx_t>& vertices, unsigned long size) const {
    HistogramColumns columns;
    unsigned __int128 stride = 1;
    for (auto v = vertices.rbegin(); v != vertices.rend(); ++v) {
      if (*v >= columns_ || stride > size) return {};
      columns.push_back({*v, states_[*v], static_cast<unsigned long>(stride)});
      stride *= states_[*v];
    }
    if (stride != size || size > most_entries || blocks_.empty()) return {};
    std::reverse(columns.begin(), columns.end());
    return columns;
  }

  /// The counts of all rows, each thread of a team with a table of its own. A caller that is in a
  /// team already counts alone.
  std::vector<unsigned long> count(const HistogramColumns& columns, unsigned long size,
                                   bool bits) const {
    const int most = omp_in_parallel() ? 1 : omp_get_max_threads();
    const auto threads = std::min(static_cast<unsigned long>(std::max(most, 1)), blocks_.size());
    std::vector<unsigned long> tables(threads * size);
#pragma omp parallel num_threads(static_cast <int>(threads))
    {
      unsigned long* table = tables.data() + omp_get_thread_num() * size;
      const auto [first, last] = my_share<unsigned long>(blocks_.size());
      for (unsigned long b = first; b < last; ++b) {
        if (bits) {
          add_open_counts(blocks_[b], columns, 0, nullptr, blocks_[b].rows(), table);
        } else {
          add_joint_counts_by_numbers(blocks_[b], columns, table);
        }
      }
    }
    for (unsigned long i = size; i < tables.size(); ++i) tables[i % size] += tables[i];
    tables.resize(size);
    if (bits) close_counts(columns, size, tables.data());
    return tables;
  }

  /// Histograms of so many entries fit the 32-bit places of `add_joint_counts_by_numbers`.
  static constexpr unsigned long most_entries = 1ul << 31;

  CategoricalData& data_;
  unsigned long columns_;
  idx_t* states_;
  std::vector<ColumnBlock> blocks_;
};

}  // namespace QZ
