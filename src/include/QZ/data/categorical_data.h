#pragma once

/// The data table: observations of categorical variables.

#include <fstream>
#include <istream>
#include <map>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "QZ/support/assertion.h"
#include "QZ/support/conversions.h"

namespace QZ {

/// A table of small category numbers: one row per observation, one column per variable.
///
/// The columns 0 to n-1 are visible and come from a source; the columns n to n+H-1 are hidden,
/// stand for latent variables and live in a table of their own. A cell holds a number below the
/// column's number of categories, or `MIS_VAL`. Readers fill the table once; any number of threads
/// may read it, and one thread at a time may write.
class CategoricalData {
 public:
  using CategoryMap = std::map<std::string, unsigned long>;
  using CategoryList = std::vector<std::string>;

  /// A missing cell.
  static constexpr unsigned short MIS_VAL = 65535;

  /// `header`: the source has a header line. `missing`: a text cell that begins with it is missing.
  /// `shared`: one category table serves all columns. `categories`: null, or the category names of
  /// each column in order; they are copied, and a reader then invents no further ones. A name that
  /// stands twice in a list keeps both places and means the later one.
  CategoricalData(bool header, char missing, bool shared, std::vector<CategoryList*>* categories)
      : headerFlag(header),
        sharedCategories(shared),
        fixedCategories(categories != nullptr),
        missingChar(missing),
        missingName(1, missing) {
    if (categories == nullptr) return;
    for (const CategoryList* names : *categories) add_fixed_table(*names);
  }

  CategoricalData(const CategoricalData&) = delete;
  CategoricalData& operator=(const CategoricalData&) = delete;

  virtual ~CategoricalData() {
    delete[] hidden;
    if (ownsData) delete[] data;
    for (CategoryMap* map : categoryMaps) delete map;
    for (CategoryList* list : categoryLists) delete list;
  }

  /// Fills the fresh table from a source.
  virtual void read(std::istream& in) = 0;

  /// Fills the fresh table from a file. Throws logic_error "cannot read data" if it does not open.
  void read(const std::string& filename) {
    std::ifstream in(filename, std::ios::binary);
    if (!in.is_open()) throw std::logic_error("cannot read data");
    read(in);
  }

  /// The cell of a visible or hidden column. Asserts "col<n+H && row<N".
  unsigned long get(unsigned long col, unsigned long row) const {
    assert_that(col < n + H && row < N, "col<n+H && row<N", door::data);
    return cell(col, row);
  }

  /// Writes a cell. Asserts "ignore || col<n+H" and "ignore || v<categories(col) || v==MIS_VAL":
  /// with `ignore` a number beyond the known categories may be stored.
  void set(unsigned short v, unsigned long col, unsigned long row, bool ignore = false) {
    assert_that(ignore || col < n + H, "ignore || col<n+H", door::data);
    assert_that(ignore || v == MIS_VAL || v < categories(col),
                "ignore || v<categories(col) || v==MIS_VAL", door::data);
    cell(col, row) = v;
  }

  /// The number of categories of a column. Asserts "col<n+H".
  unsigned long categories(unsigned long col) const {
    assert_that(col < n + H, "col<n+H", door::data);
    return categoryMaps.at(table_of(col))->size();
  }

  /// The name of category `x` of column `c`, or the missing marker for `MIS_VAL`. Asserts "c<n+H"
  /// and that the category is known. Throws out_of_range if the column's list is shorter than its
  /// map.
  std::string categoryName(unsigned long c, unsigned long x) const {
    assert_that(c < n + H, "c<n+H", door::data);
    if (x == MIS_VAL) return missingName;
    const char* claim = sharedCategories ? "x<categories(0)" : "x<categories(c)";
    assert_that(x < categories(c), claim, door::data);
    return categoryLists.at(table_of(c))->at(x);
  }

  /// The names of all categories of column `c`; the table keeps the list. Asserts "c<n+H".
  CategoryList* categoryNames(unsigned long c) const {
    assert_that(c < n + H, "c<n+H", door::data);
    return categoryLists.at(table_of(c));
  }

  /// The text of a cell: its category name and, after a blank, its annotation if it has one.
  /// Asserts "col<n+H && row<N".
  std::string getString(unsigned long col, unsigned long row) const {
    std::string text = categoryName(col, get(col, row));
    const auto note = annotations.find({row, col});
    if (note != annotations.end()) text += " " + note->second;
    return text;
  }

  /// A new list of the names of all n + H columns, owned by the caller. Without a header the names
  /// are "X" or, for an added column, "H" with the column number. Throws out_of_range if the header
  /// names fewer columns.
  std::vector<std::string>* columnNames() const;

  /// Writes the header, if there is one, and the texts of the visible cells. Throws logic_error
  /// "cannot write NAME" if anything is lost.
  void store(const std::string& filename) const;

  /// Appends `count` hidden columns of missing cells with the categories "0" to `categories` - 1
  /// each. With fixed categories the given lists must cover the new columns already.
  void addColumns(const unsigned long& count, const unsigned long& categories);

