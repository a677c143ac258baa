#pragma once

/// Graphs as text for other programs: adjacency matrix, Trivial Graph Format, factor graph.

#include <cmath>
#include <cstddef>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "QZ/graph/abstract_graph.h"
#include "QZ/io/model_container.h"

namespace QZ {

/// Writes a text file through `write(std::ostream&)`. Throws logic_error "cannot write NAME" if the
/// file does not open or anything is lost.
template <class Write>
void write_text_file(const std::string& filename, Write&& write) {
  std::ofstream out(filename, std::ios::binary | std::ios::trunc);
  if (out) write(out);
  out.close();
  if (!out) throw std::logic_error("cannot write " + filename);
}

template <class idx_t, class val_t>
void IO<idx_t, val_t>::storeADJ(const std::string& filename) const {
  if (graph == nullptr) throw std::logic_error("the model has no graph");
  const std::size_t n = graph->vertices();
  std::vector<std::vector<idx_t>> neighbors(n);
  for (idx_t e = 0; e < graph->edges(); ++e) {
    const auto [s, t] = endpoints(*graph, e);
    neighbors[s].push_back(t);
    neighbors[t].push_back(s);
  }
  write_text_file(filename, [&](std::ostream& out) {
    std::vector<idx_t> row(n);
    for (std::size_t v = 0; v < n; ++v) {
      row.assign(n, 0);
      for (const idx_t w : neighbors[v]) row[w] = 1;
      // A one-byte cell is a character to the stream and leaves as the raw byte.
      for (std::size_t w = 0; w < n; ++w) out << (w == 0 ? "" : ",") << row[w];
      out << '\n';
    }
  });
}

template <class idx_t, class val_t>
void IO<idx_t, val_t>::storeTGF(const std::string& filename) const {
  if (graph == nullptr) throw std::logic_error("the model has no graph");
  write_text_file(filename, [&](std::ostream& out) {
    const std::size_t n = graph->vertices();
    for (std::size_t v = 0; v < n; ++v) out << v + 1 << ' ' << vertex_name(v) << '\n';
    out << "#\n";
    for (idx_t e = 0; e < graph->edges(); ++e) {
      const auto [s, t] = endpoints(*graph, e);
      out << static_cast<std::size_t>(s) + 1 << ' ' << static_cast<std::size_t>(t) + 1 << '\n';
    }
  });
}

/// One factor table. Its first variable runs fastest, while in `block` the second one does.
template <class idx_t, class val_t>
void write_factor(std::ostream& out, const Endpoints<idx_t>& edge, std::size_t s_states,
                  std::size_t t_states, const val_t* block) {
  out << "2\n"
      << static_cast<std::size_t>(edge.s) << ' ' << static_cast<std::size_t>(edge.t) << '\n'
      << s_states << ' ' << t_states << '\n'
      << s_states * t_states << '\n';
  for (std::size_t xt = 0; xt < t_states; ++xt) {
    for (std::size_t xs = 0; xs < s_states; ++xs) {
      out << xs + xt * s_states << ' ' << std::exp(block[xt + xs * t_states]) << '\n';
    }
  }
  out << '\n';
}

template <class idx_t, class val_t>
void IO<idx_t, val_t>::storeFG(const std::string& filename) const {
  require_matching_arrays();
  if (weights == nullptr) throw std::logic_error("the model has no weights");
  write_text_file(filename, [&](std::ostream& out) {
    out << static_cast<std::size_t>(graph->edges()) << "\n\n";
    for (idx_t e = 0; e < graph->edges(); ++e) {
      const auto edge = endpoints(*graph, e);
      write_factor(out, edge, states[edge.s], states[edge.t], weights + weight_offset(e));
    }
  });
}

}  // namespace QZ
