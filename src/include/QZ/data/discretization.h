#pragma once

/// From real numbers to categories.

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstddef>
#include <limits>
#include <memory>
#include <stdexcept>
#include <vector>

#include "QZ/data/discretization_model.h"
#include "QZ/data/moments.h"
#include "QZ/data/number_sort.h"
#include "QZ/support/assertion.h"
#include "QZ/support/conversions.h"
#include "QZ/support/first_exception.h"
#include "QZ/support/parallel.h"

namespace QZ {

/// A column's change of scale: (x - mean) / sd, where a column without spread keeps its unit.
class Standardization {
 public:
  Standardization(double mean, double stddev) : mean_(mean), unit_(stddev == 0 ? 1.0 : stddev) {}

  double operator()(double x) const { return (x - mean_) / unit_; }

 private:
  double mean_;
  double unit_;
};

/// Finds the bin of a standardized value.
class BinSearch {
 public:
  explicit BinSearch(const DiscretizationModel& model) : model_(model) {
    ends_.reserve(model.num_intervals);
    for (std::size_t i = 0; i < model.num_intervals; ++i) {
      ascending_ &= lower(i) <= upper(i) && (i == 0 || upper(i - 1) <= lower(i));
      ends_.push_back(is_point(i) ? std::nextafter(upper(i), infinity) : upper(i));
    }
  }

  /// The first bin that holds `z`, where a value below the first bin counts to it and one from the
  /// end of the last bin on to that. The number of bins if there is none.
  std::size_t operator()(double z) const {
    const std::size_t bins = ends_.size();
    if (bins == 0) return 0;
    if (z < lower(0)) return 0;
    if (z >= upper(bins - 1)) return bins - 1;
    std::size_t bin = ascending_ ? bins_before(z) : 0;
    while (bin < bins && !holds(bin, z)) ++bin;
    return bin;
  }

 private:
  static constexpr double infinity = std::numeric_limits<double>::infinity();

  double lower(std::size_t i) const { return model_.intervals[2 * i]; }
  double upper(std::size_t i) const { return model_.intervals[2 * i + 1]; }
  bool is_point(std::size_t i) const { return lower(i) == upper(i); }

  bool holds(std::size_t i, double z) const {
    return is_point(i) ? z == lower(i) : lower(i) <= z && z < upper(i);
  }

  /// How many bins end at or below `z`. Halves the range without a branch on the values.
  std::size_t bins_before(double z) const {
    const double* first = ends_.data();
    std::size_t count = ends_.size();
    while (count > 1) {
      const std::size_t half = count / 2;
      first += half * static_cast<std::size_t>(first[half - 1] <= z);
      count -= half;
    }
    return static_cast<std::size_t>(first - ends_.data()) + (*first <= z);
  }

