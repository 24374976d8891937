#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace kx {

// The number that `text` spells: blanks only in front, an optional sign, decimal digits with at most one ".",
// an optional exponent, and nothing after it, in any locale. Nothing when it is no such text. A number too
// small for a double is 0; one too large raises "Overflow".
std::optional<double> ParseNumericText(std::string_view text);

// True when `text` has the form of a number.
bool IsNumericText(std::string_view text);

// `number` rounded to a whole number, halves to even; "Overflow" when it does not fit.
std::int16_t RoundToInt16(double number);
std::int32_t RoundToInt32(double number);

}  // namespace kx
