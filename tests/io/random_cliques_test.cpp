#include <gtest/gtest.h>
#include <omp.h>

#include <cmath>
#include <list>
#include <set>

#include "QZ/graph/chain.h"
#include "support/graph_contents.h"
#include "support/learned_model.h"
#include "support/pair_types.h"

namespace {

using namespace qz_test;

/// The random search step by step, on sets and with entropies counted row by row.
struct PlainSearch {
  PlainSearch(const PlainTable& table, unsigned long k, std::mt19937& rng)
      : table(table), n(table.n), k(k), rng(rng), home(table.n, nullptr) {}

  double entropy(const std::vector<unsigned long>& columns) const {
    return plain_entropy(table, columns);
  }

  double bound() const {
    double lo = 1e300;
    double hi = 0;
    for (unsigned long v = 0; v < n; ++v) {
      lo = std::min(lo, entropy({v}));
      hi = std::max(hi, entropy({v}));
    }
    double c = 1;
    double u = 0;
    for (unsigned long i = 0; i < k; ++i) {
      if (i % 2 == 0) {
        u -= c * lo;
      } else {
        u += static_cast<double>(i) * c * hi;
      }
      c *= static_cast<double>(k + 1 - (i + 1)) / static_cast<double>(i + 1);
    }
    return std::fabs(u);
  }

  std::set<unsigned long> draw() {
    std::set<unsigned long> S;
    std::set<std::set<unsigned long>*> groups;
    std::set<unsigned long> singles;
    while (S.size() < k) {
      unsigned long v = std::uniform_int_distribution<unsigned long>(0, n - 1)(rng);
      if (home[v] != nullptr) {
        groups.insert(home[v]);
      } else {
        singles.insert(v);
      }
      if (S.size() == k - 1 && groups.size() + singles.size() == 1) {
        while (home[v] != nullptr ? groups.contains(home[v]) : singles.contains(v)) v = (v + 1) % n;
      }
      if (home[v] == nullptr) {
        S.insert(v);
      } else {
        const auto place =
            std::uniform_int_distribution<unsigned long>(0, home[v]->size() - 1)(rng);
        S.insert(*std::next(home[v]->begin(), static_cast<long>(place)));
      }
    }
    return S;
  }

  double score(const std::vector<unsigned long>& S) const {
    double value = 0;
    for (unsigned long mask = 1; mask < 1ul << k; ++mask) {
      std::vector<unsigned long> part;
      for (unsigned long i = 0; i < k; ++i) {
        if (mask >> i & 1) part.push_back(S[i]);
      }
      value += part.size() % 2 == 1 ? entropy(part) : -entropy(part);
    }
    return std::fabs(value);
  }

  bool add(const std::vector<unsigned long>& S) {
    bool together = home[S[0]] != nullptr;
    for (const auto v : S) together = together && home[v] == home[S[0]];
    if (together) return false;
    for (const auto a : S) {
      for (const auto b : S) {
        if (a >= b) continue;
        edges.insert({a, b});
        if (home[a] == nullptr && home[b] == nullptr) {
          sets.push_back({a, b});
          home[a] = home[b] = &sets.back();
        } else if (home[a] == nullptr) {
          (home[a] = home[b])->insert(a);
        } else if (home[b] == nullptr) {
          (home[b] = home[a])->insert(b);
        } else if (home[a] != home[b]) {
          const std::set<unsigned long> moved = *home[b];
          for (const auto v : moved) (home[v] = home[a])->insert(v);
        }
      }
    }
    return true;
  }

  /// False if refusals have left no chance to go on.
  bool run() {
    const double upper = bound();
    double a = 1;
    double sum = 0;
    double trials = 0;
    double accepted = 0;
    std::set<unsigned long> covered;
    std::string tag = "STRUCT";
    while (home[0] == nullptr || home[0]->size() < n) {
      reports.emplace_back(covered.size(), n, tag);
      const auto drawn = draw();
      const std::vector<unsigned long> S(drawn.begin(), drawn.end());
      const double I = score(S);
      trials += 1;
      if (std::generate_canonical<double, 53>(rng) < ((I + 0.1) / upper) * a) {
        if (add(S)) {
          accepted += 1;
          tag = "STRUCT;" + std::to_string(accepted / trials);
          sum += I;
          covered.insert(S.begin(), S.end());
        }
        a = 1;
      } else {
        a *= 0.975;
        if (a < std::pow(2.0, -60)) return false;
      }
    }
    mean = sum / accepted;
    return true;
  }

  const PlainTable& table;
  unsigned long n;
  unsigned long k;
  std::mt19937& rng;
  std::vector<std::set<unsigned long>*> home;
  std::list<std::set<unsigned long>> sets;
  std::set<std::pair<unsigned long, unsigned long>> edges;
  std::vector<Reports::Report> reports;
  double mean = 0;
};

template <class I, class V>
OwnedModel<I, V> chain_model(PlainTable& table) {
  return counted_model<I, V>(table, new QZ::Chain<I>(static_cast<I>(table.n)));
}

template <class pair_t>
class RandomCliques : public ::testing::Test {
 public:
  RandomCliques() { omp_set_num_threads(1); }

