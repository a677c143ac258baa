#include <gtest/gtest.h>

#include <cstring>
#include <initializer_list>
#include <string>

#include "support/pair_types.h"
#include "support/small_model.h"
#include "support/temp_file.h"

namespace {

using namespace qz_test;

/// The bytes of a file, put together field by field.
class Bytes {
 public:
  template <class number_t>
  void add(std::initializer_list<int> values) {
    for (const int value : values) {
      const auto number = static_cast<number_t>(value);
      char bytes[sizeof(number_t)];
      std::memcpy(bytes, &number, sizeof(number_t));
      text_.append(bytes, sizeof(number_t));
    }
  }
  void add_text(const std::string& text) { text_ += text; }
  void add_name(const std::string& name) { text_ += name + '\0'; }
  const std::string& text() const { return text_; }

 private:
  std::string text_;
};

/// What `expected_bytes` describes: two vertices with 1 and 2 states.
template <class I, class V>
OwnedModel<I, V> tiny_model() {
  auto model = numbered_model<I, V>(listed_graph<I>(2, {{1, 0}}), {1, 2});
  model->graphType = 5;
  model->layerText = "3,4";
  model->reservedText = "x";
  model->reparam = 2;
  model->samples = 9;
  model->reservedWord = 7;
  return model;
}

template <class I, class V>
std::string expected_bytes() {
  Bytes b;
  b.add<I>({2, 1, 1, 0, 5});
  b.add<unsigned long>({3});
  b.add_text("3,4");
  b.add<unsigned long>({1});
  b.add_text("x");
  b.add<I>({1, 2, 9, 7, 1});
  b.add_name("v0");
  b.add_name("a");
  b.add<I>({2});
  b.add_name("v1");
  b.add_name("a");
  b.add_name("b");
  b.add<I>({2});
  b.add<V>({1, 2, 3, 4, 5});
  b.add<V>({0, 1});
  return b.text();
}

template <class pair_t>
class ModelFile : public ::testing::Test {
 public:
  using I = typename pair_t::idx_t;
  using V = typename pair_t::val_t;
};
TYPED_TEST_SUITE(ModelFile, AllPairs);

TYPED_TEST(ModelFile, HoldsTheFieldsInTheirOrder) {
  using I = typename TestFixture::I;
  using V = typename TestFixture::V;
  TempFile file;
  tiny_model<I, V>()->store(file.path());
  EXPECT_EQ(file.read(), (expected_bytes<I, V>()));
}

TEST(ModelFileBytes, AreTheseForBytesAndBytes) {
  TempFile file;
  tiny_model<u8, u8>()->store(file.path());
  const std::string bytes(
      "\x02\x01\x01\x00\x05"
      "\x03\0\0\0\0\0\0\0"
      "3,4"
      "\x01\0\0\0\0\0\0\0"
      "x"
      "\x01\x02\x09\x07"
      "\x01"
      "v0\0a\0"
      "\x02"
      "v1\0a\0b\0"
      "\x02"
      "\x01\x02\x03\x04\x05"
      "\x00\x01",
      5 + 8 + 3 + 8 + 1 + 4 + 6 + 8 + 1 + 5 + 2);
  EXPECT_EQ(file.read(), bytes);
}

TEST(ModelFileBytes, AreTheseForShortsAndFloats) {
  TempFile file;
  tiny_model<u16, float>()->store(file.path());
  const std::string bytes(
      "\x02\0\x01\0\x01\0\0\0\x05\0"
      "\x03\0\0\0\0\0\0\0"
      "3,4"
      "\x01\0\0\0\0\0\0\0"
      "x"
      "\x01\0\x02\0\x09\0\x07\0"
      "\x01\0"
      "v0\0a\0"
      "\x02\0"
      "v1\0a\0b\0"
      "\x02\0"
      "\0\0\x80\x3f\0\0\0\x40\0\0\x40\x40\0\0\x80\x40\0\0\xa0\x40"
      "\0\0\0\0\0\0\x80\x3f",
      10 + 8 + 3 + 8 + 1 + 8 + 7 + 9 + 2 + 20 + 8);
  EXPECT_EQ(file.read(), bytes);
}

TEST(ModelFileBytes, AreTheseForLongsAndDoubles) {
  TempFile file;
  tiny_model<u64, double>()->store(file.path());
  const std::string zeros(7, '\0');
  const auto word = [&](char low) { return low + zeros; };
  const auto real = [](const char* top) { return std::string(6, '\0') + std::string(top, 2); };
  const std::string bytes = word(2) + word(1) + word(1) + word(0) + word(5) + word(3) + "3,4" +
                            word(1) + "x" + word(1) + word(2) + word(9) + word(7) + word(1) +
                            std::string("v0\0a\0", 5) + word(2) + std::string("v1\0a\0b\0", 7) +
                            word(2) + real("\xf0\x3f") + real("\0\x40") + real("\x08\x40") +
                            real("\x10\x40") + real("\x14\x40") + real("\0\0") + real("\xf0\x3f");
  EXPECT_EQ(file.read(), bytes);
}

TYPED_TEST(ModelFile, IsRestoredByReading) {
  using I = typename TestFixture::I;
  using V = typename TestFixture::V;
  TempFile file;
  const auto stored = numbered_model<I, V>(listed_graph<I>(3, {{0, 1}, {2, 1}}), {2, 3, 2});
  stored->graphType = 8;
  stored->layerText = "1,2,3";
  stored->reservedText = "text";
  stored->reparam = 12;
  stored->reservedWord = 3;
  stored->store(file.path());
  const auto model = read_model<I, V>(file.path());
  EXPECT_EQ(model->fromFile, 1);
  EXPECT_EQ(model->idxCode, stored->idxCode);
  EXPECT_EQ(model->valCode, stored->valCode);
  EXPECT_EQ(model->reservedByte, 0);
  EXPECT_EQ(model->graph->vertices(), 3);
  EXPECT_EQ(model->graph->edges(), 2);
  EXPECT_EQ(endpoints(*model->graph, I(1)).s, 2);
  EXPECT_EQ(model->baseGraph, nullptr);
  EXPECT_EQ(copy_of(model->states, 3), copy_of(stored->states, 3));
  EXPECT_EQ(model->numOffsets, 6);
  EXPECT_EQ(copy_of(model->offsets, 6), copy_of(stored->offsets, 6));
  EXPECT_EQ(model->dim, 12);
  EXPECT_EQ(model->statsLength, 19);
  EXPECT_EQ(copy_of(model->stats, 19), copy_of(stored->stats, 19));
  EXPECT_EQ(copy_of(model->weights, 12), copy_of(stored->weights, 12));
  EXPECT_EQ(*model->vertexNames, *stored->vertexNames);
  EXPECT_EQ(*model->categoryLists->at(1), *stored->categoryLists->at(1));
  EXPECT_EQ(model->graphType, 8);
  EXPECT_EQ(model->slices, 1);
  EXPECT_EQ(model->reparam, 12);
  EXPECT_EQ(model->reservedWord, 3);
  EXPECT_EQ(model->samples, 10);
  EXPECT_EQ(model->layerText, "1,2,3");
  EXPECT_EQ(model->reservedText, "text");
  EXPECT_NO_THROW(model->require_matching_arrays());
  TempFile again;
  model->store(again.path());
  EXPECT_EQ(again.read(), file.read());
}

TYPED_TEST(ModelFile, WithoutWeightsReadsZeroes) {
  using I = typename TestFixture::I;
  using V = typename TestFixture::V;
  TempFile file;
  const auto stored = tiny_model<I, V>();
  delete[] stored->weights;
  stored->weights = nullptr;
  stored->store(file.path());
  EXPECT_EQ(file.read().size(), (expected_bytes<I, V>().size() - 2 * sizeof(V)));
  const auto model = read_model<I, V>(file.path());
  EXPECT_EQ(copy_of(model->weights, 2), (std::vector<V>{0, 0}));
  EXPECT_EQ(copy_of(model->stats, 5), copy_of(stored->stats, 5));
}

TYPED_TEST(ModelFile, EmptyLayerTextWritesOnlyItsLength) {
  using I = typename TestFixture::I;
  using V = typename TestFixture::V;
  TempFile file;
  const auto stored = tiny_model<I, V>();
  stored->layerText.clear();
  stored->reservedText.clear();
  stored->store(file.path());
  EXPECT_EQ(file.read().size(), (expected_bytes<I, V>().size() - 4));
  EXPECT_EQ((read_model<I, V>(file.path())->layerText), "");
}

TYPED_TEST(ModelFile, VertexWithoutStatesHasNoStateNames) {
  using I = typename TestFixture::I;
  using V = typename TestFixture::V;
  TempFile file;
  const auto stored = numbered_model<I, V>(listed_graph<I>(3, {{0, 1}, {1, 2}}), {2, 0, 2});
  stored->store(file.path());
  const auto model = read_model<I, V>(file.path());
  EXPECT_EQ(model->states[1], 0);
  EXPECT_TRUE(model->categoryLists->at(1)->empty());
  EXPECT_EQ(model->vertexNames->at(2), "v2");
  EXPECT_EQ(model->dim, 0);
  EXPECT_EQ(copy_of(model->stats, 4), copy_of(stored->stats, 4));
}

/// Two vertices and an edge, over three slices.
template <class I, class V>
OwnedModel<I, V> sliced_model() {
  auto* base = listed_graph<I>(2, {{0, 1}});
  auto model = numbered_model<I, V>(new QZ::STGraph<I>(3, base), {1, 2, 1, 2, 1, 2});
  model->baseGraph = base;
  model->slices = 3;
  model->graphType = 11;
  model->reparam = 1;
  return model;
}

TYPED_TEST(ModelFile, OverTimeHoldsOneSliceAndAllVertices) {
  using I = typename TestFixture::I;
  using V = typename TestFixture::V;
  TempFile file;
  const auto stored = sliced_model<I, V>();
  stored->store(file.path());
  EXPECT_EQ(file.read().size(), 5 * sizeof(I) + 16 + 4 * sizeof(I) + 6 * (sizeof(I) + 3) + 9 * 2 +
                                    sizeof(I) + (9 + 2 * stored->dim) * sizeof(V));
  const auto model = read_model<I, V>(file.path());
  EXPECT_EQ(model->slices, 3);
  EXPECT_EQ(model->graph->vertices(), 6);
  EXPECT_EQ(model->baseGraph->vertices(), 2);
  EXPECT_EQ(dynamic_cast<QZ::STGraph<I>&>(*model->graph).base, model->baseGraph);
  EXPECT_EQ(model->dim, stored->dim);
  EXPECT_EQ(*model->vertexNames, *stored->vertexNames);
  EXPECT_EQ(copy_of(model->weights, model->dim), copy_of(stored->weights, stored->dim));
  TempFile again;
  model->store(again.path());
  EXPECT_EQ(again.read(), file.read());
}

TYPED_TEST(ModelFile, IsNotWrittenWithSlicesThatCannotBeReadBack) {
  using I = typename TestFixture::I;
  using V = typename TestFixture::V;
  TempFile file;
  const auto sliced = sliced_model<I, V>();
  sliced->slices = 1;
  EXPECT_THROW(sliced->store(file.path()), std::logic_error);
  const auto flat = tiny_model<I, V>();
  flat->slices = 2;
  EXPECT_THROW(flat->store(file.path()), std::logic_error);
  EXPECT_EQ(file.read(), "");
}

TEST(ModelFileNames, MayHaveAnyLength) {
  TempFile file;
  auto stored = numbered_model<u32, double>(listed_graph<u32>(2, {{0, 1}}), {2, 2});
  stored->vertexNames->at(0) = std::string(100000, 'n');
  stored->categoryLists->at(1)->at(0) = std::string(300000, 's');
  stored->categoryLists->at(1)->at(1) = "";
  stored->store(file.path());
  const auto model = read_model<u32, double>(file.path());
  EXPECT_EQ(*model->vertexNames, *stored->vertexNames);
  EXPECT_EQ(*model->categoryLists->at(1), *stored->categoryLists->at(1));
}

TEST(ModelFileNames, EndAtAZeroByte) {
  TempFile file;
  auto stored = numbered_model<u32, double>(listed_graph<u32>(2, {{0, 1}}), {2, 2});
  stored->vertexNames->at(0) = std::string("ab\0cd", 5);
  stored->store(file.path());
  EXPECT_EQ((read_model<u32, double>(file.path())->vertexNames->at(0)), "ab");
}

TEST(ModelFileErrors, MissingFileCannotBeRead) {
  TempFile file;
  try {
    read_model<u32, double>(file.path());
    FAIL();
  } catch (const std::logic_error& error) {
    EXPECT_EQ(error.what(), "cannot read " + file.path());
  }
}

TEST(ModelFileErrors, UnwritablePlaceIsReported) {
  const auto model = tiny_model<u32, double>();
  EXPECT_THROW(model->store("/nowhere/at/all"), std::logic_error);
}

TYPED_TEST(ModelFile, CutAnywhereEitherReadsOrIsDamaged) {
  using I = typename TestFixture::I;
  using V = typename TestFixture::V;
  const std::string whole = expected_bytes<I, V>();
  const std::size_t without_weights = whole.size() - 2 * sizeof(V);
  for (std::size_t length = 0; length <= whole.size(); ++length) {
    TempFile file("", whole.substr(0, length));
    if (length >= without_weights) {
      EXPECT_NO_THROW((read_model<I, V>(file.path())));
      continue;
    }
    try {
      read_model<I, V>(file.path());
      ADD_FAILURE() << length;
    } catch (const std::logic_error& error) {
      EXPECT_EQ(error.what(), "the model file " + file.path() + " is damaged");
    }
  }
}

// Every byte in turn takes three other values. Whatever reads must be fit for use.
TYPED_TEST(ModelFile, WithAnyByteChangedEitherReadsOrThrows) {
  using I = typename TestFixture::I;
  using V = typename TestFixture::V;
  const std::string whole = expected_bytes<I, V>();
  for (std::size_t place = 0; place < whole.size(); ++place) {
    for (const char value : {'\x7f', '\xff', '\x03'}) {
      std::string bytes = whole;
      bytes[place] = value;
      TempFile file("", bytes);
      try {
        const auto model = read_model<I, V>(file.path());
        EXPECT_NO_THROW(model->require_matching_arrays());
      } catch (const std::logic_error&) {
      }
    }
  }
}

TEST(ModelFileErrors, ADirectoryIsDamaged) {
  EXPECT_THROW((read_model<u32, double>("/tmp")), std::logic_error);
}

}  // namespace
