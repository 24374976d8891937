#pragma once

#include <array>
#include <string_view>

#include "database/date_time.h"

namespace kx {

// The weekdays as the shift tables order and abbreviate them.
constexpr std::array<std::string_view, 7> kWeekdays = {"MON", "TUE", "WED", "THU", "FRI", "SAT", "SUN"};

constexpr std::size_t WeekdayIndex(DateTime moment) { return (moment.Weekday() + 5) % kWeekdays.size(); }

// Interval times are times of day on these days; the second one holds the end of a swing interval.
constexpr DateTime kBaseDay(1970, 1, 1);
constexpr DateTime kDayAfterBase(1970, 1, 2);

// What stands for the times of a shift where no shift applies.
constexpr DateTime kNoShiftStart(1970, 1, 1, 9);
constexpr DateTime kNoShiftEnd(1970, 1, 1, 17);

constexpr std::int32_t kNoShift = -1;

}  // namespace kx
