// UTF-16 and UTF-8: what is valid comes back as it was, what is not as U+FFFD.

#include "kxdata7/text.h"

#include <cstring>
#include <string>

#include "fuzz/demo_plant.h"

namespace {

using kx::fuzz::Require;

bool IsSurrogate(char16_t unit, char16_t kind) { return (unit & 0xFC00) == kind; }

std::u16string WithoutLoneSurrogates(std::u16string text) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool pair = IsSurrogate(text[i], 0xD800) && i + 1 < text.size() && IsSurrogate(text[i + 1], 0xDC00);
    if (pair) {
      ++i;
    } else if (IsSurrogate(text[i], 0xD800) || IsSurrogate(text[i], 0xDC00)) {
      text[i] = u'\uFFFD';
    }
  }
  return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  std::u16string units(size / sizeof(char16_t), u'\0');
  std::memcpy(units.data(), data, units.size() * sizeof(char16_t));
  const std::string encoded = kxdata7::ToUtf8(units);
  const std::u16string valid = WithoutLoneSurrogates(units);
  Require(kxdata7::ToUtf16(encoded) == valid, "UTF-16 comes back");

  const std::string bytes(reinterpret_cast<const char*>(data), size);
  const std::u16string decoded = kxdata7::ToUtf16(bytes);
  Require(decoded == WithoutLoneSurrogates(decoded), "no lone surrogate comes of UTF-8");
  if (decoded.find(u'\uFFFD') == decoded.npos) {
    Require(kxdata7::ToUtf8(decoded) == bytes, "UTF-8 comes back");
  }
  return 0;
}
