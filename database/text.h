#pragma once

#include <charconv>
#include <concepts>
#include <limits>
#include <string>
#include <string_view>

namespace kx {

namespace text_internal {

inline void AppendPiece(std::string& text, std::string_view piece) { text += piece; }

template <std::integral Int>
void AppendPiece(std::string& text, Int number) {
  char digits[24];
  text.append(digits, std::to_chars(digits, digits + sizeof digits, number).ptr);
}

inline std::size_t MostBytes(std::string_view piece) { return piece.size(); }

template <std::integral Int>
std::size_t MostBytes(Int) {
  return std::numeric_limits<Int>::digits10 + 2;  // a further digit and the sign
}

}  // namespace text_internal

// Appends texts and whole numbers, the numbers in plain decimal.
template <class... Pieces>
void Append(std::string& text, const Pieces&... pieces) {
  (text_internal::AppendPiece(text, pieces), ...);
}

template <class... Pieces>
std::string Concat(const Pieces&... pieces) {
  std::string text;
  text.reserve((text_internal::MostBytes(pieces) + ... + 0));
  Append(text, pieces...);
  return text;
}

}  // namespace kx
