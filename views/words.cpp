#include "views/words.h"

#include <array>
#include <charconv>
#include <cstdio>

#include "database/text.h"
#include "kxdata7/text.h"

namespace kx::tool {
namespace {

constexpr std::string_view kNoBreak = "\xC2\xA0";

constexpr std::array kWeekdays = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                  "Thursday", "Friday", "Saturday"};
constexpr std::array kMonths = {"January", "February", "March",     "April",   "May",      "June",
                                "July",    "August",   "September", "October", "November", "December"};

std::int64_t RoundedMinutes(std::int64_t seconds) { return (seconds + 30) / 60; }

std::string TwoDigits(std::int64_t number) { return Concat(number < 10 ? "0" : "", number); }

std::string ValidUtf8(std::string_view text) { return kxdata7::ToUtf8(kxdata7::ToUtf16(text)); }

}  // namespace

std::string DurationText(std::int64_t seconds) {
  if (seconds < 0) return Concat("−", DurationText(-seconds));
  if (seconds < 60) return Concat(seconds, kNoBreak, "s");
  const std::int64_t minutes = RoundedMinutes(seconds);
  if (minutes < 60) return Concat(minutes, kNoBreak, "min");
  return Concat(minutes / 60, kNoBreak, "h", kNoBreak, TwoDigits(minutes % 60), kNoBreak, "min");
}

std::string HourMinuteText(std::int64_t seconds) {
  if (seconds < 0) return Concat("−", HourMinuteText(-seconds));
  const std::int64_t minutes = RoundedMinutes(seconds);
  return Concat(minutes / 60, ":", TwoDigits(minutes % 60));
}

std::string ClockText(DateTime time) { return time.Format("hh:mm"); }

std::string DayText(DateTime day) {
  const auto date = day.calendar();
  return Concat(kWeekdays[day.Weekday() - 1], " ", static_cast<unsigned>(date.day()), " ",
                kMonths[static_cast<unsigned>(date.month()) - 1], " ", static_cast<int>(date.year()));
}

std::string IsoDay(DateTime day) { return day.ToText().substr(0, 10); }

std::string IsoWeek(DateTime day) {
  // The week belongs to the year of its Thursday.
  const DateTime thursday = day.Date().AddDays(3 - (day.Weekday() + 5) % 7);
  const int year = static_cast<int>(thursday.calendar().year());
  return Concat(year, "-W", TwoDigits(DaysBetween(DateTime(year, 1, 1), thursday) / 7 + 1));
}

std::string Fixed(double number, int decimals) {
  std::array<char, 64> text{};
  const auto result =
      std::to_chars(text.data(), text.data() + text.size(), number, std::chars_format::fixed, decimals);
  return {text.data(), result.ptr};
}

std::string Counted(std::int64_t count, std::string_view noun) {
  return Concat(count, " ", noun, count == 1 ? "" : "s");
}

std::string Escaped(std::string_view text) {
  std::string escaped;
  for (const char c : ValidUtf8(text)) {
    switch (c) {
      case '&': escaped += "&amp;"; break;
      case '<': escaped += "&lt;"; break;
      case '>': escaped += "&gt;"; break;
      case '"': escaped += "&quot;"; break;
      case '\'': escaped += "&#39;"; break;
      default: escaped += c >= 0 && c < ' ' ? ' ' : c;
    }
  }
  return escaped;
}

std::string JsonText(std::string_view text) {
  std::string json = "\"";
  for (const char c : ValidUtf8(text)) {
    if (c == '"' || c == '\\') {
      json += {'\\', c};
    } else if (c >= 0 && c < ' ') {
      std::array<char, 8> escape{};
      std::snprintf(escape.data(), escape.size(), "\\u%04x", static_cast<unsigned>(c));
      json += escape.data();
    } else {
      json += c;
    }
  }
  return json + '"';
}

}  // namespace kx::tool
