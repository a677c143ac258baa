#include <algorithm>
#include <cmath>
#include <set>
#include <utility>
#include <vector>

#include "QZ/machine/vocabulary.h"
#include "byte_fields.h"
#include "check_files.h"

namespace qz_tool {

namespace {

using wide_t = unsigned __int128;

struct StoredGraph {
  std::uint64_t vertices = 0;
  std::vector<std::pair<std::uint64_t, std::uint64_t>> edges;
};

/// A part of the file that stops the examination: what follows cannot be told.
struct Unreadable {};

class BinaryCheck {
 public:
  BinaryCheck(const std::string& bytes, const TypeWidths& widths, Findings& findings)
      : fields_(std::string_view(bytes)), widths_(widths), findings_(findings) {}

  StoredGraph graph() {
    StoredGraph graph;
    graph.vertices = index("the number of vertices");
    const std::uint64_t edges = index("the number of edges");
    findings_.summary("a graph of " + size_text(graph.vertices, edges));
    const std::size_t pair = 2 * widths_.index;
    if (edges > fields_.left() / pair) {
      stop("the edges are cut off: the file holds " + std::to_string(fields_.left() / pair) +
           " of " + std::to_string(edges));
    }
    if (2 * wide_t(edges) > largest_index()) {
      findings_.problem("the index type is too narrow for twice the number of edges");
    }
    for (std::uint64_t e = 0; e < edges; ++e) {
      const std::uint64_t s = index("an edge");
      const std::uint64_t t = index("an edge");
      check_edge(graph, e, s, t);
      graph.edges.emplace_back(s, t);
    }
    return graph;
  }

  void model() {
    const StoredGraph stored = graph();
    kind("kind of graph", QZ::vocabulary::graphs.size());
    layers(counted_text("the layer sizes"));
    counted_text("the reserved text");
    const std::uint64_t slices = std::max<std::uint64_t>(index("the number of time slices"), 1);
    kind("parametrisation", QZ::vocabulary::parametrisations.size());
    index("the number of rows");
    index("the reserved number");
    const auto states = vertices(stored, slices);
    findings_.summary("a model of " + size_text(stored.vertices, stored.edges.size()) +
                      (slices > 1 ? " in each of " + std::to_string(slices) + " time slices" : ""));
    const wide_t parameters = parameter_count(stored, states, slices);
    const std::uint64_t said = index("the number of parameters");
    if (parameters != said) {
      stop("the file says that there are " + counted(said, "parameter") +
           ", the edges and state counts say " +
           std::to_string(static_cast<std::uint64_t>(parameters)));
    }
    wide_t counts = parameters;
    for (const std::uint64_t count : states) counts += count;
    if (counts > largest_index()) stop("the index type is too narrow for the statistics");
    values("statistics", static_cast<std::uint64_t>(counts));
    if (fields_.left() == 0 && parameters > 0) {
      findings_.note("there are no weights: all are read as 0");
    } else {
      values("weights", static_cast<std::uint64_t>(parameters));
    }
  }

  void end() {
    if (fields_.left() == 0) return findings_.whole();
    findings_.note(counted(fields_.left(), "byte") + " at the end are not read");
  }

 private:
  [[noreturn]] void stop(const std::string& text) {
    findings_.problem(text);
    throw Unreadable{};
  }

  static std::string size_text(std::uint64_t vertices, std::uint64_t edges) {
    return counted(vertices, "vertex", "vertices") + " and " + counted(edges, "edge");
  }

  wide_t largest_index() const { return (wide_t(1) << (8 * widths_.index)) - 1; }

  std::uint64_t index(const std::string& what) {
    const auto number = fields_.number(widths_.index);
    if (!number) stop("the file ends before " + what);
    return *number;
  }

  void check_edge(const StoredGraph& graph, std::uint64_t e, std::uint64_t s, std::uint64_t t) {
    const std::string name =
        "edge " + std::to_string(e) + " (" + std::to_string(s) + ", " + std::to_string(t) + ")";
    if (std::max(s, t) >= graph.vertices) {
      findings_.problem(name + " names a vertex that is not there");
    } else if (s == t) {
      findings_.note(name + " joins a vertex to itself");
    } else if (!joined_.insert(std::minmax(s, t)).second) {
      findings_.note(name + " joins two vertices again");
    }
  }

  void kind(const std::string& what, std::size_t known) {
    const std::uint64_t number = index("the " + what);
    if (number >= known) {
      findings_.problem("there is no " + what + " with number " + std::to_string(number));
    }
  }

