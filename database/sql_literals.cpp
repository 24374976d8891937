#include "database/sql_literals.h"

#include <charconv>

namespace kx {
namespace {

// Takes a decimal number and the character behind it off the front; `after` 0 takes none.
std::optional<int> TakeNumber(std::string_view& text, char after) {
  int number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || number < 0) return std::nullopt;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  if (after == 0) return number;
  if (text.empty() || text.front() != after) return std::nullopt;
  text.remove_prefix(1);
  return number;
}

std::string Unquote(std::string_view quoted) {
  std::string text;
  for (std::size_t at = 1; at + 1 < quoted.size(); ++at) {
    text.push_back(quoted[at]);
    if (quoted[at] == '\'') ++at;  // doubled inside
  }
  return text;
}

}  // namespace

std::optional<DateTime> ParseMonthFirst(std::string_view literal) {
  std::string_view text = InsideQuotes(literal);
  const auto month = TakeNumber(text, '/');
  const auto day = month ? TakeNumber(text, '/') : std::nullopt;
  const auto year = day ? TakeNumber(text, ' ') : std::nullopt;
  auto hour = year ? TakeNumber(text, ':') : std::nullopt;
  const auto minute = hour ? TakeNumber(text, ':') : std::nullopt;
  const auto second = minute ? TakeNumber(text, 0) : std::nullopt;
  if (!second || *hour > 23 || *minute > 59 || *second > 59) return std::nullopt;
  if (text == " AM" || text == " PM") {
    if (*hour < 1 || *hour > 12) return std::nullopt;
    hour = *hour % 12 + (text == " PM" ? 12 : 0);
  } else if (!text.empty()) {
    return std::nullopt;
  }
  const std::chrono::year_month_day date(std::chrono::year(*year),
                                         std::chrono::month(static_cast<unsigned>(*month)),
                                         std::chrono::day(static_cast<unsigned>(*day)));
  if (!date.ok()) return std::nullopt;
  return DateTime(std::chrono::local_seconds(std::chrono::local_days(date)))
      .AddSeconds(*hour * 3600 + *minute * 60 + *second);
}

Value ParseLiteral(std::string_view literal) {
  if (literal.starts_with('\'')) return Unquote(literal);
  const char* const begin = literal.data();
  const char* const end = begin + literal.size();
  std::int64_t whole = 0;
  if (const auto [last, error] = std::from_chars(begin, end, whole); error == std::errc() && last == end) {
    return whole;
  }
  double real = 0;
  std::from_chars(begin, end, real);
  return real;
}

}  // namespace kx
