#pragma once

/// Adjacency matrices as text: one row per line, cells split at a separator character, each cell an
/// unsigned decimal number.

#include <cstdlib>
#include <fstream>
#include <istream>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "QZ/graph/fitting_count.h"

namespace QZ {

/// The pieces of `line` between separators; a line without one is a single piece.
inline std::vector<std::string> split_cells(const std::string& line, char separator) {
  std::vector<std::string> cells;
  std::size_t begin = 0;
  for (std::size_t end; (end = line.find(separator, begin)) != std::string::npos; begin = end + 1) {
    cells.push_back(line.substr(begin, end - begin));
  }
  // A separator at the very end closes the last cell and opens none.
  if (begin < line.size()) cells.push_back(line.substr(begin));
  return cells;
}

/// Reads adjacency text into `A`, a symmetric row-major n-by-n matrix of 0 and 1 from malloc, which
/// the caller frees; n is the number of cells in the first row and m the number of edges.
///
/// Only cells right of the diagonal count, and empty lines are skipped. Throws out_of_range "wrong
/// adjancency format" for a line whose length in bytes is not that of the line before it,
/// logic_error for an edge to a column that the first row does not have, for a matrix that `idx_t`
/// cannot number, and "cannot read graph" for a stream that fails; a cell that is no number throws
/// what the standard conversion throws. On failure the arguments are unchanged.
template <class idx_t>
void adjFromCSV(std::istream& in, idx_t*& A, idx_t& n, idx_t& m, const char& separator) {
  std::vector<std::pair<std::size_t, std::size_t>> edges;
  std::size_t columns = 0;
  std::size_t row = 0;
  std::size_t length = 0;
  if (!in) throw std::logic_error("cannot read graph");
  for (std::string line; std::getline(in, line);) {
    if (line.empty()) continue;
    if (row > 0 && line.size() != length) throw std::out_of_range("wrong adjancency format");
    length = line.size();
    const std::vector<std::string> cells = split_cells(line, separator);
    if (row == 0) columns = cells.size();
    for (std::size_t c = 0; c < cells.size(); ++c) {
      if (std::stoul(cells[c]) == 0 || row >= c) continue;
      if (c >= columns) {
        throw std::logic_error("the adjacency matrix has an edge to column " + std::to_string(c) +
                               ", and its first row ends before it");
      }
      edges.emplace_back(row, c);
    }
    ++row;
  }
  if (in.bad()) throw std::logic_error("cannot read graph");
  const idx_t vertex_count = fitting_count<idx_t>(columns);
  const idx_t edge_count = fitting_count<idx_t>(edges.size());
  auto* matrix =
      static_cast<idx_t*>(std::calloc(columns == 0 ? 1 : columns * columns, sizeof(idx_t)));
  if (matrix == nullptr) throw std::bad_alloc();
  for (const auto& [r, c] : edges) matrix[r * columns + c] = matrix[c * columns + r] = 1;
  A = matrix;
  n = vertex_count;
  m = edge_count;
}

/// Reads adjacency text from a file. Throws logic_error "cannot read graph" if it cannot be read.
template <class idx_t>
void adjFromCSV(const std::string& filename, idx_t*& A, idx_t& n, idx_t& m, const char& separator) {
  std::ifstream in(filename);
  adjFromCSV(in, A, n, m, separator);
}

}  // namespace QZ
