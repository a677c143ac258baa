/// Graph files. The reader ends well; the graph's edges lead to its vertices, its incidence lists
/// hold every edge at both ends, and stored again it is the file, as far as that is looked at.

#include <memory>

#include "QZ/graph/graph.h"
#include "target.h"

namespace {

using qz_fuzz::claim;

/// A file may name vertices without an edge in any number, and they take memory.
constexpr std::size_t most_vertices = 1ul << 20;

template <class idx_t>
bool asks_for_little(const std::string& file) {
  idx_t vertices = 0;
  if (file.size() < sizeof vertices) return true;
  file.copy(reinterpret_cast<char*>(&vertices), sizeof vertices);
  return vertices <= most_vertices;
}

template <class idx_t>
void check_incidence(const QZ::Graph<idx_t>& graph) {
  std::size_t ends = 0;
  for (idx_t v = 0; v < graph.vertices(); ++v) {
    const idx_t degree = graph.num_neighbors(v);
    ends += degree;
    for (idx_t i = 0; i < degree; ++i) {
      idx_t s = 0;
      idx_t t = 0;
      graph.edge(graph.in_edge(v, i), s, t);
      claim(s == v || t == v, "an edge in a vertex's list ends there");
    }
  }
  claim(ends == 2 * static_cast<std::size_t>(graph.edges()), "every edge stands in two lists");
}

template <class idx_t>
void check(const std::string& content) {
  if (!asks_for_little<idx_t>(content)) return;
  const qz_fuzz::MemoryFile file(content);
  std::unique_ptr<QZ::Graph<idx_t>> graph;
  const bool read =
      qz_fuzz::ends_well([&] { graph = std::make_unique<QZ::Graph<idx_t>>(file.path()); });
  if (!read) return;
  const qz_fuzz::MemoryFile stored;
  graph->store(stored.path());
  const std::string again = stored.content();
  claim(content.compare(0, again.size(), again) == 0, "a stored graph is the file it came from");
  // Offsets wrap where twice the number of edges does not fit the index type.
  if (2 * static_cast<std::size_t>(graph->edges()) <= static_cast<idx_t>(-1)) {
    check_incidence(*graph);
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  qz_fuzz::Input input(data, size);
  switch (input.byte() % 4) {
    case 0:
      check<unsigned char>(input.rest());
      break;
    case 1:
      check<unsigned short>(input.rest());
      break;
    case 2:
      check<unsigned int>(input.rest());
      break;
    default:
      check<unsigned long>(input.rest());
  }
  return 0;
}
