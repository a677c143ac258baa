#include <gtest/gtest.h>

#include <cstddef>
#include <vector>

#include "QZ/opt/optimizer.h"
#include "support/pair_types.h"

namespace {

template <class Pair>
class OptState : public ::testing::Test {};
TYPED_TEST_SUITE(OptState, qz_test::AllPairs);

/// Places fields one after the other, each at the next multiple of its size.
class NaturalLayout {
 public:
  std::size_t next(std::size_t size) {
    const std::size_t here = (end_ + size - 1) / size * size;
    end_ = here + size;
    largest_ = std::max(largest_, size);
    return here;
  }
  std::size_t total() const { return (end_ + largest_ - 1) / largest_ * largest_; }

 private:
  std::size_t end_ = 0;
  std::size_t largest_ = 1;
};

TYPED_TEST(OptState, LiesInMemoryInItsPublishedOrderWithNaturalAlignment) {
  using State = QZ::OptState<typename TypeParam::idx_t, typename TypeParam::val_t>;
  constexpr std::size_t I = sizeof(typename TypeParam::idx_t);
  constexpr std::size_t V = sizeof(typename TypeParam::val_t);
  constexpr std::size_t P = 8;
  NaturalLayout layout;
  EXPECT_EQ(offsetof(State, obj), layout.next(V));
  EXPECT_EQ(offsetof(State, gnorm), layout.next(V));
  EXPECT_EQ(offsetof(State, step), layout.next(V));
  EXPECT_EQ(offsetof(State, min_step), layout.next(V));
  EXPECT_EQ(offsetof(State, lam), layout.next(V));
  EXPECT_EQ(offsetof(State, elam), layout.next(V));
  EXPECT_EQ(offsetof(State, iter), layout.next(I));
  EXPECT_EQ(offsetof(State, max_iter), layout.next(I));
  EXPECT_EQ(offsetof(State, dim), layout.next(I));
  EXPECT_EQ(offsetof(State, x), layout.next(P));
  EXPECT_EQ(offsetof(State, grad), layout.next(P));
  EXPECT_EQ(offsetof(State, y), layout.next(P));
  EXPECT_EQ(offsetof(State, tag), layout.next(V));
  EXPECT_EQ(offsetof(State, best_obj), layout.next(V));
  EXPECT_EQ(offsetof(State, best_gnorm), layout.next(V));
  EXPECT_EQ(offsetof(State, best_x), layout.next(P));
  EXPECT_EQ(offsetof(State, value_size), layout.next(I));
  EXPECT_EQ(offsetof(State, user), layout.next(P));
  EXPECT_EQ(offsetof(State, converged), layout.next(1));
  EXPECT_EQ(sizeof(State), layout.total());
}

TEST(OptStateOfDoubles, HasTheOffsetsThatForeignCallbacksCountOn) {
  using State = QZ::OptState<unsigned long, double>;
  static_assert(std::is_standard_layout_v<State>);
  static_assert(offsetof(State, iter) == 48 && offsetof(State, x) == 72);
  static_assert(offsetof(State, best_x) == 120 && offsetof(State, converged) == 144);
  EXPECT_EQ(sizeof(State), 152u);
}

}  // namespace
