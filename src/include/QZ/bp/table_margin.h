#pragma once

/// How the table of a clique and the table of a part of its vertices belong together.

#include <cstddef>
#include <vector>

#include "QZ/support/pack.h"

namespace QZ {

/// The sum of all entries, in eight interleaved running sums.
template <class val_t>
val_t sum_all(const val_t* in, std::size_t n) {
  using pack = Pack<val_t, 4>;
  typename pack::type even{};
  typename pack::type odd{};
  std::size_t i = 0;
  for (; i + 8 <= n; i += 8) {
    even += pack::at(in + i);
    odd += pack::at(in + i + 4);
  }
  val_t sum = 0;
  for (; i < n; ++i) sum += in[i];
  even += odd;
  return ((even[0] + even[1]) + (even[2] + even[3])) + sum;
}

/// Neighbouring vertices of a clique that are all in the part, or all outside of it, as one digit
/// of the index of the clique's table.
struct TableDigit {
  std::size_t size;
  /// What one step of the digit means in the clique's table, and in the part's: 0 outside the part.
  std::size_t stride;
  std::size_t part_stride;
};

/// The walk through the table of a clique along with the table of a part of its vertices. Both are
/// indexed with the lowest vertex as the fastest digit. No step divides, and none allocates.
class TableMargin {
 public:
  /// Adds the next higher vertex of the clique.
  void add_vertex(std::size_t states, bool in_part) {
    const std::size_t part_stride = in_part ? part_size_ : 0;
    if (!digits_.empty() && (digits_.back().part_stride != 0) == in_part) {
      digits_.back().size *= states;
    } else {
      digits_.push_back({states, size_, part_stride});
    }
    size_ *= states;
    if (in_part) part_size_ *= states;
  }

  /// part[j] += the sum of the entries of `table` that agree with j.
  template <class val_t>
  void sum(const val_t* table, val_t* part) const {
    if (size_ != 0) sum_from(digits_.size(), table, part);
  }

  /// Adds part[j] to each entry of `table` that agrees with j.
  template <class val_t>
  void spread(const val_t* part, val_t* table) const {
    if (size_ != 0) spread_from(digits_.size(), part, table);
  }

 private:
  template <class val_t>
  void sum_from(std::size_t digits, const val_t* table, val_t* part) const {
    if (digits == 0) {
      *part += *table;
      return;
    }
    const TableDigit& digit = digits_[digits - 1];
    if (digits > 1) {
      for (std::size_t d = 0; d < digit.size; ++d) {
        sum_from(digits - 1, table + d * digit.stride, part + d * digit.part_stride);
      }
    } else if (digit.part_stride != 0) {
      for (std::size_t d = 0; d < digit.size; ++d) part[d] += table[d];
    } else {
      val_t total = 0;
      for (std::size_t d = 0; d < digit.size; ++d) total += table[d];
      *part += total;
    }
  }

  template <class val_t>
  void spread_from(std::size_t digits, const val_t* part, val_t* table) const {
    if (digits == 0) {
      *table += *part;
      return;
    }
    const TableDigit& digit = digits_[digits - 1];
    if (digits > 1) {
      for (std::size_t d = 0; d < digit.size; ++d) {
        spread_from(digits - 1, part + d * digit.part_stride, table + d * digit.stride);
      }
    } else if (digit.part_stride != 0) {
      for (std::size_t d = 0; d < digit.size; ++d) table[d] += part[d];
    } else {
      for (std::size_t d = 0; d < digit.size; ++d) table[d] += *part;
    }
  }

  std::vector<TableDigit> digits_;
  std::size_t size_ = 1;
  std::size_t part_size_ = 1;
};

}  // namespace QZ
