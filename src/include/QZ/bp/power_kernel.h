#pragma once

/// The arithmetic of one message of bit-length propagation: bit lengths of sums of powers of two.

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "QZ/support/pack.h"

namespace QZ {

/// The most terms that a sum of powers of two in fixed point may have.
inline constexpr std::size_t most_fixed_point_terms = std::size_t{1} << 20;

/// Where a row of `stride` bytes keeps the weight of entry y: every whole group of eight lies so
/// that one load and one shift bring them to the lanes of 32-bit words.
constexpr std::size_t byte_place(std::size_t y, std::size_t stride) {
  const std::size_t group = y / 8 * 8;
  return group + 8 <= stride ? group + y % 2 * 4 + y % 8 / 2 : y;
}

/// Entries of one message, `lanes` at a time:
///
///   entry(y) = bit length of the sum over x of 2^a(x, y),   a(x, y) = cavity(x) + weight(x, y)
///
/// or the largest a(x, y), both wrapped at the width of `mask`. A row of weights belongs to a state
/// of the sender and has `stride` places, one for each entry. Weights are words, or, with 32-bit
/// words on a little-endian machine, bytes in the order of `byte_place`. N is the number of states
/// of the sender, or 0 for any number.
///
/// With the largest exponent A the bit length is A + 1 + j, where 2^j is the largest power of two
/// that the sum of 2^(a - A) reaches. A fixed-point word tells it, in which 1 stands at bit
/// `digits`; terms that are too small for the word are left out. Those could only decide where the
/// others sum up to a long run of ones, and for that there must be many.
template <unsigned N, unsigned lanes, class word_t, class cell_t, word_t mask>
struct PowerKernel {
  using pack = Pack<word_t, lanes>;
  using pack_t = typename pack::type;

  /// Sets out[y] to out[y + lanes - 1]. Returns false if a sum is not certain.
  [[gnu::always_inline]] static bool send(const word_t* cavity, const cell_t* weights,
                                          std::size_t senders, std::size_t stride, std::size_t y,
                                          bool max, word_t* out) {
    const Exponents exponents{cavity, weights + y, stride};
    const std::size_t terms = N > 0 ? N : senders;
    pack_t top{};
    for (std::size_t x = 0; x < terms; ++x) {
      pack_t a;
      exponents.load(x, a);
      pack::raise(top, a);
    }
    const bool certain = max || add_length(exponents, terms, top);
    if constexpr (cut) top &= mask;
    pack::at(out + y) = top;
    return certain;
  }

 private:
  using signed_word = std::make_signed_t<word_t>;
  using signed_pack = typename Pack<signed_word, lanes>::type;
  static constexpr bool cut = mask != static_cast<word_t>(-1);

  struct Exponents {
    const word_t* cavity;
    const cell_t* weights;
    std::size_t stride;

    [[gnu::always_inline]] void load(std::size_t x, pack_t& to) const {
      const cell_t* from = weights + x * stride;
      if constexpr (sizeof(cell_t) == sizeof(word_t)) {
        to = pack::at(from);
      } else {
        using chunk_t =
            std::conditional_t<lanes == 8, std::uint64_t,
                               std::conditional_t<lanes == 4, std::uint32_t, std::uint16_t>>;
        constexpr unsigned chunk_lanes = lanes == 8 ? 2 : 1;
        chunk_t chunk;
        std::memcpy(&chunk, from, sizeof chunk);
        if constexpr (lanes == 8) {
          to = reinterpret_cast<pack_t>(typename Pack<chunk_t, 4>::type{} + chunk);
        } else {
          to = pack_t{} + chunk;
        }
        pack_t shift;
        for (unsigned i = 0; i < lanes; ++i) shift[i] = i / chunk_lanes * 8;
        to = (to >> shift) & 0xff;
      }
      to += cavity[x];
      if constexpr (cut) to &= mask;
    }
  };

  /// Adds to the largest exponents what the bit lengths of the sums have beyond them. Returns false
  /// where terms that were left out might decide.
  [[gnu::always_inline]] static bool add_length(const Exponents& exponents, std::size_t terms,
                                                pack_t& top) {
    if constexpr (N == 2) {
      // Two powers reach the next one only if they are equal.
      pack_t a;
      pack_t b;
      exponents.load(0, a);
      exponents.load(1, b);
      top += 1 - reinterpret_cast<pack_t>(a == b);
      return true;
    }
    // The sum stays below the sign of the word.
    const auto spare = static_cast<std::size_t>(std::bit_width(terms - 1));
    const std::size_t digits = sizeof(word_t) * 8 - 2 - spare;
    const pack_t one = pack_t{} + (word_t(1) << digits);
    const pack_t too_far = pack_t{} + (sizeof(word_t) * 8 - 1);
    pack_t sum{};
    for (std::size_t x = 0; x < terms; ++x) {
      pack_t below;
      exponents.load(x, below);
      below = top - below;
      sum += one >> (below > too_far ? too_far : below);
    }
    top += 1;
    const auto least = reinterpret_cast<const signed_pack&>(sum);
    for (std::size_t j = 1; j <= spare; ++j) {
      top -= reinterpret_cast<pack_t>(least >= static_cast<signed_word>(word_t(1) << (digits + j)));
    }
    // A sum of few powers of two has few ones. What was left out is less than 1 a term, and carries
    // on only through ones from bit_width(terms) to `digits`.
    if (terms + static_cast<std::size_t>(std::bit_width(terms)) <= digits) return true;
    const signed_pack most = least + static_cast<signed_word>(terms - 1);
    signed_pack doubt{};
    for (std::size_t j = 1; j <= spare; ++j) {
      const auto limit = static_cast<signed_word>(word_t(1) << (digits + j));
      doubt |= (least >= limit) ^ (most >= limit);
    }
    bool certain = true;
    for (unsigned i = 0; i < lanes; ++i) certain &= doubt[i] == 0;
    return certain;
  }
};

}  // namespace QZ
