#include "QZ/data/name_index.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>

#include "support/random_names.h"

namespace {

TEST(NameIndex, KnowsWhatWasPutInAndNothingElse) {
  std::mt19937 rng(3);
  std::map<std::string, unsigned long> plain;
  QZ::NameIndex index;
  for (int i = 0; i < 5000; ++i) {
    const std::string name = qz_test::random_name(rng);
    const auto known = plain.find(name);
    EXPECT_EQ(index.find(name), known == plain.end() ? QZ::NameIndex::unknown : known->second);
    if (known != plain.end()) continue;
    const auto place = plain.emplace(name, plain.size()).first;
    index.insert(place->first, place->second);
  }
  for (const auto& [name, number] : plain) EXPECT_EQ(index.find(name), number);
  EXPECT_EQ(index.find(""), QZ::NameIndex::unknown);
}

}  // namespace
