#include "QZ/machine/values.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "QZ/machine/vm.h"
#include "support/index_types.h"
#include "support/statements.h"

namespace {

using QZ::get;
using qz_test::message_of;

std::string text_of(const std::string& token) {
  const std::unique_ptr<std::string> text(get<std::string*>(token));
  return *text;
}

TEST(Values, ATextLosesItsFirstAndLastCharacter) {
  EXPECT_EQ(text_of("'model.dat'"), "model.dat");
  EXPECT_EQ(text_of("abc"), "b");
  EXPECT_EQ(text_of("''"), "");
  EXPECT_EQ(text_of("a"), "");
  EXPECT_THROW(get<std::string*>(""), std::out_of_range);
}

TEST(Values, ABooleanIsTrueForThreeTokensOnly) {
  for (const char* token : {"true", "TRUE", "1"}) EXPECT_TRUE(get<bool>(token)) << token;
  for (const char* token : {"True", "yes", "2", "01", "", "false"}) {
    EXPECT_FALSE(get<bool>(token)) << token;
  }
}

TEST(Values, ACharacterIsTheSecondOfTheToken) {
  EXPECT_EQ(get<char>("','"), ',');
  EXPECT_EQ(get<char>("ab"), 'b');
  EXPECT_THROW(get<char>("a"), std::out_of_range);
  EXPECT_THROW(get<char>(""), std::out_of_range);
}

TEST(Values, NumbersAreReadAsTheStandardDoes) {
  EXPECT_EQ(get<unsigned long>("18446744073709551615"), ~0ul);
  EXPECT_EQ(get<unsigned long>("12rest"), 12u);
  EXPECT_EQ(get<unsigned long long>("7"), 7u);
  EXPECT_EQ(get<long>("-7"), -7);
  EXPECT_EQ(get<int>("-2147483648"), -2147483647 - 1);
  EXPECT_EQ(get<unsigned int>("2147483647"), 2147483647u);
  EXPECT_EQ(get<double>("-2.5e3"), -2500.0);
  EXPECT_EQ(get<float>("0.5"), 0.5f);
  EXPECT_EQ(get<void*>("4096"), reinterpret_cast<void*>(4096ul));
}

TEST(Values, BadNumbersNameTheConversion) {
  EXPECT_THROW(get<unsigned long>("x"), std::invalid_argument);
  EXPECT_THROW(get<unsigned long>("18446744073709551616"), std::out_of_range);
  EXPECT_EQ(message_of([] { get<unsigned long>("x"); }), "stoul");
  EXPECT_EQ(message_of([] { get<unsigned long>("18446744073709551616"); }), "stoul");
  EXPECT_EQ(message_of([] { get<void*>(""); }), "stoul");
  EXPECT_EQ(message_of([] { get<unsigned long long>("x"); }), "stoull");
  EXPECT_EQ(message_of([] { get<long>("x"); }), "stol");
  EXPECT_EQ(message_of([] { get<int>("2147483648"); }), "stoi");
  EXPECT_EQ(message_of([] { get<unsigned int>("4294967295"); }), "stoi");
  EXPECT_EQ(message_of([] { get<double>("x"); }), "stod");
  EXPECT_EQ(message_of([] { get<float>("1e99"); }), "stof");
}

template <class idx_t>
class Lists : public testing::Test {};
TYPED_TEST_SUITE(Lists, qz_test::IndexTypes);

TYPED_TEST(Lists, AreSplitAtCommasAndJoinedAgain) {
  const std::unique_ptr<std::vector<TypeParam>> list(QZ::getL<TypeParam>("3,0,255"));
  EXPECT_EQ(*list, (std::vector<TypeParam>{3, 0, 255}));
  EXPECT_EQ(QZ::vm_t::convertList(list.get()), "3,0,255");
}

TYPED_TEST(Lists, CutTheirElementsToTheirWidth) {
  const std::unique_ptr<std::vector<TypeParam>> list(QZ::getL<TypeParam>("18446744073709551615"));
  EXPECT_EQ(list->at(0), static_cast<TypeParam>(~0ul));
}

TYPED_TEST(Lists, MayBeEmpty) {
  const std::unique_ptr<std::vector<TypeParam>> list(QZ::getL<TypeParam>(""));
  EXPECT_TRUE(list->empty());
  EXPECT_EQ(QZ::vm_t::convertList(list.get()), "");
  EXPECT_EQ(QZ::vm_t::convertList<TypeParam>(nullptr), "");
}

TYPED_TEST(Lists, RefuseAPieceThatIsNoNumber) {
  EXPECT_EQ(message_of([] { QZ::getL<TypeParam>("1,,2"); }), "stoul");
}

}  // namespace
