#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "database/date_time.h"

namespace kx::tool {

// How pages and listings say things. Durations are in seconds.

// "45 s", "26 min", "1 h 05 min", rounded to the minute from a minute on; the blanks do not break.
std::string DurationText(std::int64_t seconds);
// "4:05", rounded to the minute.
std::string HourMinuteText(std::int64_t seconds);
// A time that runs is cut off, not rounded.
constexpr std::int64_t CutToMinute(std::int64_t seconds) {
  return seconds < 60 ? seconds : seconds / 60 * 60;
}

std::string ClockText(DateTime time);  // "17:37"
std::string DayText(DateTime day);     // "Monday 12 January 2026"
std::string IsoDay(DateTime day);      // "2026-01-12"
std::string IsoWeek(DateTime day);     // "2026-W03"

// `number` with as many decimals.
std::string Fixed(double number, int decimals);

// "1 event", "2 events".
std::string Counted(std::int64_t count, std::string_view noun);

// A text for HTML, in an element or in a quoted attribute; what is no UTF-8 is replaced.
std::string Escaped(std::string_view text);
// A text in quotes as JSON has it, likewise.
std::string JsonText(std::string_view text);

}  // namespace kx::tool
