#pragma once

/// The type parameters of the library: which index and value types exist, their codes, and the one
/// place that turns the codes of a program into types.

#include <type_traits>

namespace QZ {

/// Index type of an instantiation; the numbers are those of register `IDX` and of the files.
enum class IdxType : unsigned char { UINT8 = 0, UINT16 = 1, UINT32 = 2, UINT64 = 3 };

/// Value type of an instantiation; the numbers are those of register `VAL`.
enum class ValType : unsigned char {
  UINT8 = 0,
  UINT16 = 1,
  UINT32 = 2,
  UINT64 = 3,
  FLT32 = 4,
  FLT64 = 5,
  FLTMPREC = 6
};

/// One of the twelve pairs, as a value that a generic callable can take apart.
template <class Index, class Value>
struct type_pair {
  using idx_t = Index;
  using val_t = Value;
};

template <class idx_t>
constexpr IdxType idx_code() {
  static_assert(std::is_unsigned_v<idx_t>);
  if constexpr (sizeof(idx_t) == 1) return IdxType::UINT8;
  if constexpr (sizeof(idx_t) == 2) return IdxType::UINT16;
  if constexpr (sizeof(idx_t) == 4) return IdxType::UINT32;
  return IdxType::UINT64;
}

template <class val_t>
constexpr ValType val_code() {
  if constexpr (std::is_same_v<val_t, float>) return ValType::FLT32;
  if constexpr (std::is_same_v<val_t, double>) return ValType::FLT64;
  if constexpr (std::is_integral_v<val_t>) return static_cast<ValType>(idx_code<val_t>());
}

/// Calls `f(std::type_identity<idx_t>{})` for the index type with code `idx`.
/// Returns false, without a call, for any other code.
template <class F>
bool dispatch_index(unsigned char idx, F&& f) {
  switch (static_cast<IdxType>(idx)) {
    case IdxType::UINT8:
      f(std::type_identity<unsigned char>{});
      return true;
    case IdxType::UINT16:
      f(std::type_identity<unsigned short>{});
      return true;
    case IdxType::UINT32:
      f(std::type_identity<unsigned int>{});
      return true;
    case IdxType::UINT64:
      f(std::type_identity<unsigned long>{});
      return true;
  }
  return false;
}

/// Calls `f(type_pair<idx_t, val_t>{})` for the pair that the two codes name: an integer value type
/// goes with the index type of its own width only, float and double with any. `FLTMPREC` is double.
/// Returns false, without a call, for any other pair.
template <class F>
bool dispatch_pair(unsigned char idx, unsigned char val, F&& f) {
  bool called = false;
  dispatch_index(idx, [&]<class I>(std::type_identity<I>) {
    switch (static_cast<ValType>(val)) {
      case ValType::FLT32:
        f(type_pair<I, float>{});
        called = true;
        break;
      case ValType::FLT64:
      case ValType::FLTMPREC:
        f(type_pair<I, double>{});
        called = true;
        break;
      default:
        if (val == idx) {
          f(type_pair<I, I>{});
          called = true;
        }
    }
  });
  return called;
}

}  // namespace QZ
