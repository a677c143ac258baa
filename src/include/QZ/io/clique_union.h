#pragma once

/// A graph that grows by cliques until its vertices hang together.

#include <algorithm>
#include <cstddef>
#include <stdexcept>
#include <vector>

namespace QZ {

/// Throws logic_error for a clique order that has no pairs.
inline void require_clique_order(unsigned long k) {
  if (k < 2) throw std::logic_error("a clique needs at least two vertices");
}

/// The adjacency matrix of a union of cliques, and the components that they form. A vertex without
/// a clique has no component.
template <class idx_t>
class CliqueUnion {
 public:
  explicit CliqueUnion(std::size_t n) : n_(n), adjacency_(n * n), component_(n, none) {}

  /// Adds the clique of the ascending `members` and returns true, unless all of them sit in one
  /// component already.
  bool process(const std::vector<idx_t>& members) {
    const auto in_first = [&](idx_t v) { return component_[v] == component_[members[0]]; };
    if (connected(members[0]) && std::all_of(members.begin(), members.end(), in_first))
      return false;
    for (std::size_t i = 0; i < members.size(); ++i) {
      for (std::size_t j = i + 1; j < members.size(); ++j) join(members[i], members[j]);
    }
    return true;
  }

  /// Whether `v` is in a component.
  bool connected(std::size_t v) const { return component_[v] != none; }
  /// The number of the component of a connected vertex, and its vertices, ascending.
  std::size_t component(std::size_t v) const { return component_[v]; }
  const std::vector<idx_t>& component_members(std::size_t v) const {
    return members_[component_[v]];
  }
  /// The vertices that hang together with vertex 0; 0 before it is in a component.
  std::size_t reached() const { return connected(0) ? component_members(0).size() : 0; }
  /// The row-major n-by-n matrix of 0 and 1.
  idx_t* adjacency() { return adjacency_.data(); }

 private:
  static constexpr std::size_t none = ~std::size_t(0);

  void join(std::size_t a, std::size_t b) {
    adjacency_[a * n_ + b] = adjacency_[b * n_ + a] = 1;
    if (!connected(a) && !connected(b)) {
      component_[a] = members_.size();
      members_.push_back({static_cast<idx_t>(a)});
    }
    if (!connected(a)) return add(a, component_[b]);
    if (!connected(b)) return add(b, component_[a]);
    if (component_[a] == component_[b]) return;
    std::vector<idx_t> moved;
    moved.swap(members_[component_[b]]);
    for (const idx_t v : moved) add(v, component_[a]);
  }

  void add(std::size_t v, std::size_t component) {
    component_[v] = component;
    auto& members = members_[component];
    members.insert(std::lower_bound(members.begin(), members.end(), v), static_cast<idx_t>(v));
  }

  std::size_t n_;
  std::vector<idx_t> adjacency_;
  std::vector<std::size_t> component_;
  std::vector<std::vector<idx_t>> members_;
};

}  // namespace QZ