  const DiscretizationModel& model_;
  /// The smallest number that lies behind each bin.
  std::vector<double> ends_;
  /// The bins follow each other, so that only one place can hold a value.
  bool ascending_ = true;
};

/// Writes the category of each of the n values of `in` to `out`, with a team of threads. Asserts
/// "found" for a value in a gap between bins.
inline void discretize_precomputed(unsigned short* out, const double* in, std::size_t n,
                                   const DiscretizationModel& model) {
  const Standardization standardized(model.mean, model.stddev);
  const BinSearch bin_of(model);
  FirstException failure;
#pragma omp parallel
  failure.guard([&] {
    const auto [first, last] = my_share<std::size_t>(n);
    for (std::size_t i = first; i < last; ++i) {
      const std::size_t bin = bin_of(standardized(in[i]));
      assert_that(bin < model.num_intervals, "found", door::data);
      out[i] = wrapping_cast<unsigned short>(bin);
    }
  });
  failure.rethrow();
}

/// Where a bin starts: its first place in the sorted column, and the value there.
struct Cut {
  std::size_t position;
  double value;
};

/// One plus the number of places where a sorted, non-empty column changes its value.
inline std::size_t count_distinct(const double* sorted, std::size_t n) {
  std::atomic<std::size_t> distinct{1};
#pragma omp parallel
  {
    const auto [first, last] = my_share<std::size_t>(n);
    std::size_t changes = 0;
    for (std::size_t i = std::max<std::size_t>(first, 1); i < last; ++i) {
      changes += sorted[i] != sorted[i - 1];
    }
    distinct.fetch_add(changes, std::memory_order_relaxed);
  }
  return distinct;
}

/// A bin for every distinct value of a sorted column. The last one gets an end of its own.
inline std::vector<Cut> cut_at_values(const double* sorted, std::size_t n) {
  std::vector<Cut> cuts{{0, sorted[0]}};
  for (std::size_t i = 1; i < n; ++i) {
    if (sorted[i] != sorted[i - 1]) cuts.push_back({i, sorted[i]});
  }
  cuts.push_back({n, sorted[n - 1] + 2e-9});
  return cuts;
}

/// Bins of about equal counts: each takes its share of what is left and then the rest of the run of
/// equal values that it began with.
inline std::vector<Cut> cut_at_frequencies(const double* sorted, std::size_t n, std::size_t bins) {
  std::vector<Cut> cuts{{0, sorted[0]}};
  std::size_t start = 0;
  for (std::size_t left = bins; left != 1; --left) {
    const double share = static_cast<double>(n - start) / static_cast<double>(left);
    std::size_t position = start + static_cast<std::size_t>(std::floor(share));
    // A run up to the end takes the position behind the column, which has the last value.
    while (position < n && sorted[position] == sorted[start]) ++position;
    cuts.push_back({position, sorted[std::min(position, n - 1)]});
    start = position;
  }
  cuts.push_back({n, sorted[n - 1]});
  return cuts;
}

/// Drops every cut whose value is within 1e-9 of the next one's.
inline void merge_close_cuts(std::vector<Cut>& cuts) {
  std::vector<Cut> kept;
  for (std::size_t i = 0; i < cuts.size(); ++i) {
    const bool close = i + 1 < cuts.size() && std::abs(cuts[i].value - cuts[i + 1].value) < 1e-9;
    if (!close) kept.push_back(cuts[i]);
  }
  cuts.swap(kept);
}

/// Learns at most `bins` bins from the n values of `in`, writes the category of each to `out`, and
/// returns the model, whose two arrays are new and belong to the caller.
///
/// The column is standardized. With no more distinct values than bins each value has its own bin,
/// and bins of equal frequency otherwise; a run of equal values stays in one bin. A bin whose
/// values do not vary is a point. Cost: one sort; threads share the scaling and the search.
///
/// Throws logic_error if `bins` is 0. No values give a model without bins. Asserts "found" if a
/// value is not a number.
inline DiscretizationModel discretize(unsigned short* out, const double* in, std::size_t n,
                                      std::size_t bins) {
  if (bins == 0) throw std::logic_error("discretization needs at least one bin");
  std::unique_ptr<double[]> sorted(new double[n]);
  const Moments column = estimateMoments(in, n);
  const double stddev = std::sqrt(column.variance);
  if (n == 0) return {0, 0, new double[0], new double[0], column.mean, stddev};
  const Standardization standardized(column.mean, stddev);
#pragma omp parallel
  {
    const auto [first, last] = my_share<std::size_t>(n);
    for (std::size_t i = first; i < last; ++i) sorted[i] = standardized(in[i]);
  }
  NumberSort::ascending(sorted.get(), n);
  std::vector<Cut> cuts = count_distinct(sorted.get(), n) <= bins
                              ? cut_at_values(sorted.get(), n)
                              : cut_at_frequencies(sorted.get(), n, bins);
  merge_close_cuts(cuts);
  std::vector<Moments> moments;
  for (std::size_t i = 0; i + 1 < cuts.size(); ++i) {
    const std::size_t first = cuts[i].position;
    moments.push_back(estimateMoments(sorted.get() + first, cuts[i + 1].position - first));
  }
  sorted.reset();
  auto intervals = std::make_unique<double[]>(2 * moments.size());
  auto rows = std::make_unique<double[]>(5 * moments.size());
  for (std::size_t i = 0; i < moments.size(); ++i) {
    const Moments& bin = moments[i];
    intervals[2 * i] = cuts[i].value;
    intervals[2 * i + 1] = cuts[bin.variance == 0 ? i : i + 1].value;
    const double row[] = {bin.mean, bin.variance, bin.skew, bin.kurtosis,
                          static_cast<double>(bin.count)};
    std::copy(row, row + 5, &rows[5 * i]);
  }
  const DiscretizationModel model{moments.size(), moments.size(), intervals.release(),
                                  rows.release(), column.mean,    stddev};
  discretize_precomputed(out, in, n, model);
  return model;
}

}  // namespace QZ
