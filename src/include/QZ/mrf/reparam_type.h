#pragma once

/// Names for the parametrisations of a model.

namespace QZ {

/// What the free parameters of a model mean; the numbers are those of register `REP` and of model
/// files. `STLINEAR` to `STINVEXPONENTIAL` are decay functions over time.
enum class ReparamType : unsigned char {
  NONE = 0,
  STLINEAR = 1,
  STQUAD = 2,
  STCUBIC = 3,
  STRATIONAL = 4,
  STEXPONENTIAL = 5,
  STINVQUAD = 6,
  STINVCUBIC = 7,
  STINVRATIONAL = 8,
  STINVEXPONENTIAL = 9,
  INTEGER = 10,
  DBT = 11,
  ISING = 12
};

}  // namespace QZ
