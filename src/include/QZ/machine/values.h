#pragma once

/// Values as program text writes them: one token, or a list of numbers joined by commas.

#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "QZ/machine/file_list.h"

namespace QZ {

namespace values_detail {
template <class T>
inline constexpr bool unsupported = false;
}

/// The value of a token.
///
/// std::string*   a new text, owned by the caller, without the token's first and last character,
///                whatever they are; an empty token throws out_of_range
/// bool           true for "true", "TRUE" and "1", otherwise false
/// char           the second character; a shorter token throws out_of_range
/// void*          the address with that decimal number
/// numbers        as the standard conversions read them, with their exceptions; int and unsigned
/// int
///                are both read as a signed 32-bit number
template <class T>
T get(std::string token) {
  if constexpr (std::is_same_v<T, std::string*>) {
    return std::make_unique<std::string>(token.substr(1, token.size() - 2)).release();
  } else if constexpr (std::is_same_v<T, bool>) {
    return token == "true" || token == "TRUE" || token == "1";
  } else if constexpr (std::is_same_v<T, char>) {
    return token.at(1);
  } else if constexpr (std::is_same_v<T, unsigned long>) {
    return std::stoul(token);
  } else if constexpr (std::is_same_v<T, void*>) {
    return reinterpret_cast<void*>(std::stoul(token));
  } else if constexpr (std::is_same_v<T, unsigned long long>) {
    return std::stoull(token);
  } else if constexpr (std::is_same_v<T, long>) {
    return std::stol(token);
  } else if constexpr (std::is_same_v<T, int> || std::is_same_v<T, unsigned int>) {
    return static_cast<T>(std::stoi(token));
  } else if constexpr (std::is_same_v<T, double>) {
    return std::stod(token);
  } else if constexpr (std::is_same_v<T, float>) {
    return std::stof(token);
  } else {
    static_assert(values_detail::unsupported<T>, "no token has this type");
  }
}

/// The list of numbers in a text, cut to the width of T; an empty text is an empty list. The caller
/// owns the result.
template <class T>
std::vector<T>* getL(const std::string& text) {
  static_assert(std::is_unsigned_v<T>);
  std::vector<std::string> pieces;
  readandsplit(text, pieces);
  auto list = std::make_unique<std::vector<T>>();
  list->reserve(pieces.size());
  for (const std::string& piece : pieces) {
    list->push_back(static_cast<T>(get<unsigned long>(piece)));
  }
  return list.release();
}

/// The numbers of a list joined by ","; empty for an empty list and for none.
template <class T>
std::string convertList(const std::vector<T>* list) {
  std::string text;
  if (list == nullptr) return text;
  for (const T number : *list) {
    if (!text.empty()) text += ',';
    text += std::to_string(number);
  }
  return text;
}

}  // namespace QZ
