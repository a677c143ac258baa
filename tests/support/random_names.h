#pragma once

/// Names that try to be mistaken for each other.

#include <random>
#include <string>

namespace qz_test {

/// A name of 1 to 20 bytes out of four different ones, the zero byte among them.
inline std::string random_name(std::mt19937& rng) {
  std::string name(1 + rng() % 20, 'a');
  for (char& c : name) c = "ab\0z"[rng() % 4];
  return name;
}

}  // namespace qz_test
