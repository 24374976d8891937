#pragma once

#include <algorithm>
#include <string>
#include <string_view>

namespace kx {

// Letters of ASCII alone change case, whatever the locale of the process.
constexpr char ToLowerAscii(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

constexpr bool EqualsIgnoringCase(std::string_view a, std::string_view b) {
  return std::ranges::equal(a, b, {}, ToLowerAscii, ToLowerAscii);
}

inline std::string ToLowerAscii(std::string_view text) {
  std::string lower(text);
  std::ranges::transform(lower, lower.begin(), [](char c) { return ToLowerAscii(c); });
  return lower;
}

}  // namespace kx
