#include "QZ/bp/power_kernel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <random>
#include <vector>

#include "QZ/bp/linear_layout.h"
#include "QZ/bp/power_sum.h"

namespace {

/// A message whose exponents are cavity[x] + rows[x][y].
template <class word_t, class cell_t>
struct Terms {
  std::vector<word_t> cavity;
  std::vector<std::vector<cell_t>> rows;

  std::size_t stride() const { return rows[0].size() == 2 ? 2 : QZ::padded_length(rows[0].size()); }

  /// The entries as `lanes` at a time compute them, or nothing where one is not certain.
  template <unsigned N, unsigned lanes, word_t mask>
  std::vector<word_t> send(bool max) const {
    std::vector<cell_t> cells(rows.size() * stride());
    for (std::size_t x = 0; x < rows.size(); ++x) {
      for (std::size_t y = 0; y < rows[x].size(); ++y) {
        cells[x * stride() + (sizeof(cell_t) == 1 ? QZ::byte_place(y, stride()) : y)] = rows[x][y];
      }
    }
    std::vector<word_t> out(stride());
    bool certain = true;
    for (std::size_t y = 0; y < stride(); y += lanes) {
      certain &= QZ::PowerKernel<N, lanes, word_t, cell_t, mask>::send(
          cavity.data(), cells.data(), rows.size(), stride(), y, max, out.data());
    }
    out.resize(certain ? rows[0].size() : 0);
    return out;
  }

  template <word_t mask>
  std::vector<word_t> expected(bool max) const {
    std::vector<word_t> out;
    for (std::size_t y = 0; y < rows[0].size(); ++y) {
      const auto exponent = [&](std::size_t x) {
        return static_cast<word_t>(cavity[x] + rows[x][y]) & mask;
      };
      word_t entry = 0;
      for (std::size_t x = 0; x < rows.size(); ++x) entry = std::max<word_t>(entry, exponent(x));
      if (!max) entry = static_cast<word_t>(QZ::power_sum_length(rows.size(), exponent)) & mask;
      out.push_back(entry);
    }
    return out;
  }
};

template <class word_t, class cell_t>
Terms<word_t, cell_t> random_terms(std::size_t senders, std::size_t receivers, word_t bound,
                                   std::mt19937& rng) {
  Terms<word_t, cell_t> terms;
  const auto draw = [&] {
    return static_cast<word_t>((std::uint64_t{rng()} << 32 | rng()) % bound);
  };
  for (std::size_t x = 0; x < senders; ++x) {
    terms.cavity.push_back(draw());
    terms.rows.emplace_back();
    for (std::size_t y = 0; y < receivers; ++y) {
      terms.rows[x].push_back(static_cast<cell_t>(draw()));
    }
  }
  return terms;
}

/// Random messages of one shape, with exponents that lie close together, apart, and wrap.
template <unsigned N, unsigned lanes, class word_t, class cell_t, word_t mask>
void expect_sums(std::size_t senders, std::size_t receivers) {
  std::mt19937 rng(7);
  for (const word_t bound : {word_t(3), word_t(40), word_t(250), mask}) {
    for (int round = 0; round < 50; ++round) {
      const auto terms = random_terms<word_t, cell_t>(senders, receivers, bound, rng);
      for (const bool max : {false, true}) {
        const auto sent = terms.template send<N, lanes, mask>(max);
        if (!sent.empty()) {
          EXPECT_EQ(sent, (terms.template expected<mask>(max)));
        } else {
          EXPECT_GT(senders, 20u) << "few terms are always certain";
        }
      }
    }
  }
}

TEST(PowerKernel, MeetsSumsOfAnySizeInBytes) {
  expect_sums<2, 2, unsigned int, unsigned char, 255>(2, 2);
  expect_sums<4, 4, unsigned int, unsigned char, 65535>(4, 4);
  expect_sums<8, 8, unsigned int, unsigned char, ~0u>(8, 8);
  expect_sums<0, 4, unsigned int, unsigned char, 255>(1, 3);
  expect_sums<0, 4, unsigned int, unsigned char, ~0u>(5, 4);
  expect_sums<0, 8, unsigned int, unsigned char, ~0u>(50, 16);
}

TEST(PowerKernel, MeetsSumsOfAnySizeInWords) {
  expect_sums<2, 2, unsigned int, unsigned int, 65535>(2, 2);
  expect_sums<8, 8, unsigned int, unsigned int, ~0u>(8, 8);
  expect_sums<0, 4, unsigned int, unsigned int, 255>(6, 9);
  expect_sums<2, 2, unsigned long, unsigned long, ~0ul>(2, 2);
  expect_sums<8, 4, unsigned long, unsigned long, ~0ul>(8, 8);
  expect_sums<0, 4, unsigned long, unsigned long, ~0ul>(70, 7);
}

/// 2^top + 2^(top - 1) + ... with `count` terms, the last one twice if `whole`: the power above.
template <class word_t>
Terms<word_t, word_t> staircase(word_t top, std::size_t count, bool whole) {
  Terms<word_t, word_t> terms;
  for (std::size_t x = 0; x < count; ++x) {
    terms.cavity.push_back(top - static_cast<word_t>(x));
    terms.rows.push_back(std::vector<word_t>(4, 0));
  }
  if (whole) {
    terms.cavity.push_back(terms.cavity.back());
    terms.rows.push_back(std::vector<word_t>(4, 0));
  }
  return terms;
}

TEST(PowerKernel, IsNotCertainWhereTermsThatAreLeftOutDecide) {
  EXPECT_TRUE((staircase<unsigned int>(100, 40, false).send<0, 4, ~0u>(false)).empty());
  EXPECT_TRUE((staircase<unsigned int>(100, 40, true).send<0, 4, ~0u>(false)).empty());
  EXPECT_TRUE((staircase<unsigned long>(200, 90, false).send<0, 4, ~0ul>(false)).empty());
  // Shorter ones fit the word.
  const std::vector<unsigned int> below(4, 101);
  const std::vector<unsigned int> reached(4, 102);
  EXPECT_EQ((staircase<unsigned int>(100, 18, false).send<0, 4, ~0u>(false)), below);
  EXPECT_EQ((staircase<unsigned int>(100, 18, true).send<0, 4, ~0u>(false)), reached);
}

TEST(PowerKernel, KeepsGroupsOfEightBytesInTheOrderOfItsLanes) {
  std::vector<bool> taken(20);
  for (std::size_t y = 0; y < 20; ++y) {
    ASSERT_LT(QZ::byte_place(y, 20), 20u);
    EXPECT_FALSE(taken[QZ::byte_place(y, 20)]);
    taken[QZ::byte_place(y, 20)] = true;
  }
  EXPECT_EQ(QZ::byte_place(1, 8), 4u);
  EXPECT_EQ(QZ::byte_place(2, 8), 1u);
  EXPECT_EQ(QZ::byte_place(17, 20), 17u) << "behind the last whole group";
  EXPECT_EQ(QZ::byte_place(1, 4), 1u);
}

}  // namespace
