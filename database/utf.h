#pragma once

#include <string>
#include <string_view>

namespace kx {

// Text is UTF-8 inside and UTF-16 at the COM and ODBC boundaries. What is no valid text becomes U+FFFD: a
// lone surrogate, or a byte sequence that is no UTF-8.
std::string Utf16ToUtf8(std::u16string_view text);
std::u16string Utf8ToUtf16(std::string_view text);

}  // namespace kx
