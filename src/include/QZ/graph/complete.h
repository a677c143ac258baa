#pragma once

#include <atomic>

#include "QZ/comb/subsets.h"
#include "QZ/graph/fitting_count.h"
#include "QZ/graph/graph.h"
#include "QZ/support/first_exception.h"
#include "QZ/support/parallel.h"
#include "QZ/support/progress.h"

namespace QZ {

/// The complete graph. Edge e is the pair with number e in descending lexicographic order: for n =
/// 4 (2,3), (1,3), (1,2), (0,3), (0,2), (0,1). See `QZ/comb/subsets.h`.
template <class idx_t>
class Kn : public Graph<idx_t> {
 public:
  /// Filled by an OpenMP team. Thread 0 reports (edges done by all, edges - 1, "GRAPH") before each
  /// of its edges; what the callback throws passes to the caller. Throws logic_error if `idx_t`
  /// cannot number the edges.
  explicit Kn(const idx_t& n, ProgressCallback progress = nullptr) {
    this->n = n;
    const unsigned __int128 vertices = n;
    this->allocateEdges(n == 0 ? 0 : fitting_count<idx_t>(vertices * (vertices - 1) / 2));
    const Progress report{progress, "GRAPH"};
    std::atomic<std::size_t> done = 0;
    FirstException failure;
#pragma omp parallel
    failure.guard([&] { fill(my_share<std::size_t>(this->m), report, done); });
    failure.rethrow();
    this->buildNeighborhoods();
  }

 private:
  void fill(Range<std::size_t> share, const Progress& report, std::atomic<std::size_t>& done) {
    if (share.begin == share.end) return;
    const bool reports = report.callback != nullptr && omp_get_thread_num() == 0;
    ElementPair pair = unrank_pair(this->n, share.begin);
    for (std::size_t e = share.begin; e < share.end; ++e, pair = next_pair(this->n, pair)) {
      if (reports) report(done.load(std::memory_order_relaxed), this->m - std::size_t(1));
      this->setEdge(e, pair.low, pair.high);
      if (report.callback != nullptr) done.fetch_add(1, std::memory_order_relaxed);
    }
  }
};

}  // namespace QZ
