#pragma once

/// A data table over cells that a caller owns.

#include <algorithm>
#include <istream>
#include <vector>

#include "QZ/data/categorical_data.h"

namespace QZ {

/// Wraps a row-major block of 16-bit cells without copying it.
///
/// The block stays the caller's, who keeps it alive and unchanged while the table lives. Statistics
/// may write imputed values into it.
class CategoricalNumPyData : public CategoricalData {
 public:
  CategoricalNumPyData(bool header, char missing, bool shared,
                       std::vector<CategoryList*>* categories)
      : CategoricalData(header, missing, shared, categories) {
    ownsData = false;
  }

  using CategoricalData::read;

  /// Does nothing: the cells do not come from a stream.
  void read(std::istream& /*in*/) override {}

  /// Takes in rows * columns cells, once. Unless the categories are given, each column, or table 0
  /// if they are shared, gets decimal names up to the largest cell that is not missing; at least
  /// one name.
  void read(unsigned short* cells, unsigned long rows, unsigned long columns) {
    data = cells;
    N = rows;
    n = columns;
    if (!fixedCategories && n > 0) make_categories();
    added.insert(added.end(), n, false);
  }

 private:
  void make_categories() {
    std::vector<unsigned short> largest(n, 0);
    for (unsigned long row = 0; row < N; ++row) {
      const unsigned short* cell = data + row * n;
      for (unsigned long col = 0; col < n; ++col) {
        const unsigned short known = cell[col] == MIS_VAL ? 0 : cell[col];
        largest[col] = std::max(largest[col], known);
      }
    }
    for (unsigned long col = 0; col < n; ++col) {
      grow_tables(col);
      const unsigned long table = sharedCategories ? 0 : col;
      const unsigned long count = largest[col] + 1ul;
      if (categoryLists[table]->size() < count) set_decimal_names(table, count);
    }
  }
};

}  // namespace QZ