  using I = typename pair_t::idx_t;
  using V = typename pair_t::val_t;
};
TYPED_TEST_SUITE(RandomCliques, AllPairs);

TYPED_TEST(RandomCliques, FollowThePlainSteps) {
  using I = typename TestFixture::I;
  using V = typename TestFixture::V;
  for (unsigned seed = 0; seed < 6; ++seed) {
    const auto table = random_table(100, {2, 4, 3, 2, 4, 3}, 0, seed);
    for (const I k : {2, 3, 4}) {
      std::mt19937 plain_rng(seed);
      PlainSearch plain(*table, k, plain_rng);
      const bool ends = plain.run();
      std::mt19937 rng(seed);
      const auto model = chain_model<I, V>(*table);
      const auto learn = [&] {
        return model->buildCliquesRnd(0, k, &Reports::note, joint_counts(*table, *model), &rng);
      };
      Reports::list.clear();
      if (!ends) {
        EXPECT_THROW(learn(), std::logic_error);
        EXPECT_EQ(Reports::list, plain.reports);
        continue;
      }
      const double score = learn();
      EXPECT_EQ(edges_of(*model->graph), EdgeList(plain.edges.begin(), plain.edges.end()));
      EXPECT_NEAR(score, plain.mean, 1e-12);
      EXPECT_EQ(Reports::list, plain.reports);
      EXPECT_EQ(rng(), plain_rng());
      EXPECT_EQ(model->graphType, 13);
    }
  }
}

TYPED_TEST(RandomCliques, CountTheirEdges) {
  using I = typename TestFixture::I;
  using V = typename TestFixture::V;
  const auto table = random_table(100, {2, 2, 3, 2, 2}, 0, 9);
  const auto model = chain_model<I, V>(*table);
  std::mt19937 rng(2);
  model->buildCliquesRnd(0, 3, nullptr, joint_counts(*table, *model), &rng);
  EXPECT_EQ(copy_of(model->stats, model->statsLength),
            (plain_statistics<V>(*table, *model->graph, states_of<I>(*table))));
  EXPECT_NO_THROW(model->require_matching_arrays());
}

TEST(InteractionBound, AlternatesItsTerms) {
  EXPECT_DOUBLE_EQ(QZ::interaction_bound(2, 0.5, 0.7), std::fabs(-0.5 + 2 * 0.7));
  EXPECT_DOUBLE_EQ(QZ::interaction_bound(3, 0.5, 0.7), std::fabs(-0.5 + 3 * 0.7 - 3 * 0.5));
  EXPECT_DOUBLE_EQ(QZ::interaction_bound(4, 0.5, 0.7),
                   std::fabs(-0.5 + 4 * 0.7 - 6 * 0.5 + 3 * 4 * 0.7));
}

TEST(RandomCliqueSearch, RefusesOrdersThatCannotEnd) {
  const auto table = random_table(50, {2, 2, 2}, 0, 3);
  const auto model = chain_model<u32, double>(*table);
  std::mt19937 rng(2);
  for (const u32 k : {0, 1, 4, 100}) {
    EXPECT_THROW(model->buildCliquesRnd(0, k, nullptr, joint_counts(*table, *model), &rng),
                 std::logic_error);
  }
}

// The bound of four vertices is far above their interactions: a long run of refusals ends the
// search.
TEST(RandomCliqueSearch, GivesUpWhenNoChanceIsLeft) {
  const auto table = random_table(100, {2, 4, 3, 2, 4, 3}, 0, 1);
  const auto model = chain_model<u32, double>(*table);
  bool gave_up = false;
  for (unsigned seed = 0; seed < 20 && !gave_up; ++seed) {
    std::mt19937 rng(seed);
    try {
      chain_model<u32, double>(*table)->buildCliquesRnd(0, 4, nullptr, joint_counts(*table, *model),
                                                        &rng);
    } catch (const std::logic_error& error) {
      gave_up = true;
      EXPECT_STREQ(error.what(), "no clique is accepted any more");
    }
  }
  EXPECT_TRUE(gave_up);
}

using RandomCliqueSearchDeath = testing::Test;
TEST_F(RandomCliqueSearchDeath, InteractionAtItsBoundIsAnAssertion) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  // Constant columns: the bound is 0, and so is every interaction.
  PlainTable table;
  table.fill(3, {2, 2}, {0, 0, 0, 0, 0, 0});
  const auto model = chain_model<u32, double>(table);
  std::mt19937 rng(2);
  EXPECT_DEATH(model->buildCliquesRnd(0, 2, nullptr, joint_counts(table, *model), &rng),
               "QZIO.*Assertion `Imax < upper' failed");
}

}  // namespace