  /// Gives a column that `addColumns` made the categories "0" to `k` - 1.
  /// Asserts "col>=n && col<n+H && added[col]".
  void trimCategories(unsigned long col, unsigned short k) {
    assert_that(col >= n && col < n + H && added[col], "col>=n && col<n+H && added[col]",
                door::data);
    set_decimal_names(col, k);
  }

  /// N * n visible cells, row-major.
  unsigned short* data = nullptr;
  /// N * H hidden cells, row-major; null until `addColumns`.
  unsigned short* hidden = nullptr;
  /// Rows.
  unsigned long N = 0;
  /// Visible columns.
  unsigned long n = 0;
  /// Hidden columns.
  unsigned long H = 0;
  /// The source has a header line, and `store` writes one.
  bool headerFlag;
  /// Table 0 serves all columns.
  bool sharedCategories;
  /// Names of columns, from the header or made by `addColumns`; empty without a header.
  std::vector<std::string> columnHeaders;
  /// Per column: `addColumns` made it.
  std::vector<bool> added;
  /// Category numbers by name: owned, one per column, or a single one if shared.
  std::vector<CategoryMap*> categoryMaps;
  /// Category names by number: owned, indexed like the maps.
  std::vector<CategoryList*> categoryLists;
  /// The categories were given; a reader must not invent any.
  bool fixedCategories;
  /// A text cell that begins with this character is missing.
  char missingChar;
  /// The text of a missing cell.
  std::string missingName;
  /// The destructor frees `data`.
  bool ownsData = true;
  /// Text shown after a cell's category name, by (row, column).
  std::map<std::pair<unsigned long, unsigned long>, std::string> annotations;

 protected:
  /// Appends empty tables until table `index` exists.
  void grow_tables(unsigned long index) {
    while (categoryMaps.size() <= index) {
      categoryMaps.push_back(nullptr);
      categoryMaps.back() = new CategoryMap;
    }
    while (categoryLists.size() <= index) {
      categoryLists.push_back(nullptr);
      categoryLists.back() = new CategoryList;
    }
  }

  /// Replaces table `index` by the decimal names of 0 to `count` - 1.
  void set_decimal_names(unsigned long index, unsigned long count) {
    CategoryList& list = *categoryLists.at(index);
    CategoryMap& map = *categoryMaps.at(index);
    list.resize(count);
    map.clear();
    for (unsigned long i = 0; i < count; ++i) {
      list[i] = std::to_string(i);
      map[list[i]] = i;
    }
  }

 private:
  unsigned short& cell(unsigned long col, unsigned long row) const {
    return col < n ? data[row * n + col] : hidden[row * H + (col - n)];
  }

  unsigned long table_of(unsigned long col) const { return sharedCategories ? 0 : col; }

  void add_fixed_table(const CategoryList& names) {
    const unsigned long index = categoryMaps.size();
    grow_tables(index);
    *categoryLists[index] = names;
    for (unsigned long i = 0; i < names.size(); ++i) (*categoryMaps[index])[names[i]] = i;
  }
};

inline std::vector<std::string>* CategoricalData::columnNames() const {
  std::vector<std::string> names;
  for (unsigned long col = 0; col < n + H; ++col) {
    names.push_back(headerFlag ? columnHeaders.at(col)
                               : (added.at(col) ? "H" : "X") + std::to_string(col));
  }
  return new std::vector<std::string>(std::move(names));
}

inline void CategoricalData::store(const std::string& filename) const {
  std::ofstream out(filename, std::ios::binary | std::ios::trunc);
  const auto write_line = [&](const auto& text_of) {
    for (unsigned long col = 0; col < n; ++col) out << (col == 0 ? "" : ",") << text_of(col);
    out << '\n';
  };
  if (headerFlag) write_line([&](unsigned long col) { return columnHeaders.at(col); });
  for (unsigned long row = 0; row < N; ++row) {
    write_line([&](unsigned long col) { return getString(col, row); });
  }
  out.close();
  if (!out) throw std::logic_error("cannot write " + filename);
}

inline void CategoricalData::addColumns(const unsigned long& count,
                                        const unsigned long& categories) {
  const unsigned long width = H + count;
  unsigned short* const wider = new unsigned short[N * width];
  for (unsigned long row = 0; row < N; ++row) {
    for (unsigned long i = 0; i < width; ++i) {
      wider[row * width + i] = i < H ? hidden[row * H + i] : MIS_VAL;
    }
  }
  delete[] hidden;
  hidden = wider;
  for (unsigned long i = H; i < width; ++i) {
    if (headerFlag) columnHeaders.push_back("H" + std::to_string(i + 1));
    added.push_back(true);
    if (fixedCategories) continue;
    const unsigned long index = categoryMaps.size();
    grow_tables(index);
    set_decimal_names(index, categories);
  }
  H = width;
}

}  // namespace QZ
