#pragma once

/// The data table's reader for text.

#include <algorithm>
#include <istream>
#include <string>
#include <string_view>
#include <vector>

#include "QZ/data/categorical_data.h"
#include "QZ/data/line_reader.h"
#include "QZ/data/name_index.h"
#include "QZ/support/assertion.h"
#include "QZ/support/conversions.h"

namespace QZ {

/// Reads rows of names between commas. Every cell is a name, numbers too, and there is no quoting;
/// category numbers are handed out by first appearance.
///
/// With a header the first line names the columns. One further line is thrown away in any case: the
/// data start after it. Empty lines are skipped, and a carriage return belongs to the last cell of
/// its line. A cell that begins with the missing marker is missing.
class CategoricalCSVData : public CategoricalData {
 public:
  using CategoricalData::CategoricalData;
  using CategoricalData::read;

  /// Reads the stream to its end, once, into the fresh table.
  ///
  /// Throws out_of_range if a cell is empty or a column lies beyond the given category lists, and
  /// logic_error "cannot read data" if the stream fails; no row is kept then. Asserts "i==n*N": a
  /// table whose rows differ in length passes only if the total fits, and is then cut anew into
  /// rows of the first one's length.
  void read(std::istream& in) override {
    Rows rows;
    if (fixedCategories) index_given_categories(rows);
    LineReader lines(in);
    std::string_view line;
    if (headerFlag && lines.next(line)) split(line, columnHeaders);
    lines.next(line);
    while (lines.next(line)) {
      if (!line.empty()) add_row(line, rows);
    }
    keep(rows);
    if (!fixedCategories) list_categories();
  }

 private:
  static constexpr char separator = ',';

  /// The cells so far, row after row, and what is known of the names.
  struct Rows {
    std::vector<unsigned short> cells;
    unsigned long count = 0;
    unsigned long first_length = 0;
    /// Mirrors of the category tables.
    std::vector<NameIndex> known;
  };

  static void split(std::string_view line, std::vector<std::string>& cells) {
    for (;;) {
      const std::size_t stop = line.find(separator);
      cells.emplace_back(line.substr(0, stop));
      if (stop == std::string_view::npos) return;
      line.remove_prefix(stop + 1);
    }
  }

  void index_given_categories(Rows& rows) const {
    for (const CategoryMap* map : categoryMaps) {
      NameIndex& known = rows.known.emplace_back();
      for (const auto& [name, number] : *map) known.insert(name, number);
    }
  }

  void add_row(std::string_view line, Rows& rows) {
    const char* const end = line.data() + line.size();
    unsigned long col = 0;
    for (const char* cell = line.data();; ++col) {
      // Cells are a few bytes long: a plain walk beats a search function.
      const char* stop = cell;
      while (stop != end && *stop != separator) ++stop;
      const std::string_view name(cell, static_cast<std::size_t>(stop - cell));
      rows.cells.push_back(wrapping_cast<unsigned short>(number_of(name, col, rows)));
      if (stop == end) break;
      cell = stop + 1;
    }
    if (rows.count++ == 0) rows.first_length = col + 1;
  }

  /// The category number of a cell, or all ones if it is missing.
  unsigned long number_of(std::string_view name, unsigned long col, Rows& rows) {
    // An empty name has no first character, and the string says so.
    const char first = name.empty() ? std::string().at(0) : name[0];
    if (first == missingChar) return NameIndex::unknown;
    if (fixedCategories) return rows.known.at(col).find(name);
    const unsigned long table = sharedCategories ? 0 : col;
    if (table >= rows.known.size()) {
      grow_tables(table);
      rows.known.resize(table + 1);
    }
    const unsigned long number = rows.known[table].find(name);
    return number != NameIndex::unknown ? number : add_category(name, table, rows);
  }

  unsigned long add_category(std::string_view name, unsigned long table, Rows& rows) {
    CategoryMap& map = *categoryMaps[table];
    const unsigned long number = map.size();
    const auto place = map.emplace(name, number).first;
    rows.known[table].insert(place->first, number);
    return number;
  }

  void keep(const Rows& rows) {
    if (rows.count > 0) data = new unsigned short[rows.count * rows.first_length];
    N = rows.count;
    n = rows.first_length;
    added.insert(added.end(), n, false);
    const unsigned long i = rows.cells.size();
    assert_that(i == n * N, "i==n*N", door::data);
    std::copy(rows.cells.begin(), rows.cells.end(), data);
  }

  /// Puts every name at the place of its number.
  void list_categories() {
    const unsigned long tables = sharedCategories ? 1 : n + H;
    if (tables > 0) grow_tables(tables - 1);
    for (unsigned long table = 0; table < tables; ++table) {
      CategoryList& list = *categoryLists[table];
      list.resize(categoryMaps[table]->size());
      for (const auto& [name, number] : *categoryMaps[table]) list[number] = name;
    }
  }
};

}  // namespace QZ
