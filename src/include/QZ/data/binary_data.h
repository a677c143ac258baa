#pragma once

/// The data table's reader for the compact binary file.

#include <algorithm>
#include <cstring>
#include <istream>
#include <limits>
#include <memory>
#include <stdexcept>

#include "QZ/data/categorical_data.h"
#include "QZ/support/assertion.h"

namespace QZ {

/// Reads a table of cells below 256 with the same number of categories in each column.
///
/// The file holds the magic, then N, n and K as 64-bit numbers in the machine's byte order, then
/// the N * n cells, a byte each, row by row. There is no missing cell: a byte 255 is category 255.
class CategoricalBinaryData : public CategoricalData {
 public:
  using CategoricalData::CategoricalData;
  using CategoricalData::read;

  /// The first bytes of every binary data file.
  static constexpr char magic[8] = {'q', 'z', 'b', 'i', 'n', '$', '\0', '#'};

  /// Reads the stream, once, into the fresh table. Every column gets the categories "0" to K - 1 in
  /// a table of its own, also if categories are shared.
  ///
  /// Asserts that the magic is there. A file that ends early leaves counts and cells at 0 from
  /// there on. Throws logic_error if the counts are beyond what a table can hold, or are large and
  /// not borne out by the length of the stream.
  void read(std::istream& in) override {
    char start[sizeof magic] = {};
    in.read(start, sizeof start);
    assert_that(std::memcmp(start, magic, sizeof magic) == 0,
                "std::memcmp(start,magic,sizeof(magic))==0", door::data);
    unsigned long counts[3] = {};
    for (unsigned long& count : counts) in.read(reinterpret_cast<char*>(&count), sizeof count);
    const auto [rows, columns, categories] = counts;
    require_room(rows, columns, categories);
    require_length(in, rows * columns, columns * (categories + 1));
    data = new unsigned short[rows * columns]();
    N = rows;
    n = columns;
    read_cells(in, rows * columns);
    for (unsigned long col = 0; col < columns; ++col) {
      const unsigned long table = categoryMaps.size();
      grow_tables(table);
      set_decimal_names(table, categories);
      added.push_back(false);
    }
  }

 private:
  static void require_room(unsigned long rows, unsigned long columns, unsigned long categories) {
    using wide_t = unsigned __int128;
    constexpr wide_t most_cells = 1ul << 62;
    constexpr wide_t most_names = 1ul << 32;
    if (wide_t(rows) * columns > most_cells || categories > MIS_VAL ||
        wide_t(columns) * (categories + 1) > most_names) {
      throw std::logic_error("the counts of the binary data are too large");
    }
  }

  /// A few bytes must not make a table of any size. Small ones may end early.
  static void require_length(std::istream& in, unsigned long cells, unsigned long names) {
    constexpr unsigned long few = 1ul << 20;
    // A cell is a byte, so that no more names than these can occur.
    constexpr unsigned long names_per_cell = 256 + 1;
    if (cells <= few && names <= few) return;
    const unsigned long left = bytes_left(in);
    if ((cells > few && cells > left) || (names > few && names / names_per_cell > left)) {
      throw std::logic_error("the binary data are shorter than their own counts say");
    }
  }

  /// All ones for a stream that cannot tell.
  static unsigned long bytes_left(std::istream& in) {
    if (!in) return 0;
    const std::streamoff here = in.tellg();
    if (here < 0) return std::numeric_limits<unsigned long>::max();
    const std::streamoff end = in.seekg(0, std::ios::end).tellg();
    in.seekg(here);
    return static_cast<unsigned long>(end - here);
  }

  void read_cells(std::istream& in, unsigned long count) {
    constexpr unsigned long piece = 1ul << 16;
    const auto bytes = std::make_unique<unsigned char[]>(piece);
    for (unsigned long done = 0; done < count && in;) {
      const unsigned long wanted = std::min(piece, count - done);
      in.read(reinterpret_cast<char*>(bytes.get()), static_cast<std::streamsize>(wanted));
      const auto taken = static_cast<unsigned long>(in.gcount());
      std::copy(bytes.get(), bytes.get() + taken, data + done);
      done += taken;
    }
  }
};

}  // namespace QZ
