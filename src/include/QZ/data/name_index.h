#pragma once

/// A fast look-up of category numbers by name.

#include <bit>
#include <cstring>
#include <string_view>
#include <utility>
#include <vector>

namespace QZ {

/// An open hash table from names to numbers beside an ordered map: the map owns the names and is
/// what others see, this one answers once per cell. A name that is put in must outlive the index.
///
/// A name of up to 8 bytes is compared as one word, a longer one also by its text.
class NameIndex {
 public:
  static constexpr unsigned long unknown = ~0ul;

  /// The number of `name`, or `unknown`.
  unsigned long find(std::string_view name) const {
    if (slots_.empty()) return unknown;
    const Word head = head_of(name);
    return slots_[place_of(name, head)].number;
  }

  /// Puts in a name that is not there yet.
  void insert(std::string_view name, unsigned long number) {
    if (2 * (used_ + 1) > slots_.size()) grow();
    put({head_of(name), name, number});
    ++used_;
  }

 private:
  using Word = unsigned long;

  struct Slot {
    Word head = 0;
    std::string_view name;
    unsigned long number = unknown;
  };

  static constexpr Word spread = 0x9e3779b97f4a7c15;

  template <class part_t>
  static Word load(const char* bytes) {
    part_t part;
    std::memcpy(&part, bytes, sizeof part);
    return part;
  }

  /// A word that together with the length tells names of up to 8 bytes apart; a hash of longer
  /// ones.
  static Word head_of(std::string_view name) {
    const char* text = name.data();
    const std::size_t length = name.size();
    if (length == 0) return 0;
    if (length < 4) {
      return load<unsigned char>(text) | load<unsigned char>(text + length / 2) << 8 |
             load<unsigned char>(text + length - 1) << 16;
    }
    if (length <= 8) {
      return load<unsigned int>(text) | load<unsigned int>(text + length - 4) << 32;
    }
    Word head = load<Word>(text + length - 8);
    for (std::size_t i = 0; i + 8 < length; i += 8) {
      head = std::rotl((head ^ load<Word>(text + i)) * spread, 29);
    }
    return head;
  }

  /// The slot that holds the name, or the free one where it belongs.
  std::size_t place_of(std::string_view name, Word head) const {
    const std::size_t mask = slots_.size() - 1;
    std::size_t place = ((head + name.size()) * spread) >> shift_;
    while (slots_[place].number != unknown && !same(slots_[place], name, head)) {
      place = (place + 1) & mask;
    }
    return place;
  }

  static bool same(const Slot& slot, std::string_view name, Word head) {
    return slot.head == head && slot.name.size() == name.size() &&
           (name.size() <= 8 || slot.name == name);
  }

  void put(const Slot& slot) { slots_[place_of(slot.name, slot.head)] = slot; }

  void grow() {
    std::vector<Slot> old = std::exchange(slots_, {});
    slots_.resize(old.empty() ? 16 : 2 * old.size());
    shift_ = 64 - std::countr_zero(slots_.size());
    for (const Slot& slot : old) {
      if (slot.number != unknown) put(slot);
    }
  }

  std::vector<Slot> slots_;
  std::size_t used_ = 0;
  int shift_ = 64;
};

}  // namespace QZ
