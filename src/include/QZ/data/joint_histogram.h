#pragma once

/// The joint histogram of a set of variables, counted on demand.

#include <algorithm>
#include <atomic>
#include <memory>
#include <set>
#include <stdexcept>
#include <vector>

#include "QZ/data/categorical_data.h"
#include "QZ/data/pair_counting.h"
#include "QZ/support/assertion.h"
#include "QZ/support/conversions.h"
#include "QZ/support/parallel.h"

namespace QZ {

/// Finds the entries of rows in the histogram of a set of vertices: the largest vertex is the
/// fastest digit.
class HistogramRows {
 public:
  /// Asserts "col<n+H && row<N" if the table has rows and lacks the column of a vertex.
  template <class idx_t>
  HistogramRows(const CategoricalData& data, const std::set<idx_t>& vertices, const idx_t* states,
                unsigned long size)
      : size_(size) {
    idx_t stride = 1;
    for (auto v = vertices.rbegin(); v != vertices.rend(); ++v) {
      assert_that(data.N == 0 || *v < data.n + data.H, "col<n+H && row<N", door::data);
      const bool visible = *v < data.n;
      members_.push_back({visible ? data.data + *v : data.hidden + (*v - data.n),
                          visible ? data.n : data.H, states[*v], stride});
      stride = wrapping_mul(stride, states[*v]);
    }
  }

  /// The most rows that `find` takes at once.
  static constexpr unsigned long most = 256;

  /// Sets entry[i] for the rows [begin, end); false if a cell or an entry is out of range.
  bool find(unsigned long begin, unsigned long end, unsigned long* entry) const {
    const unsigned long rows = end - begin;
    bool fits = true;
    std::fill(entry, entry + rows, 0);
    for (const Member& member : members_) {
      const unsigned short* cell = member.cells + begin * member.step;
      for (unsigned long i = 0; i < rows; ++i, cell += member.step) {
        fits &= *cell < member.states;
        entry[i] += member.stride * *cell;
      }
    }
    for (unsigned long i = 0; i < rows; ++i) fits &= entry[i] < size_;
    return fits;
  }

 private:
  struct Member {
    const unsigned short* cells;
    unsigned long step;
    unsigned long states;
    unsigned long stride;
  };

  unsigned long size_;
  std::vector<Member> members_;
};

/// A new histogram of `size` entries, owned by the caller: how many rows of `data` have the
/// vertices of a set in each joint state. The entry is the sum of stride * state from the largest
/// vertex, with stride 1, to the smallest; with an empty set all rows count at entry 0. Counts, as
/// adding one by one in `val_t` gives them.
///
/// `set` is the address of a pointer to a std::set<idx_t>. Rows are shared among a team of threads.
/// Throws logic_error if a cell is missing or beyond the states of its vertex, or an entry lies
/// outside the histogram. Asserts "col<n+H && row<N". The vertex count is not used.
template <class idx_t, class val_t>
val_t* sumStatsOnlineSUI(CategoricalData* data, const idx_t& /*n*/, idx_t*& states,
                         unsigned long set, const idx_t& size) {
  const auto* const vertices = *reinterpret_cast<std::set<idx_t>* const*>(set);
  const HistogramRows rows(*data, *vertices, states, size);
  auto histogram = std::make_unique<val_t[]>(size);
  const auto threads = static_cast<unsigned long>(std::max(1, omp_get_max_threads()));
  // A table of its own for each thread, unless the tables would outweigh the rows.
  const bool apart = size <= data->N / threads;
  std::vector<unsigned long> tables(apart ? threads * size : 0);
  std::atomic<bool> fits{true};
#pragma omp parallel
  {
    unsigned long* const own = tables.data() + (apart ? omp_get_thread_num() * size : 0);
    unsigned long entry[HistogramRows::most];
    const auto [first, last] = my_share<unsigned long>(data->N);
    for (unsigned long begin = first; begin < last && fits.load(std::memory_order_relaxed);) {
      const unsigned long end = std::min(begin + HistogramRows::most, last);
      if (!rows.find(begin, end, entry)) {
        fits.store(false, std::memory_order_relaxed);
      } else if (apart) {
        for (unsigned long i = 0; i < end - begin; ++i) ++own[entry[i]];
      } else {
        for (unsigned long i = 0; i < end - begin; ++i) atomic_add<val_t>(histogram[entry[i]], 1);
      }
      begin = end;
    }
  }
  if (!fits) throw std::logic_error("a cell does not fit the joint histogram of its variables");
  for (unsigned long i = 0; i < tables.size(); ++i) add_ones(histogram[i % size], tables[i]);
  return histogram.release();
}

}  // namespace QZ
