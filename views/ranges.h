#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "plant/plant.h"

namespace kx::tool {

// A shift at work on one day. Its records are booked on the day of its start.
struct ShiftTime {
  std::int32_t shift_id;
  std::string name;
  DateTime start, stop;
};

// The plant's weekly shifts.
class Calendar {
 public:
  explicit Calendar(Plant& plant);

  // The shifts that start on a day, in their order.
  std::vector<ShiftTime> OfDay(DateTime day) const;
  // The shift in force at a moment, the one that began first where there are several.
  std::optional<ShiftTime> At(DateTime moment) const;
  // The last shift that ended by then, within the two weeks before.
  std::optional<ShiftTime> EndedBy(DateTime moment) const;
  // The day on which a moment is booked: that of its shift's start.
  DateTime DayOf(DateTime moment) const;

  // A shift by its name or number; a ToolError when there is none.
  std::int32_t FindShift(std::string_view name) const;
  std::string NameOf(std::int32_t shift_id) const;  // its number when it has none or is gone

 private:
  struct WeeklyShift {
    std::int32_t id;
    std::string name;
    // Seconds from midnight by weekday, from Monday on.
    std::vector<std::optional<std::pair<std::int64_t, std::int64_t>>> days;
  };
  std::vector<WeeklyShift> shifts_;
};

// What a report is about: records booked on days `first` to `last`, all of them or those of one shift.
struct Range {
  DateTime first, last;
  std::optional<std::int32_t> shift_id;
  std::string shift_name;
  // The time that those records cover by the calendar: the shift's own when the range is one shift of one
  // day.
  DateTime from, to;

  bool IsOneShift() const { return shift_id && first == last; }
  std::string Title() const;  // "Late shift, Monday 12 January 2026"
  std::string Times() const;  // "14:00–22:00"; empty for several days
};

// The most days that one report sums.
inline constexpr std::int64_t kMostDays = 3'700;

// A ToolError for a range that ends before it begins or has more than `kMostDays`.
Range MakeRange(const Calendar& calendar, DateTime first, DateTime last,
                std::optional<std::int32_t> shift_id = {});
Range RangeOf(const ShiftTime& shift);
// A range by its name as seen at `now`: shift (the day when none is in force), last, today, yesterday, week,
// lastweek; nothing for another name.
std::optional<Range> NamedRange(const Calendar& calendar, std::string_view name, DateTime now);
std::string RangeNames();  // for a help text
// The one before of the same kind: the shift that ended before, or as many days.
std::optional<Range> RangeBefore(const Calendar& calendar, const Range& range);

}  // namespace kx::tool
