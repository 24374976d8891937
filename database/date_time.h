#pragma once

#include <chrono>
#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kx {

// A date and time of the plant in whole seconds, without a time zone.
class DateTime {
 public:
  // 1970-01-01 00:00:00, the base day of the shift calendar.
  constexpr DateTime() = default;
  constexpr explicit DateTime(std::chrono::local_seconds time) : time_(time) {}
  constexpr DateTime(int year, unsigned month, unsigned day, int hour = 0, int minute = 0, int second = 0)
      : time_(std::chrono::local_days(std::chrono::year(year) / std::chrono::month(month) /
                                      std::chrono::day(day)) +
              std::chrono::hours(hour) + std::chrono::minutes(minute) + std::chrono::seconds(second)) {}

  // Reads "YYYY-MM-DD", optionally followed by a blank or "T" and "HH:MM" or "HH:MM:SS"; a fraction of a
  // second is dropped. Nothing when the text has another form or names no real date or time.
  static std::optional<DateTime> Parse(std::string_view text);

  constexpr std::chrono::local_seconds time() const { return time_; }
  constexpr std::chrono::local_days day() const { return std::chrono::floor<std::chrono::days>(time_); }
  constexpr std::chrono::year_month_day calendar() const { return std::chrono::year_month_day(day()); }
  constexpr std::chrono::hh_mm_ss<std::chrono::seconds> clock() const {
    return std::chrono::hh_mm_ss<std::chrono::seconds>(time_ - day());
  }
  // Midnight at the beginning of the day.
  constexpr DateTime Date() const { return DateTime(std::chrono::local_seconds(day())); }
  // Sunday = 1 to Saturday = 7.
  constexpr unsigned Weekday() const { return std::chrono::weekday(day()).c_encoding() + 1; }
  constexpr DateTime AddDays(std::int64_t days) const { return DateTime(time_ + std::chrono::days(days)); }
  constexpr DateTime AddSeconds(std::int64_t seconds) const {
    return DateTime(time_ + std::chrono::seconds(seconds));
  }

  // "YYYY-MM-DD HH:MM:SS", whatever the locale of the process.
  std::string ToText() const;
  // Fills the pattern's letters y M d h m s, each run with its number zero-filled to the run's length;
  // every other character stays.
  std::string Format(std::string_view pattern) const;

  friend constexpr auto operator<=>(DateTime, DateTime) = default;

 private:
  std::chrono::local_seconds time_{};
};

// Whole seconds from `from` to `to`; negative when `to` is earlier.
constexpr std::int64_t SecondsBetween(DateTime from, DateTime to) {
  return (to.time() - from.time()).count();
}

// Calendar days from the day of `from` to the day of `to`.
constexpr std::int64_t DaysBetween(DateTime from, DateTime to) { return (to.day() - from.day()).count(); }

// The calendar date of `date` with the time of day of `time`.
constexpr DateTime CombineDateAndTime(DateTime date, DateTime time) {
  return DateTime(date.Date().time() + (time.time() - time.day()));
}

}  // namespace kx
