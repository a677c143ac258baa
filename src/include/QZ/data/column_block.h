#pragma once

/// Some rows of a data table, turned so that a column lies together.

#include <algorithm>
#include <atomic>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "QZ/data/categorical_data.h"
#include "QZ/data/common_bits.h"
#include "QZ/support/parallel.h"

namespace QZ {

/// The rows of one block, column by column, in the form that counting pairs of columns wants.
///
/// A column of few states is a bit set per state but the last, whose rows are those in no other; a
/// column of many states is an array of numbers. If any column is of the second kind, all have
/// numbers, so that any two columns have a form in common.
class ColumnBlock {
 public:
  using Word = unsigned long;

  /// Ready for the first `columns` columns, with states[c] states each. No rows yet. With
  /// `numbers_wanted` all columns have numbers, whatever their states.
  template <class idx_t>
  ColumnBlock(const CategoricalData& data, unsigned long columns, const idx_t* states,
              BitCounting counting = bit_counting(), bool numbers_wanted = false)
      : data_(data), counting_(counting), columns_(columns), numbers_wanted_(numbers_wanted) {
    unsigned long sets = 0;
    unsigned long counts = 0;
    for (unsigned long c = 0; c < columns; ++c) {
      const unsigned long count = states[c];
      const bool few = count <= counting.most_states;
      columns_[c] = {count, few, sets, counts};
      if (!few) numbers_wanted_ = true;
      if (few) sets += count > 0 ? count - 1 : 0;
      if (few) counts += count;
    }
    // A block stays within a few caches' worth of memory however many columns there are.
    constexpr unsigned long budget = 1ul << 25;
    const unsigned long row_bytes = 1 + sets / 8 + (numbers_wanted_ ? 2 * columns : 0);
    capacity_ = std::clamp(budget / row_bytes, 16 * tile, (most_words - 1) * tile);
    capacity_ = std::min(capacity_, data.N) / tile * tile + tile;
    bits_.resize(sets * (capacity_ / tile));
    counts_.resize(counts);
    if (numbers_wanted_) numbers_.resize(columns * capacity_);
  }

  /// The most words of a bit set.
  static constexpr unsigned long most_words = (1ul << 9) + 1;

  unsigned long columns() const { return columns_.size(); }

  /// The most rows a block takes.
  unsigned long capacity() const { return capacity_; }

  /// Takes in the rows [begin, end), with a team of threads. Throws logic_error if a cell is not
  /// below the states of its column.
  void load(unsigned long begin, unsigned long end) {
    begin_ = begin;
    rows_ = end - begin;
    std::atomic<unsigned long> misfit{columns()};
#pragma omp parallel
    {
      const auto [first, last] = my_share<unsigned long>((rows_ + tile - 1) / tile);
      for (unsigned long t = first; t < last; ++t) {
        for (unsigned long c = 0; c < columns(); ++c) {
          if (!load_tile(t, c)) misfit.store(c, std::memory_order_relaxed);
        }
      }
    }
    if (misfit != columns()) {
      throw std::logic_error("a cell of column " + std::to_string(misfit) +
                             " holds a category beyond the states of its vertex");
    }
#pragma omp parallel
    {
      const auto [first, last] = my_share<unsigned long>(columns());
      for (unsigned long c = first; c < last; ++c) count_states(c);
    }
  }

  unsigned long rows() const { return rows_; }
  unsigned long words() const { return (rows_ + tile - 1) / tile; }
  unsigned long states(unsigned long c) const { return columns_[c].states; }

  /// Column `c` has bit sets, and the counts of its states.
  bool has_bits(unsigned long c) const { return columns_[c].few; }

  /// The rows with column `c` in state `x`, which is not the last one.
  const Word* bits(unsigned long c, unsigned long x) const {
    return &bits_[(columns_[c].first_set + x) * (capacity_ / tile)];
  }

  /// How many rows of the block have column `c` in state x, for each x.
  const unsigned long* counts(unsigned long c) const { return &counts_[columns_[c].first_count]; }

