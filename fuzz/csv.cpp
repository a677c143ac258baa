/// CSV text. The reader ends well; cells are then categories of their columns or missing, and a
/// table that was stored reads back the same.

#include <sstream>
#include <vector>

#include "QZ/data/csv_data.h"
#include "target.h"

namespace {

using QZ::CategoricalCSVData;
using qz_fuzz::claim;
using qz_fuzz::ends_well;

struct Settings {
  bool header;
  bool shared;
  bool fixed;
};

void check_cells(const CategoricalCSVData& table) {
  for (unsigned long row = 0; row < table.N; ++row) {
    for (unsigned long col = 0; col < table.n; ++col) {
      const unsigned long cell = table.get(col, row);
      claim(cell == CategoricalCSVData::MIS_VAL || cell < table.categories(col),
            "a cell is a category of its column");
    }
  }
}

/// The stored text reads back, once the line that the reader drops is there.
void check_round_trip(const CategoricalCSVData& table, const Settings& settings) {
  const qz_fuzz::MemoryFile file;
  table.store(file.path());
  std::string text = file.content();
  text.insert(settings.header ? text.find('\n') + 1 : 0, "\n");
  std::istringstream in(text);
  CategoricalCSVData again(settings.header, '?', settings.shared, nullptr);
  again.read(in);
  claim(again.N == table.N && again.n == table.n, "a stored table keeps its shape");
  for (unsigned long row = 0; row < table.N; ++row) {
    for (unsigned long col = 0; col < table.n; ++col) {
      claim(again.getString(col, row) == table.getString(col, row), "a stored cell keeps its text");
    }
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  qz_fuzz::Input input(data, size);
  const unsigned flags = input.byte();
  const Settings settings{(flags & 1) != 0, (flags & 2) != 0, (flags & 4) != 0};
  std::vector<std::string> first{"a", "b", "b"};
  std::vector<std::string> second{"0", "1"};
  std::vector<std::vector<std::string>*> names{&first, &second};
  CategoricalCSVData table(settings.header, '?', settings.shared,
                           settings.fixed ? &names : nullptr);
  std::istringstream in(input.rest());
  if (!ends_well([&] { table.read(in); })) return 0;
  // Rows of unequal length that happen to fill the table are cut anew, so that cells may end up in
  // columns that do not know them. The table says so when it is asked for their names.
  if (!ends_well([&] { (void)table.store("/dev/null"); })) return 0;
  check_cells(table);
  check_round_trip(table, settings);
  return 0;
}
