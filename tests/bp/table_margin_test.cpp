#include "QZ/bp/table_margin.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace {

struct Vertex {
  std::size_t states;
  bool in_part;
};

/// Some vertices, lowest first, whose table has few thousand entries at most.
std::vector<Vertex> random_clique(std::mt19937& rng) {
  std::vector<Vertex> clique;
  const std::size_t most_states = 2 + rng() % 12;
  const unsigned chance = rng() % 101;
  for (std::size_t size = 1; size < 8000 && clique.size() < 16; size *= clique.back().states) {
    clique.push_back({1 + rng() % most_states, rng() % 100 < chance});
  }
  return clique;
}

/// For each entry of the clique's table, the entry of the part's that agrees with it.
std::vector<std::size_t> agreeing_entries(const std::vector<Vertex>& clique) {
  std::vector<std::size_t> entries{0};
  std::size_t part_stride = 1;
  for (const Vertex& vertex : clique) {
    std::vector<std::size_t> longer;
    for (std::size_t x = 0; x < vertex.states; ++x) {
      for (const std::size_t j : entries)
        longer.push_back(j + (vertex.in_part ? x * part_stride : 0));
    }
    if (vertex.in_part) part_stride *= vertex.states;
    entries = longer;
  }
  return entries;
}

QZ::TableBlocks blocks_of(const std::vector<Vertex>& clique) {
  QZ::TableBlocks blocks;
  for (const Vertex& vertex : clique) {
    if (vertex.states != 1) blocks.add_vertex(vertex.states);
  }
  return blocks;
}

template <class val_t>
class TableMargin : public testing::Test {};
using Floating = testing::Types<float, double>;
TYPED_TEST_SUITE(TableMargin, Floating);

TYPED_TEST(TableMargin, SumsAndSpreadsAsTheIndicesSay) {
  std::mt19937 rng(1);
  QZ::TableMargins margins;
  for (int round = 0; round < 400; ++round) {
    const std::vector<Vertex> clique = random_clique(rng);
    const std::vector<std::size_t> agreeing = agreeing_entries(clique);
    const std::size_t part_size = agreeing.back() + 1;
    if (round % 10 == 0) margins.clear();
    margins.begin();
    std::string name;
    for (const Vertex& vertex : clique) {
      margins.add_vertex(vertex.states, vertex.in_part);
      name += (vertex.in_part ? " in " : " out ") + std::to_string(vertex.states);
    }
    const QZ::TableBlocks blocks = blocks_of(clique);
    ASSERT_EQ(blocks.entries * blocks.count, agreeing.size()) << name;

    // Small whole numbers, so that the order of a sum does not matter.
    std::vector<TypeParam> table(agreeing.size());
    for (auto& entry : table) entry = static_cast<TypeParam>(rng() % 100);
    std::vector<TypeParam> part(part_size, 3);
    std::vector<TypeParam> expected = part;
    for (std::size_t i = 0; i < table.size(); ++i) expected[agreeing[i]] += table[i];
    for (std::size_t b = 0; b < blocks.count; ++b) {
      margins.sum(margins.size() - 1, b, table.data() + b * blocks.entries, part.data());
    }
    ASSERT_EQ(part, expected) << name;

    std::vector<TypeParam> shifted = table;
    for (std::size_t i = 0; i < table.size(); ++i) shifted[i] += part[agreeing[i]];
    for (std::size_t b = 0; b < blocks.count; ++b) {
      margins.spread(margins.size() - 1, b, part.data(), table.data() + b * blocks.entries);
    }
    ASSERT_EQ(table, shifted) << name;
  }
}

TYPED_TEST(TableMargin, WalksNothingIfAVertexHasNoStates) {
  for (const std::vector<std::size_t>& states :
       {std::vector<std::size_t>{2, 0, 3}, std::vector<std::size_t>{2000, 0}}) {
    QZ::TableMargins margins;
    QZ::TableBlocks blocks;
    margins.begin();
    for (const std::size_t count : states) {
      margins.add_vertex(count, count != 0);
      blocks.add_vertex(count);
    }
    TypeParam entry = 1;
    TypeParam sum = 1;
    for (std::size_t b = 0; b < blocks.count; ++b) {
      margins.sum(0, b, &entry, &sum);
      margins.spread(0, b, &entry, &sum);
    }
    EXPECT_EQ(sum, 1);
  }
}

TYPED_TEST(TableMargin, ATableIsSummedOverAllItsEntries) {
  std::vector<TypeParam> table;
  TypeParam expected = 0;
  for (int n = 0; n < 70; ++n) {
    EXPECT_EQ(QZ::sum_all(table.data(), table.size()), expected);
    table.push_back(static_cast<TypeParam>(n));
    expected += static_cast<TypeParam>(n);
  }
}

}  // namespace
