#include "database/numeric_text.h"

#include <charconv>
#include <cmath>
#include <limits>

#include "database/database_error.h"

namespace kx {
namespace {

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// The parts of a numeric text.
struct NumericParts {
  bool negative = false;
  std::string_view digits;  // what follows the sign, exponent included
  bool above_one = false;   // the first significant digit stands left of the point
};

std::optional<NumericParts> Split(std::string_view text) {
  NumericParts parts;
  const std::size_t first = text.find_first_not_of(' ');
  if (first == std::string_view::npos) return std::nullopt;
  text.remove_prefix(first);
  if (text.front() == '+' || text.front() == '-') {
    parts.negative = text.front() == '-';
    text.remove_prefix(1);
  }
  parts.digits = text;

  std::size_t at = 0;
  bool any_digit = false;
  for (bool point = false; at < text.size(); ++at) {
    if (IsDigit(text[at])) {
      any_digit = true;
      if (!point && text[at] != '0') parts.above_one = true;
    } else if (text[at] == '.' && !point) {
      point = true;
    } else {
      break;
    }
  }
  if (!any_digit) return std::nullopt;
  if (at == text.size()) return parts;

  if (text[at] != 'e' && text[at] != 'E') return std::nullopt;
  ++at;
  if (at < text.size() && (text[at] == '+' || text[at] == '-')) ++at;
  if (at == text.size()) return std::nullopt;
  for (; at < text.size(); ++at) {
    if (!IsDigit(text[at])) return std::nullopt;
  }
  return parts;
}

// Whether a number that left the range of a double did so upwards.
bool IsTooLarge(const NumericParts& parts) {
  const std::size_t exponent = parts.digits.find_first_of("eE");
  if (exponent != std::string_view::npos) return parts.digits[exponent + 1] != '-';
  return parts.above_one;
}

template <class Int>
Int RoundTo(double number) {
  const double rounded = std::nearbyint(number);  // the default rounding mode: halves to even
  if (!(rounded >= std::numeric_limits<Int>::min() && rounded <= std::numeric_limits<Int>::max())) {
    throw OverflowError();
  }
  return static_cast<Int>(rounded);
}

}  // namespace

bool IsNumericText(std::string_view text) { return Split(text).has_value(); }

std::optional<double> ParseNumericText(std::string_view text) {
  const auto parts = Split(text);
  if (!parts) return std::nullopt;
  double number = 0;
  const auto [end, error] =
      std::from_chars(parts->digits.data(), parts->digits.data() + parts->digits.size(), number);
  if (error == std::errc::result_out_of_range) {
    if (IsTooLarge(*parts)) throw OverflowError();
    number = 0;
  }
  return parts->negative ? -number : number;
}

std::int16_t RoundToInt16(double number) { return RoundTo<std::int16_t>(number); }
std::int32_t RoundToInt32(double number) { return RoundTo<std::int32_t>(number); }

}  // namespace kx