  /// Whether counting `counts` intersections of bit sets takes no longer than reading numbers.
  bool prefers_bits(unsigned long counts) const {
    return counts <= counting_.most_states * counting_.most_states;
  }

  /// The states of column `c`, row by row, unless all columns have bit sets and numbers were not
  /// asked for.
  const unsigned short* numbers(unsigned long c) const { return &numbers_[c * capacity_]; }

  unsigned long common(const Word* a, const Word* b) const {
    return counting_.common(a, b, words());
  }

 private:
  /// Rows in a word.
  static constexpr unsigned long tile = 64;

  struct Column {
    unsigned long states = 0;
    bool few = false;
    unsigned long first_set = 0;
    unsigned long first_count = 0;
  };

  /// Loads 64 rows of a column; false if a cell does not fit.
  bool load_tile(unsigned long t, unsigned long c) {
    const bool visible = c < data_.n;
    const unsigned long stride = visible ? data_.n : data_.H;
    const unsigned long row = begin_ + t * tile;
    const unsigned short* cell =
        visible ? data_.data + row * stride + c : data_.hidden + row * stride + (c - data_.n);
    const unsigned long rows = std::min(tile, rows_ - t * tile);
    const unsigned long states = columns_[c].states;
    unsigned short taken[tile];
    unsigned short highest = 0;
    for (unsigned long i = 0; i < rows; ++i) {
      taken[i] = cell[i * stride];
      highest = std::max(highest, taken[i]);
    }
    if (highest >= states) return false;
    // The rows that fill up the last word are in the last state, which has no bit set.
    const auto filler = static_cast<unsigned short>(states - 1);
    std::fill(taken + rows, taken + tile, filler);
    if (numbers_wanted_) std::copy(taken, taken + rows, &numbers_[c * capacity_ + t * tile]);
    if (columns_[c].few) spread(taken, c, t);
    return true;
  }

  /// Sets word `t` of each bit set of a column from 64 states below 256.
  void spread(const unsigned short* taken, unsigned long c, unsigned long t) {
    unsigned char bytes[tile];
    for (unsigned long i = 0; i < tile; ++i) bytes[i] = static_cast<unsigned char>(taken[i]);
    Word eights[8];
    std::memcpy(eights, bytes, tile);
    const unsigned long last = columns_[c].states - 1;
    Word planes[8];
    unsigned long digits = 0;
    for (; last >> digits != 0; ++digits) planes[digits] = plane(eights, digits);
    const unsigned long words = capacity_ / tile;
    Word* set = bits_.data() + columns_[c].first_set * words + t;
    for (unsigned long x = 0; x < last; ++x, set += words) {
      Word rows = ~0ul;
      for (unsigned long d = 0; d < digits; ++d) {
        rows &= (x >> d & 1) != 0 ? planes[d] : ~planes[d];
      }
      *set = rows;
    }
  }

  /// Binary digit `d` of 64 bytes, as one word.
  static Word plane(const Word* eights, unsigned long d) {
    constexpr Word lowest = 0x0101010101010101;
    // Moves the lowest bit of byte i to bit 56 + i; no two products meet in one place.
    constexpr Word gather = 0x0102040810204080;
    Word word = 0;
    for (unsigned long i = 0; i < 8; ++i) {
      word |= ((eights[i] >> d & lowest) * gather >> 56) << 8 * i;
    }
    return word;
  }

  void count_states(unsigned long c) {
    if (!has_bits(c) || states(c) == 0) return;
    unsigned long* count = &counts_[columns_[c].first_count];
    const unsigned long last = states(c) - 1;
    count[last] = rows_;
    for (unsigned long x = 0; x < last; ++x) {
      count[x] = common(bits(c, x), bits(c, x));
      count[last] -= count[x];
    }
  }

  const CategoricalData& data_;
  BitCounting counting_;
  std::vector<Column> columns_;
  bool numbers_wanted_;
  unsigned long capacity_ = 0;
  unsigned long begin_ = 0;
  unsigned long rows_ = 0;
  std::vector<Word> bits_;
  std::vector<unsigned long> counts_;
  std::vector<unsigned short> numbers_;
};

}  // namespace QZ
