/// Adjacency text. The reader ends well; the matrix is then symmetric, has as many edges as it
/// says, makes a graph with these edges, and reads back the same from its text.

#include "QZ/graph/adjacency.h"

#include <memory>
#include <sstream>

#include "QZ/graph/graph.h"
#include "target.h"

namespace {

using qz_fuzz::claim;
using qz_fuzz::ends_well;

/// What the reader makes of a text.
template <class idx_t>
class Matrix {
 public:
  Matrix(const std::string& text, char separator) {
    std::istringstream in(text);
    idx_t* found = nullptr;
    QZ::adjFromCSV(in, found, n, m, separator);
    cells.reset(found);
  }

  bool edge(std::size_t i, std::size_t j) const { return cells.get()[i * n + j] != 0; }

  std::unique_ptr<idx_t, decltype(&std::free)> cells{nullptr, &std::free};
  idx_t n = 0;
  idx_t m = 0;
};

template <class idx_t>
void check_counts(const Matrix<idx_t>& matrix) {
  std::size_t edges = 0;
  for (std::size_t i = 0; i < matrix.n; ++i) {
    claim(!matrix.edge(i, i), "no vertex is its own neighbour");
    for (std::size_t j = i + 1; j < matrix.n; ++j) {
      claim(matrix.edge(i, j) == matrix.edge(j, i), "the matrix is symmetric");
      edges += matrix.edge(i, j);
    }
  }
  claim(edges == matrix.m, "the matrix has as many edges as were counted");
}

template <class idx_t>
void check_graph(const Matrix<idx_t>& matrix) {
  const QZ::Graph<idx_t> graph(matrix.cells.get(), matrix.n, matrix.m);
  claim(graph.vertices() == matrix.n && graph.edges() == matrix.m, "the graph has the same counts");
  for (idx_t e = 0; e < graph.edges(); ++e) {
    idx_t s = 0;
    idx_t t = 0;
    graph.edge(e, s, t);
    claim(s < t && matrix.edge(s, t), "the graph has the edges of the matrix");
  }
}

template <class idx_t>
void check_round_trip(const Matrix<idx_t>& matrix) {
  std::string text;
  for (std::size_t i = 0; i < matrix.n; ++i) {
    for (std::size_t j = 0; j < matrix.n; ++j) {
      text += (j == 0 ? "" : ",") + std::string(1, matrix.edge(i, j) ? '1' : '0');
    }
    text += '\n';
  }
  const Matrix<idx_t> again(text, ',');
  claim(again.n == matrix.n && again.m == matrix.m, "a stored matrix keeps its counts");
  for (std::size_t i = 0; i < matrix.n; ++i) {
    for (std::size_t j = 0; j < matrix.n; ++j) {
      claim(again.edge(i, j) == matrix.edge(i, j), "a stored matrix keeps its edges");
    }
  }
}

template <class idx_t>
void check(const std::string& text, char separator) {
  std::unique_ptr<Matrix<idx_t>> matrix;
  const bool read = ends_well([&] { matrix = std::make_unique<Matrix<idx_t>>(text, separator); });
  if (!read) return;
  check_counts(*matrix);
  // Twice the number of edges must fit the index type.
  if (2 * static_cast<std::size_t>(matrix->m) > static_cast<idx_t>(-1)) return;
  check_graph(*matrix);
  check_round_trip(*matrix);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  qz_fuzz::Input input(data, size);
  const bool narrow = input.byte() % 2 != 0;
  const char separator = static_cast<char>(input.byte());
  if (narrow) {
    check<unsigned char>(input.rest(), separator);
  } else {
    check<unsigned int>(input.rest(), separator);
  }
  return 0;
}