  std::string counted_text(const std::string& what) {
    const auto length = fields_.number(8);
    if (!length) stop("the file ends before " + what);
    const auto text = fields_.text(*length);
    if (!text) {
      stop(what + " are said to be " + counted(*length, "byte") + " long, and the file has " +
           std::to_string(fields_.left()) + " left");
    }
    return std::string(*text);
  }

  void layers(const std::string& text) {
    const bool list = text.empty() || (text.find_first_not_of("0123456789,") == std::string::npos &&
                                       text.front() != ',' && text.back() != ',' &&
                                       text.find(",,") == std::string::npos);
    if (!list) findings_.problem("the layer sizes are no list of numbers");
  }

  /// The state counts of all vertices.
  std::vector<std::uint64_t> vertices(const StoredGraph& stored, std::uint64_t slices) {
    const wide_t count = wide_t(stored.vertices) * slices;
    if (count > fields_.left()) {
      stop("the vertices are cut off: " + counted(fields_.left(), "byte") + " are left");
    }
    std::vector<std::uint64_t> states;
    for (std::uint64_t v = 0; v < count; ++v) {
      const std::string name = "vertex " + std::to_string(v);
      states.push_back(index(name));
      if (!fields_.zero_text()) stop("the file ends within the name of " + name);
      for (std::uint64_t x = 0; x < states.back(); ++x) {
        if (!fields_.zero_text()) {
          stop("the file ends within the names of the states of " + name + ": it has " +
               std::to_string(x) + " of " + std::to_string(states.back()));
        }
      }
    }
    return states;
  }

  /// One parameter per pair of states of every edge; over time, an edge stands in every slice and
  /// twice between neighbouring ones, and a vertex is joined to itself.
  static wide_t parameter_count(const StoredGraph& stored, const std::vector<std::uint64_t>& states,
                                std::uint64_t slices) {
    const std::uint64_t n = stored.vertices;
    const auto pairs = [&](std::uint64_t s, std::uint64_t t) {
      return s < states.size() && t < states.size() ? wide_t(states[s]) * states[t] : wide_t(0);
    };
    wide_t sum = 0;
    for (std::uint64_t r = 0; r < slices; ++r) {
      const std::uint64_t here = r * n;
      const std::uint64_t next = here + n;
      const bool last = r + 1 == slices;
      for (const auto& [s, t] : stored.edges) {
        sum += pairs(here + s, here + t);
        if (!last) sum += pairs(here + s, next + t) + pairs(next + s, here + t);
      }
      for (std::uint64_t v = 0; v < n && !last; ++v) sum += pairs(here + v, next + v);
    }
    return sum;
  }

  void values(const std::string& what, std::uint64_t count) {
    const std::uint64_t held = std::min<std::uint64_t>(count, fields_.left() / widths_.value);
    for (std::uint64_t i = 0; i < held; ++i) {
      if (is_number()) continue;
      findings_.problem("number " + std::to_string(i) + " of the " + what + " is not finite");
    }
    if (held < count) {
      stop("the " + what + " are cut off: the file holds " + std::to_string(held) + " of " +
           std::to_string(count));
    }
  }

  bool is_number() {
    switch (widths_.real ? widths_.value : 0) {
      case sizeof(float):
        return std::isfinite(fields_.value<float>());
      case sizeof(double):
        return std::isfinite(fields_.value<double>());
      default:
        return fields_.number(widths_.value).has_value();
    }
  }

  ByteFields fields_;
  TypeWidths widths_;
  Findings& findings_;
  std::set<std::pair<std::uint64_t, std::uint64_t>> joined_;
};

/// Follows the file as far as it can be read.
template <class Examine>
Findings examine(const std::string& bytes, const TypeWidths& widths, const std::string& kind,
                 Examine&& examine_parts) {
  Findings findings;
  findings.summary(kind);
  BinaryCheck check(bytes, widths, findings);
  try {
    examine_parts(check);
    check.end();
  } catch (const Unreadable&) {
    // The reason has been noted.
  }
  return findings;
}

}  // namespace

Findings check_graph(const std::string& bytes, std::size_t index_width) {
  return examine(bytes, {index_width, 0, false}, "a graph",
                 [](BinaryCheck& check) { check.graph(); });
}

Findings check_model(const std::string& bytes, const TypeWidths& widths) {
  return examine(bytes, widths, "a model", [](BinaryCheck& check) { check.model(); });
}

}  // namespace qz_tool
