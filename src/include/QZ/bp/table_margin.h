#pragma once

/// How the table of a clique and the table of a part of its vertices belong together.

#include <cstddef>
#include <vector>

#include "QZ/bp/table_kernels.h"

namespace QZ {

/// A table that is walked in blocks: entries that differ in its lowest vertices alone.
struct TableBlocks {
  /// The least number of entries of a block, if the table has so many.
  static constexpr std::size_t least = 1024;
  // Each vertex of a block but the last at least doubles it.
  static_assert(least < std::size_t(1) << (table_kernels::most_runs - 1));

  /// Entries of a block, and how many of them make the table.
  std::size_t entries = 1;
  std::size_t count = 1;

  /// Adds the next higher vertex, and claims that it is one of those that differ in a block. There
  /// must be two states at least, or none.
  bool add_vertex(std::size_t states) {
    const bool inside = count == 1 && entries < least;
    (inside ? entries : count) *= states;
    return inside;
  }
};

/// The walks through the tables of cliques along with the tables of parts of their vertices. All
/// are indexed with the lowest vertex as the fastest digit.
///
/// The blocks of a clique are the same for all of its parts, so that several may be walked side by
/// side while the block is in the first cache. No step divides but the first of a block, and none
/// allocates.
class TableMargins {
 public:
  std::size_t size() const { return margins_.size(); }
  void clear() {
    margins_.clear();
    runs_.clear();
  }
  void reserve(std::size_t margins, std::size_t runs) {
    margins_.reserve(margins);
    runs_.reserve(runs);
  }

  /// Begins the next margin, whose clique `add_vertex` then describes from the lowest vertex on.
  void begin() { margins_.push_back({.first = runs_.size()}); }
  void add_vertex(std::size_t states, bool in_part) {
    if (states == 1) return;
    Margin& margin = margins_.back();
    const bool in_block = margin.blocks.add_vertex(states);
    std::size_t& pairs = in_block ? margin.inner : margin.outer;
    // A vertex joins the run of its kind, and one of the part may open a new pair of runs.
    if (pairs == 0 || (in_part && runs_.back().outside != 1)) {
      runs_.push_back({1, 1});
      ++pairs;
    }
    (in_part ? runs_.back().inside : runs_.back().outside) *= states;
    if (in_block && in_part) margin.part_block *= states;
  }

  /// part[j] += the sum of the entries of block number b that agree with j.
  template <class val_t>
  void sum(std::size_t m, std::size_t b, const val_t* block, val_t* part) const {
    const Margin& margin = margins_[m];
    if (margin.blocks.entries == 0) return;
    sum_table(runs_.data() + margin.first, margin.inner, block, part + offset(margin, b));
  }

  /// Adds part[j] to each entry of block number b that agrees with j.
  template <class val_t>
  void spread(std::size_t m, std::size_t b, const val_t* part, val_t* block) const {
    const Margin& margin = margins_[m];
    if (margin.blocks.entries == 0) return;
    spread_table(runs_.data() + margin.first, margin.inner, part + offset(margin, b), block);
  }

 private:
  struct Margin {
    /// Where its runs begin, and how many pairs of them are in a block and above.
    std::size_t first;
    std::size_t inner = 0;
    std::size_t outer = 0;
    std::size_t part_block = 1;
    TableBlocks blocks = {};
  };

  /// Where the entries of the part begin that belong to a block.
  std::size_t offset(const Margin& margin, std::size_t b) const {
    std::size_t offset = 0;
    std::size_t stride = margin.part_block;
    const TableRuns* runs = runs_.data() + margin.first + margin.inner;
    for (std::size_t i = 0; i < margin.outer; ++i) {
      offset += b % runs[i].inside * stride;
      stride *= runs[i].inside;
      b = b / runs[i].inside / runs[i].outside;
    }
    return offset;
  }

  std::vector<Margin> margins_;
  std::vector<TableRuns> runs_;
};

}  // namespace QZ
