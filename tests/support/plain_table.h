#pragma once

/// Data tables made by hand or by chance, and their statistics counted row by row.

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "QZ/data/categorical_data.h"
#include "QZ/graph/abstract_graph.h"

namespace qz_test {

/// A table that tests fill themselves.
class PlainTable : public QZ::CategoricalData {
 public:
  using CategoricalData::CategoricalData;
  using CategoricalData::read;
  explicit PlainTable(bool header = false, bool shared = false)
      : CategoricalData(header, '?', shared, nullptr) {}
  void read(std::istream&) override {}

  /// Takes row-major cells. Column c has the categories "0" to states[c] - 1, unless fixed.
  void fill(unsigned long rows, const std::vector<unsigned long>& states,
            const std::vector<unsigned short>& cells) {
    N = rows;
    n = states.size();
    data = new unsigned short[cells.size()];
    std::copy(cells.begin(), cells.end(), data);
    added.assign(n, false);
    if (fixedCategories) return;
    for (unsigned long c = 0; c < (sharedCategories ? 1 : n); ++c) {
      grow_tables(c);
      set_decimal_names(c, states[c]);
    }
  }
};

/// Columns that depend on their left neighbour; a share of the cells is missing.
inline std::unique_ptr<PlainTable> random_table(unsigned long rows,
                                                const std::vector<unsigned long>& states,
                                                double missing, unsigned int seed) {
  std::mt19937 rng(seed);
  std::bernoulli_distribution gone(missing);
  std::vector<unsigned short> cells;
  for (unsigned long row = 0; row < rows; ++row) {
    unsigned long left = rng() % 7;
    for (const unsigned long count : states) {
      left = (rng() % 3 == 0 ? rng() : left) % count;
      cells.push_back(gone(rng) ? QZ::CategoricalData::MIS_VAL : static_cast<unsigned short>(left));
    }
  }
  auto table = std::make_unique<PlainTable>();
  table->fill(rows, states, cells);
  return table;
}

template <class idx_t>
std::vector<idx_t> states_of(const QZ::CategoricalData& table) {
  std::vector<idx_t> states;
  for (unsigned long c = 0; c < table.n + table.H; ++c) {
    states.push_back(static_cast<idx_t>(table.categories(c)));
  }
  return states;
}

/// Draws missing cells of the first columns one after the other, with the plain engine.
template <class idx_t>
void plain_impute(QZ::CategoricalData& table, unsigned long columns,
                  const std::vector<idx_t>& states, std::mt19937& rng) {
  for (unsigned long row = 0; row < table.N; ++row) {
    for (unsigned long c = 0; c < columns; ++c) {
      if (table.get(c, row) != QZ::CategoricalData::MIS_VAL) continue;
      std::uniform_int_distribution<idx_t> uniform(0, static_cast<idx_t>(states[c] - 1));
      table.set(static_cast<unsigned short>(uniform(rng)), c, row);
    }
  }
}

/// The block of one list of columns, the last one fastest, counted one by one.
template <class val_t, class idx_t>
std::vector<val_t> plain_block(const QZ::CategoricalData& table,
                               const std::vector<unsigned long>& columns,
                               const std::vector<idx_t>& states) {
  unsigned long size = 1;
  for (const unsigned long c : columns) size *= states[c];
  std::vector<val_t> block(size, 0);
  for (unsigned long row = 0; row < table.N; ++row) {
    unsigned long index = 0;
    for (const unsigned long c : columns) index = index * states[c] + table.get(c, row);
    block[index] = static_cast<val_t>(block[index] + 1);
  }
  return block;
}

/// The vertex blocks and edge blocks of a complete table, one after the other.
template <class val_t, class idx_t>
std::vector<val_t> plain_statistics(const QZ::CategoricalData& table,
                                    const QZ::AbstractGraph<idx_t>& graph,
                                    const std::vector<idx_t>& states) {
  std::vector<val_t> all;
  const auto append = [&](const std::vector<unsigned long>& columns) {
    const auto block = plain_block<val_t>(table, columns, states);
    all.insert(all.end(), block.begin(), block.end());
  };
  for (unsigned long v = 0; v < graph.vertices(); ++v) append({v});
  for (unsigned long e = 0; e < graph.edges(); ++e) {
    const auto [s, t] = endpoints(graph, static_cast<idx_t>(e));
    append({s, t});
  }
  return all;
}

}  // namespace qz_test
