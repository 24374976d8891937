#pragma once

#include <optional>
#include <string_view>

#include "database/date_time.h"
#include "database/value.h"

namespace kx {

// What the literals of the component's statements say. They come as they stand in the text, quotes included.

inline std::string_view InsideQuotes(std::string_view literal) {
  return literal.substr(1, literal.size() - 2);
}

// A date-time between quotes: "m/d/yyyy hh:nn:ss", followed by " AM" or " PM" on a twelve-hour clock.
std::optional<DateTime> ParseMonthFirst(std::string_view literal);

inline bool IsOnTwelveHourClock(std::string_view literal) { return InsideQuotes(literal).ends_with('M'); }

// The value of a text between apostrophes or of an unsigned number.
Value ParseLiteral(std::string_view literal);

}  // namespace kx
