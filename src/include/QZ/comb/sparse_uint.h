#pragma once

#include <cmath>
#include <memory>
#include <ostream>
#include <set>
#include <string>
#include <utility>

#include "QZ/comb/counting.h"
#include "QZ/support/conversions.h"

namespace QZ {

/// An unsigned integer of any size with few one bits: a count of configurations, a product of state
/// counts, a power of two.
///
/// The value is the sum of 2^p over the ordered set of positions p, and 0 for the empty set. The
/// cost of every operation follows the number of one bits, not their positions. Each object owns
/// its set; an object that was moved from holds none and can only be assigned or destroyed.
class sparse_uint_t {
 public:
  sparse_uint_t() : bits_(std::make_unique<Bits>()) {}
  sparse_uint_t(const unsigned long& v) : sparse_uint_t() { add_word(v); }
  sparse_uint_t(const sparse_uint_t& o) : bits_(std::make_unique<Bits>(*o.bits_)) {}
  sparse_uint_t(sparse_uint_t&&) noexcept = default;
  ~sparse_uint_t() = default;

  sparse_uint_t& operator=(const unsigned long& v) {
    bits_ = std::make_unique<Bits>();
    add_word(v);
    return *this;
  }
  sparse_uint_t& operator=(const sparse_uint_t& o) {
    if (this != &o) bits_ = std::make_unique<Bits>(*o.bits_);
    return *this;
  }
  sparse_uint_t& operator=(sparse_uint_t&& o) noexcept {
    if (this != &o) bits_ = std::move(o.bits_);
    return *this;
  }

  /// Adds 2^i.
  void p2x(unsigned long i) {
    auto at = bits_->lower_bound(i);
    while (at != bits_->end() && *at == i) {
      at = bits_->erase(at);
      ++i;
    }
    bits_->insert(at, i);
  }

  sparse_uint_t& operator+=(const sparse_uint_t& o) {
    if (this == &o) return *this += sparse_uint_t(o);
    for (unsigned long bit : *o.bits_) p2x(bit);
    return *this;
  }

  /// Subtracts; the result is 0 where `o` is the larger number.
  sparse_uint_t& operator-=(const sparse_uint_t& o) {
    if (this == &o) bits_->clear();
    for (unsigned long bit : *o.bits_) {
      if (bits_->empty()) break;
      auto lender = bits_->lower_bound(bit);
      if (lender == bits_->end()) {
        bits_->clear();
        break;
      }
      // 2^p - 2^b is the run of ones from b to p - 1.
      for (unsigned long p = *lender; p > bit; --p) bits_->insert(lender, p - 1);
      bits_->erase(lender);
    }
    return *this;
  }

  sparse_uint_t& operator*=(const unsigned long& m) {
    if (m == 0) bits_->clear();
    if (m <= 1 || bits_->empty()) return *this;
    const Bits factor = std::exchange(*bits_, Bits());
    for (unsigned long shift = 0; shift < 64 && m >> shift != 0; ++shift) {
      if ((m >> shift & 1) == 0) continue;
      for (unsigned long bit : factor) p2x(bit + shift);
    }
    return *this;
  }

  /// Shifts right; bits below position `k` are lost.
  sparse_uint_t& operator>>=(const unsigned long& k) {
    if (k == 0) return *this;
    Bits shifted;
    for (auto at = bits_->lower_bound(k); at != bits_->end(); ++at) {
      shifted.insert(shifted.end(), *at - k);
    }
    *bits_ = std::move(shifted);
    return *this;
  }

  /// -1, 0 or 1 as this number is below, equal to or above `o`.
  int compare(const sparse_uint_t& o) const {
    auto mine = bits_->rbegin();
    auto theirs = o.bits_->rbegin();
    for (; mine != bits_->rend() && theirs != o.bits_->rend(); ++mine, ++theirs) {
      if (*mine != *theirs) return *mine > *theirs ? 1 : -1;
    }
    if (mine != bits_->rend()) return 1;
    return theirs != o.bits_->rend() ? -1 : 0;
  }

  /// The value, or 0 if it needs more than 64 bits.
  unsigned long to_uint64() const {
    if (bit_length() > 64) return 0;
    unsigned long value = 0;
    for (unsigned long bit : *bits_) value |= 1ul << bit;
    return value;
  }

  /// The value, summed from the lowest bit up, or 0.0 if it needs more than 1023 bits.
  double to_double() const {
    if (bit_length() > 1023) return 0.0;
    double value = 0;
    for (unsigned long bit : *bits_) value += std::ldexp(1.0, static_cast<int>(bit));
    return value;
  }

  /// Sets the value to the bit mask of the k-subset of {0, ..., n - 1} that has number `c` in
  /// descending lexicographic order. The coefficients are those of `binom` in double, so numbers
  /// above 2^53 are approximate. Writes the set of a constant object.
  void from_combinatorial_index(unsigned long c, const unsigned long& n, unsigned long k) const {
    bits_->clear();
    unsigned long m = n;
    for (unsigned long j = k; j > 0; --j) {
      const unsigned long first = coefficient(m, j);
      if (first <= c) {
        c -= first;
      } else {
        m = descend(m, j, c);
      }
      bits_->insert(n - 1 - m);
    }
  }

  /// Hexadecimal, highest digit first, without a prefix.
  friend std::ostream& operator<<(std::ostream& out, const sparse_uint_t& x) {
    std::string digits;
    auto at = x.bits_->begin();
    for (unsigned long low = 0; low < x.bit_length(); low += 4) {
      std::string nibble = "0000";
      for (; at != x.bits_->end() && *at - low < 4; ++at) nibble[*at - low] = '1';
      digits.push_back(nibToHex(nibble));
    }
    return out << std::string(digits.rbegin(), digits.rend());
  }

  /// The hexadecimal digit of four binary digits, lowest first.
  static char nibToHex(const std::string& nibble) {
    int value = 0;
    for (int i = 0; i < 4; ++i) value += nibble[i] == '1' ? 1 << i : 0;
    return "0123456789abcdef"[value];
  }

  /// The positions of the one bits, ascending.
  const std::set<unsigned long>& positions() const { return *bits_; }

 private:
  using Bits = std::set<unsigned long>;

  unsigned long bit_length() const { return bits_->empty() ? 1 : *bits_->rbegin() + 1; }

  void add_word(unsigned long v) {
    for (unsigned long i = 0; i < 64; ++i) {
      if (v >> i & 1) bits_->insert(bits_->end(), i);
    }
  }

  static unsigned long coefficient(unsigned long m, unsigned long j) {
    return saturating_cast<unsigned long>(binom<unsigned long, double>(m, j));
  }

  /// The largest number below `m` whose coefficient with `j` is at most `c`, which is lowered by
  /// that coefficient; j - 1, with nothing subtracted, if there is none.
  static unsigned long descend(unsigned long m, unsigned long j, unsigned long& c) {
    for (--m; m >= j; --m) {
      const unsigned long count = coefficient(m, j);
      if (count <= c) {
        c -= count;
        break;
      }
    }
    return m;
  }

  std::unique_ptr<Bits> bits_;
};

}  // namespace QZ
