#pragma once

#include <algorithm>
#include <stdexcept>
#include <string>

#include "QZ/graph/abstract_graph.h"
#include "QZ/graph/fitting_count.h"
#include "QZ/support/conversions.h"

namespace QZ {

/// A base graph unrolled over T slices in time, with no edge stored: every answer is computed.
///
/// Vertex v of slice r has number r * V + v. With D = T - 1, the edges are, in order:
///   D * V temporal edges, from (v, r) to (v, r + 1), numbered by v, then r;
///   3 * D * E edges, three for each base edge (s, t) and slice r, numbered by base edge, then r:
///   the
///     spatial edge in slice r, the cross edge (s, r) to (t, r + 1), the cross edge (s, r + 1) to
///     (t, r);
///   E spatial edges of the last slice.
/// A vertex lists its spatial edges, its cross edges to the earlier slice, those to the later
/// slice, then its temporal edges, the one to the later slice first.
template <class idx_t>
class STGraph : public AbstractGraph<idx_t> {
 public:
  /// Borrows `base`. Throws logic_error for fewer than two slices, and if `idx_t` cannot number the
  /// vertices and edges.
  STGraph(const idx_t& slices, AbstractGraph<idx_t>* base) : slices(slices), base(base) {
    if (slices < 2) throw std::logic_error("an unrolled graph needs at least two slices");
    const unsigned __int128 span = slices - 1;
    fitting_count<idx_t>((span + 1) * base->vertices());
    fitting_count<idx_t>((3 * span + 1) * base->edges() + span * base->vertices());
    invSpan = static_cast<float>(1.0 / static_cast<double>(slices - 1));
  }

  idx_t vertices() const override { return wrapping_mul(slices, base->vertices()); }

  idx_t edges() const override { return wrapping_cast<idx_t>(last_begin() + base->edges()); }

  idx_t num_neighbors(const idx_t& x) const override {
    const Site at = site(x);
    return wrapping_cast<idx_t>(at.inner ? 3 * at.degree + 2 : 2 * at.degree + 1);
  }

  void edge(const idx_t& e, idx_t& a, idx_t& b) const override {
    const Word vertex_count = base->vertices();
    if (e < spatial_begin()) {
      const Word r = e % span();
      const Word from = whole_spans(e - r) + r * vertex_count;
      a = wrapping_cast<idx_t>(from);
      b = wrapping_cast<idx_t>(from + vertex_count);
    } else if (e < last_begin()) {
      const Word w = (e - spatial_begin()) / 3;
      const Word kind = (e - spatial_begin()) % 3;
      const Word r = w % span();
      // Rounding may lead past the last base edge, where there is nothing to read.
      const Word found = std::min<Word>(whole_spans(w - r), base->edges() - Word(1));
      const auto [s, t] = endpoints(*base, wrapping_cast<idx_t>(found));
      a = wrapping_cast<idx_t>(s + (kind == 2 ? r + 1 : r) * vertex_count);
      b = wrapping_cast<idx_t>(t + (kind == 1 ? r + 1 : r) * vertex_count);
    } else {
      const auto [s, t] = endpoints(*base, wrapping_cast<idx_t>(e - last_begin()));
      a = wrapping_cast<idx_t>(s + span() * vertex_count);
      b = wrapping_cast<idx_t>(t + span() * vertex_count);
    }
  }

  /// All ones if `x` has no i-th edge.
  idx_t in_edge(const idx_t& x, const idx_t& i) const override {
    const Site at = site(x);
    const Word d = at.degree;
    if (i < d) return spatial_edge(at, i);
    const bool first = at.slice == 0;
    // Cross edges to the earlier slice are numbered by that slice.
    if (i < 2 * d) return cross_edge(at, i - d, first ? 0 : at.slice - 1, first);
    if (at.inner && i < 3 * d) return cross_edge(at, i - 2 * d, at.slice, true);
    const Word past = i - (at.inner ? 3 * d : 2 * d);
    const Word forward = span() * at.vertex + at.slice;
    if (past == 0) return wrapping_cast<idx_t>(at.slice < span() ? forward : forward - 1);
    if (past == 1 && at.inner) return wrapping_cast<idx_t>(forward - 1);
    return all_ones<idx_t>;
  }

  /// Writes the base graph; the slices are not stored.
  void store(const std::string& filename) const override { base->store(filename); }

  std::size_t mem() const override { return base->mem() + sizeof(idx_t) + 8; }

  idx_t slices;
  AbstractGraph<idx_t>* base;
  /// 1 / (slices - 1).
  float invSpan;

 private:
  using Word = unsigned long;

  /// A vertex taken apart. It is inner if it has an earlier and a later slice.
  struct Site {
    Word slice;
    idx_t vertex;
    Word degree;
    bool inner;
  };

  Word span() const { return slices - Word(1); }
  Word spatial_begin() const { return span() * base->vertices(); }
  Word last_begin() const { return spatial_begin() + 3 * span() * base->edges(); }

  /// `items` / span by the float reciprocal. The layout of stored parameters follows its rounding,
  /// so no exact division may take its place.
  Word whole_spans(Word items) const {
    return saturating_cast<Word>(static_cast<float>(items) * invSpan);
  }

  Site site(idx_t x) const {
    const idx_t vertex_count = base->vertices();
    const Word slice = x / vertex_count;
    const idx_t vertex = x % vertex_count;
    return {slice, vertex, base->num_neighbors(vertex), slice > 0 && slice < span()};
  }

  idx_t spatial_edge(const Site& at, Word i) const {
    const Word e = base->in_edge(at.vertex, wrapping_cast<idx_t>(i));
    if (at.slice == span()) return wrapping_cast<idx_t>(last_begin() + e);
    return wrapping_cast<idx_t>(spatial_begin() + 3 * (span() * e + at.slice));
  }

  /// The cross edge between slice `r` and the next that belongs to the i-th base edge at the
  /// vertex, which lies in slice r if `earlier`, else in slice r + 1.
  idx_t cross_edge(const Site& at, Word i, Word r, bool earlier) const {
    const idx_t e = base->in_edge(at.vertex, wrapping_cast<idx_t>(i));
    const bool second = endpoints(*base, e).t == at.vertex;
    const Word kind = second == earlier ? 2 : 1;
    return wrapping_cast<idx_t>(spatial_begin() + 3 * (span() * e + r) + kind);
  }
};

}  // namespace QZ
