#pragma once

/// What discretization learns from a column of numbers. Plain C.
typedef struct DiscretizationModel {
  /// Rows of `intervals`.
  unsigned long num_intervals;
  /// Rows of `moments`, the same number.
  unsigned long num_moments;
  /// Lower and upper bound of each bin on the standardized scale, 2 numbers a row. The bin holds
  /// its lower bound and not its upper one, except that equal bounds stand for that one value.
  double* intervals;
  /// Mean, variance, skew, kurtosis and count of each bin, 5 numbers a row.
  double* moments;
  /// Mean of the column.
  double mean;
  /// Standard deviation of the column.
  double stddev;
} DiscretizationModel;
