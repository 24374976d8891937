#include "database/date_time.h"

namespace kx {
namespace {

// Takes a number of exactly `digits` digits off the front of `text`.
std::optional<int> TakeNumber(std::string_view& text, std::size_t digits) {
  int number = 0;
  if (text.size() < digits) return std::nullopt;
  for (const char c : text.substr(0, digits)) {
    if (c < '0' || c > '9') return std::nullopt;
    number = number * 10 + (c - '0');
  }
  text.remove_prefix(digits);
  return number;
}

bool Take(std::string_view& text, char expected) {
  if (text.empty() || text.front() != expected) return false;
  text.remove_prefix(1);
  return true;
}

bool TakeFraction(std::string_view& text) {
  if (!Take(text, '.')) return false;
  const std::size_t end = text.find_first_not_of("0123456789");
  const bool any_digit = end != 0 && !text.empty();
  text.remove_prefix(end == std::string_view::npos ? text.size() : end);
  return any_digit;
}

}  // namespace

std::optional<DateTime> DateTime::Parse(std::string_view text) {
  const auto year = TakeNumber(text, 4);
  if (!year || !Take(text, '-')) return std::nullopt;
  const auto month = TakeNumber(text, 2);
  if (!month || !Take(text, '-')) return std::nullopt;
  const auto day = TakeNumber(text, 2);
  if (!day) return std::nullopt;
  const std::chrono::year_month_day date(std::chrono::year(*year),
                                         std::chrono::month(static_cast<unsigned>(*month)),
                                         std::chrono::day(static_cast<unsigned>(*day)));
  if (!date.ok()) return std::nullopt;
  DateTime result{std::chrono::local_seconds(std::chrono::local_days(date))};
  if (text.empty()) return result;

  if (!Take(text, ' ') && !Take(text, 'T')) return std::nullopt;
  const auto hour = TakeNumber(text, 2);
  if (!hour || *hour > 23 || !Take(text, ':')) return std::nullopt;
  const auto minute = TakeNumber(text, 2);
  if (!minute || *minute > 59) return std::nullopt;
  std::optional<int> second = 0;
  if (!text.empty()) {
    if (!Take(text, ':')) return std::nullopt;
    second = TakeNumber(text, 2);
    if (!second || *second > 59) return std::nullopt;
    if (!text.empty() && !TakeFraction(text)) return std::nullopt;
    if (!text.empty()) return std::nullopt;
  }
  return result.AddSeconds(*hour * 3600 + *minute * 60 + *second);
}

// Every statement holds some of these: they are written in place.
std::string DateTime::ToText() const {
  const auto date = calendar();
  const auto time_of_day = clock();
  const int year = static_cast<int>(date.year());
  if (year < 0 || year > 9999) return Format("yyyy-MM-dd hh:mm:ss");
  std::string text = "0000-00-00 00:00:00";
  const auto write = [&](std::size_t end, auto number) {
    for (auto rest = static_cast<unsigned>(number); rest != 0; rest /= 10) {
      text[--end] = static_cast<char>('0' + rest % 10);
    }
  };
  write(4, year);
  write(7, static_cast<unsigned>(date.month()));
  write(10, static_cast<unsigned>(date.day()));
  write(13, time_of_day.hours().count());
  write(16, time_of_day.minutes().count());
  write(19, time_of_day.seconds().count());
  return text;
}

std::string DateTime::Format(std::string_view pattern) const {
  const auto date = calendar();
  const auto time_of_day = clock();
  std::string text;
  for (std::size_t begin = 0; begin < pattern.size();) {
    const char letter = pattern[begin];
    std::size_t end = pattern.find_first_not_of(letter, begin);
    if (end == std::string_view::npos) end = pattern.size();
    std::int64_t number = -1;
    switch (letter) {
      case 'y': number = static_cast<int>(date.year()); break;
      case 'M': number = static_cast<unsigned>(date.month()); break;
      case 'd': number = static_cast<unsigned>(date.day()); break;
      case 'h': number = time_of_day.hours().count(); break;
      case 'm': number = time_of_day.minutes().count(); break;
      case 's': number = time_of_day.seconds().count(); break;
      default: break;
    }
    if (number < 0) {
      text.append(pattern.substr(begin, end - begin));
    } else {
      const std::string digits = std::to_string(number);
      if (digits.size() < end - begin) text.append(end - begin - digits.size(), '0');
      text += digits;
    }
    begin = end;
  }
  return text;
}

}  // namespace kx
