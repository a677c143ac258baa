/// Binary data. The reader ends well and keeps to memory in proportion to the file; the table has
/// the counts and cells of the file, which written down again are its bytes.

#include "QZ/data/binary_data.h"

#include <algorithm>
#include <sstream>

#include "target.h"

namespace {

using QZ::CategoricalBinaryData;
using qz_fuzz::claim;

std::string word(unsigned long value) {
  return {reinterpret_cast<const char*>(&value), sizeof value};
}

/// The file that holds what is in the table.
std::string written(const CategoricalBinaryData& table) {
  std::string file(CategoricalBinaryData::magic, sizeof CategoricalBinaryData::magic);
  const unsigned long categories = table.n == 0 ? 0 : table.categories(0);
  file += word(table.N) + word(table.n) + word(categories);
  for (unsigned long i = 0; i < table.N * table.n; ++i) {
    file.push_back(static_cast<char>(table.data[i]));
  }
  return file;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string file = qz_fuzz::Input(data, size).rest();
  CategoricalBinaryData table(false, '?', true, nullptr);
  std::istringstream in(file);
  if (!qz_fuzz::ends_well([&] { table.read(in); })) return 0;
  claim(table.added.size() == table.n, "every column is marked as visible");
  claim(
      std::all_of(table.data, table.data + table.N * table.n, [](auto cell) { return cell < 256; }),
      "a cell is a byte");
  std::string again = written(table);
  // A short file counts as filled up with zeroes; what stands behind the cells is not looked at.
  constexpr std::size_t categories_at = 24;
  const std::size_t same = std::min(again.size(), file.size());
  const bool has_columns = table.n > 0;
  for (std::size_t i = 0; i < same; ++i) {
    if (!has_columns && i >= categories_at) break;
    claim(again[i] == file[i], "the table holds what the file says");
  }
  return 0;
}
