#pragma once

/// Names for kinds of graphs and for the forms that a graph is exported in.

namespace QZ {

/// Kind of the current or next graph; the numbers are those of register `GRA` and of model files.
enum class GraphType : unsigned char {
  FILE = 0,
  CHAIN = 1,
  GRID = 2,
  STAR = 3,
  RBM = 4,
  FULL = 5,
  CHOWLIU = 6,
  ELEMGM = 7,
  OTHER = 8,
  JT = 9,
  DBT = 10,
  ST = 11,
  CLIQUES = 12,
  RNDCLIQUES = 13
};

/// Form of a graph export; the numbers are those of register `FMT`.
enum class GraphExport : unsigned char { ADJ = 0, TGF = 1, FG = 2 };

}  // namespace QZ
