#pragma once

/// Polynomial moments from distinct tuples.

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstddef>
#include <memory>
#include <mutex>
#include <stdexcept>

#include "QZ/inference/sqm.h"

namespace QZ {

/// Counts every tuple once and stops when the tuples drawn cover 95 percent of the probability, or
/// when every parameter has met `max_iterations` of them.
///
/// The sum over distinct tuples, each weighed with its own probability, takes the place of the mean
/// over draws. Terms that would be negative count as 0 here, in contrast to `SQM` and to the
/// exhaustive sum. Distinct tuples are told apart by a key that wraps in `idx_t` and may collide:
/// of tuples with one key the first drawn counts. Engines of one type in several threads share the
/// table of keys, so that each lacks what the others have drawn.
template <class idx_t, class val_t>
class SQMplus : public SQM<idx_t, val_t> {
  using Base = SQM<idx_t, val_t>;
  using typename Base::Partial;

 public:
  using Base::Base;
  using Base::dim;
  using Base::estimate_sum;
  using Base::KNOWN;
  using Base::KNOWN_MTX;
  using Base::max_iterations;
  using Base::moment_norms;
  using Base::PSUM;
  using Base::sample_count;

  /// Mode 10 is `infer_slow`. Throws logic_error "no new tuples" if colliding keys leave no way to
  /// cover 95 percent, and too few tuples for every parameter: after a million draws in a row
  /// without a new one.
  void infer(const idx_t& mode) override;

 private:
  static constexpr unsigned long stalled_after = 1ul << 20;

  /// A run of `infer` that notices whether others have gone on at the same time.
  class Run {
   public:
    Run() : number_(++started), first_(active++ == 0) {}
    Run(const Run&) = delete;
    Run& operator=(const Run&) = delete;
    ~Run() { --active; }
    bool alone() const { return first_ && number_ == started; }

   private:
    inline static std::atomic<unsigned long> started = 0;
    inline static std::atomic<unsigned long> active = 0;
    unsigned long number_;
    bool first_;
  };

  void draw_distinct_tuples(const Run& run);
  idx_t key_of(const idx_t* tuple, std::size_t d) const;
  /// True for a key that was not known.
  static bool remember(idx_t key) {
    const std::lock_guard lock(KNOWN_MTX);
    return KNOWN.insert(key).second;
  }
};

template <class idx_t, class val_t>
void SQMplus<idx_t, val_t>::infer(const idx_t& mode) {
  if (mode == 10) {
    this->infer_slow(mode);
    return;
  }
  const Run run;
  this->init_sqm();
  this->start_sums();
  std::fill_n(moment_norms, dim, val_t(0));
  if (max_iterations > 0) draw_distinct_tuples(run);
  if (estimate_sum == 0) estimate_sum = 1;
  sample_count = 1;
  Base::covered().store(1);
  std::fill_n(moment_norms, dim, val_t(1));
  this->log_partition = std::log(std::abs(estimate_sum) / sample_count);
}

template <class idx_t, class val_t>
void SQMplus<idx_t, val_t>::draw_distinct_tuples(const Run& run) {
  Partial fixed(this->states, this->graph->vertices());
  const auto room = std::make_unique<idx_t[]>(this->degree);
  idx_t* tuple = room.get();
  idx_t lowest = 0;
  unsigned long known_in_a_row = 0;
  while (Base::covered().load() < val_t(0.95)) {
    idx_t d = 0;
    this->sample(tuple, d);
    if (!remember(key_of(tuple, d))) {
      if (lowest >= max_iterations) break;
      if (++known_in_a_row < stalled_after) continue;
      if (run.alone()) throw std::logic_error("no new tuples");
      // The mass that is missing went to an engine in another thread.
      break;
    }
    known_in_a_row = 0;
    this->fix(fixed, tuple, d);
    const val_t mass = this->mass(fixed, d);
    const val_t before = Base::covered().fetch_add(mass);
    assert_that(!std::isnan(before + mass), "!std::isnan(PSUM)", door::inf);
    this->add_estimate(fixed, std::max(this->signed_term(tuple, d), val_t(0)) * mass);
    lowest = this->lowest_norm();
    if (lowest >= max_iterations) break;
  }
}

template <class idx_t, class val_t>
idx_t SQMplus<idx_t, val_t>::key_of(const idx_t* tuple, std::size_t d) const {
  if (d == 0) return 0;
  idx_t key = tuple[0];
  for (std::size_t p = 0; p < d; ++p) {
    key = wrapping_add(wrapping_mul(dim, key), tuple[p]);
  }
  return key;
}

}  // namespace QZ
