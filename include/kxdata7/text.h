// Texts between UTF-8 and UTF-16. What is no valid text becomes U+FFFD: a lone surrogate, or each byte of a
// sequence that is no UTF-8.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace kxdata7 {
namespace text_internal {

inline constexpr char32_t kReplacement = 0xFFFD;

inline void AppendUtf8(std::string& out, char32_t code) {
  const auto put = [&out](char32_t byte) { out.push_back(static_cast<char>(byte)); };
  if (code < 0x80) {
    put(code);
  } else if (code < 0x800) {
    put(0xC0 | code >> 6);
    put(0x80 | (code & 0x3F));
  } else if (code < 0x10000) {
    put(0xE0 | code >> 12);
    put(0x80 | (code >> 6 & 0x3F));
    put(0x80 | (code & 0x3F));
  } else {
    put(0xF0 | code >> 18);
    put(0x80 | (code >> 12 & 0x3F));
    put(0x80 | (code >> 6 & 0x3F));
    put(0x80 | (code & 0x3F));
  }
}

// Reads the character at `at` and moves behind it.
inline char32_t TakeUtf8(std::string_view text, std::size_t& at) {
  const auto byte = [&](std::size_t index) { return static_cast<std::uint8_t>(text[index]); };
  const std::uint8_t lead = byte(at++);
  if (lead < 0x80) return lead;
  const std::size_t more = lead >= 0xF0 && lead < 0xF5   ? 3
                           : lead >= 0xE0 && lead < 0xF0 ? 2
                           : lead >= 0xC2 && lead < 0xE0 ? 1
                                                         : 0;
  if (more == 0 || text.size() - at < more) return kReplacement;
  char32_t code = lead & (0x3Fu >> more);
  for (std::size_t i = 0; i < more; ++i) {
    if ((byte(at + i) & 0xC0) != 0x80) return kReplacement;
    code = code << 6 | (byte(at + i) & 0x3Fu);
  }
  const bool overlong = (more == 2 && code < 0x800) || (more == 3 && code < 0x10000);
  if (overlong || code > 0x10FFFF || (code >= 0xD800 && code < 0xE000)) return kReplacement;
  at += more;
  return code;
}

template <class Unit>
std::string Encode(std::basic_string_view<Unit> text) {
  static_assert(sizeof(Unit) == 2);
  const auto is_high = [](char32_t unit) { return unit >= 0xD800 && unit < 0xDC00; };
  const auto is_low = [](char32_t unit) { return unit >= 0xDC00 && unit < 0xE000; };
  std::string out;
  out.reserve(text.size());
  for (std::size_t at = 0; at < text.size(); ++at) {
    char32_t code = text[at];
    if (is_high(code) && at + 1 < text.size() && is_low(text[at + 1])) {
      code = 0x10000 + ((code - 0xD800) << 10) + (text[++at] - 0xDC00u);
    } else if (is_high(code) || is_low(code)) {
      code = kReplacement;
    }
    AppendUtf8(out, code);
  }
  return out;
}

template <class Unit>
std::basic_string<Unit> Decode(std::string_view text) {
  static_assert(sizeof(Unit) == 2);
  std::basic_string<Unit> out;
  out.reserve(text.size());
  for (std::size_t at = 0; at < text.size();) {
    const char32_t code = TakeUtf8(text, at);
    if (code < 0x10000) {
      out.push_back(static_cast<Unit>(code));
    } else {
      out.push_back(static_cast<Unit>(0xD800 + ((code - 0x10000) >> 10)));
      out.push_back(static_cast<Unit>(0xDC00 + (code & 0x3FF)));
    }
  }
  return out;
}

}  // namespace text_internal

inline std::string ToUtf8(std::u16string_view text) { return text_internal::Encode(text); }
inline std::u16string ToUtf16(std::string_view text) { return text_internal::Decode<char16_t>(text); }
#ifdef _WIN32
inline std::string ToUtf8(std::wstring_view text) { return text_internal::Encode(text); }
inline std::wstring ToWide(std::string_view text) { return text_internal::Decode<wchar_t>(text); }
#endif

}  // namespace kxdata7
