#pragma once

/// Sums over vertices of a table, and their reverse.

#include <cstddef>

#include "QZ/support/pack.h"
#include "QZ/support/wide_registers.h"

namespace QZ {

/// The sum of all entries, in eight interleaved running sums.
template <class val_t>
[[gnu::always_inline]] inline val_t sum_body(const val_t* in, std::size_t n) {
  using pack = Pack<val_t, 4>;
  typename pack::type even{};
  typename pack::type odd{};
  std::size_t i = 0;
  for (; i + 8 <= n; i += 8) {
    even += pack::at(in + i);
    odd += pack::at(in + i + 4);
  }
  val_t sum = 0;
  for (; i < n; ++i) sum += in[i];
  even += odd;
  return ((even[0] + even[1]) + (even[2] + even[3])) + sum;
}

template <class val_t>
val_t sum_all(const val_t* in, std::size_t n) {
  val_t sum = 0;
  on_widest_registers([ in, n, &sum ]() __attribute__((always_inline)) { sum = sum_body(in, n); });
  return sum;
}

/// Neighbouring vertices of a clique that are in a part of it, and those above them that are
/// outside: how many states each of the two groups has, 1 for none.
struct TableRuns {
  std::size_t inside;
  std::size_t outside;
};

namespace table_kernels {

/// The most pairs of runs that are walked.
constexpr std::size_t most_runs = 16;

/// part[j] += entry, the sum over the vertices outside the part.
struct Sum {
  template <class val_t>
  [[gnu::always_inline]] static void entry(const val_t& table, val_t& part) {
    part += table;
  }
  /// The entries of a run that belong to one entry of the part.
  template <class val_t>
  [[gnu::always_inline]] static void run(const val_t* table, std::size_t n, val_t& part) {
    part += sum_body(table, n);
  }
};

/// entry += part[j], the same for all states of the vertices outside the part.
struct Spread {
  template <class val_t>
  [[gnu::always_inline]] static void entry(val_t& table, const val_t& part) {
    table += part;
  }
  template <class val_t>
  [[gnu::always_inline]] static void run(val_t* table, std::size_t n, const val_t& part) {
    const val_t value = part;
    for (std::size_t i = 0; i < n; ++i) table[i] += value;
  }
};

/// `upper` times a run inside and a run outside the part, of lengths that the compiler knows.
template <class Step, std::size_t inside, std::size_t outside, class table_t, class part_t>
[[gnu::always_inline]] inline void walk_short(std::size_t upper, table_t* table, part_t* part) {
  for (std::size_t m = 0; m < upper; ++m) {
    for (std::size_t i = 0; i < inside; ++i) {
      for (std::size_t o = 0; o < outside; ++o) {
        Step::entry(table[(m * outside + o) * inside + i], part[m * inside + i]);
      }
    }
  }
}

/// The same for any lengths.
template <class Step, class table_t, class part_t>
[[gnu::always_inline]] inline void walk_runs(std::size_t inside, std::size_t outside,
                                             std::size_t upper, table_t* table, part_t* part) {
  for (std::size_t m = 0; m < upper; ++m, part += inside) {
    if (inside == 1) {
      Step::run(table, outside, *part);
      table += outside;
      continue;
    }
    for (std::size_t o = 0; o < outside; ++o, table += inside) {
      for (std::size_t i = 0; i < inside; ++i) Step::entry(table[i], part[i]);
    }
  }
}

template <class Step, class table_t, class part_t>
[[gnu::always_inline]] inline void walk_lowest(const TableRuns& runs, std::size_t upper,
                                               table_t* table, part_t* part) {
  const std::size_t inside = runs.inside;
  const std::size_t outside = runs.outside;
  if (outside == 2) {
    if (inside == 1) return walk_short<Step, 1, 2>(upper, table, part);
    if (inside == 2) return walk_short<Step, 2, 2>(upper, table, part);
    if (inside == 4) return walk_short<Step, 4, 2>(upper, table, part);
  } else if (outside == 3) {
    if (inside == 1) return walk_short<Step, 1, 3>(upper, table, part);
    if (inside == 3) return walk_short<Step, 3, 3>(upper, table, part);
  }
  walk_runs<Step>(inside, outside, upper, table, part);
}

/// Walks `count` pairs of runs, each above the one before.
template <class Step, class table_t, class part_t>
[[gnu::always_inline]] inline void walk(const TableRuns* runs, std::size_t count, table_t* table,
                                        part_t* part) {
  if (count == 0) return Step::entry(*table, *part);
  // The lowest three runs are walked at once, the others are counted through.
  const std::size_t upper = count == 1 ? 1 : runs[1].inside;
  const std::size_t length = runs[0].inside * runs[0].outside * upper;
  if (count <= 1 || (count == 2 && runs[1].outside == 1)) {
    return walk_lowest<Step>(runs[0], upper, table, part);
  }
  std::size_t inner[most_runs];
  std::size_t outer[most_runs];
  for (std::size_t i = 0; i < count; ++i) inner[i] = outer[i] = 0;
  std::size_t offset = 0;
  while (true) {
    walk_lowest<Step>(runs[0], upper, table, part + offset);
    table += length;
    std::size_t i = 1;
    std::size_t stride = runs[0].inside;
    for (; i < count; ++i) {
      if (i > 1) {
        if (++inner[i] < runs[i].inside) {
          offset += stride;
          break;
        }
        inner[i] = 0;
        offset -= (runs[i].inside - 1) * stride;
      }
      stride *= runs[i].inside;
      if (++outer[i] < runs[i].outside) break;
      outer[i] = 0;
    }
    if (i == count) return;
  }
}

}  // namespace table_kernels

/// part[j] += the sum of the entries of `table` that agree with j.
template <class val_t>
void sum_table(const TableRuns* runs, std::size_t count, const val_t* table, val_t* part) {
  on_widest_registers([=]() __attribute__((always_inline)) {
    table_kernels::walk<table_kernels::Sum>(runs, count, table, part);
  });
}

/// Adds part[j] to each entry of `table` that agrees with j.
template <class val_t>
void spread_table(const TableRuns* runs, std::size_t count, const val_t* part, val_t* table) {
  on_widest_registers([=]() __attribute__((always_inline)) {
    table_kernels::walk<table_kernels::Spread>(runs, count, table, part);
  });
}

}  // namespace QZ
