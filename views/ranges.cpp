#include "views/ranges.h"

#include <algorithm>
#include <array>
#include <map>
#include <tuple>

#include "database/ascii.h"
#include "database/text.h"
#include "views/words.h"

namespace kx::tool {
namespace {

// From Monday on.
std::size_t WeekdayIndex(DateTime day) { return (day.Weekday() + 5) % 7; }

DateTime Monday(DateTime day) { return day.Date().AddDays(-static_cast<std::int64_t>(WeekdayIndex(day))); }

}  // namespace

Calendar::Calendar(Plant& plant) {
  std::map<std::int32_t, std::pair<std::int64_t, std::int64_t>> intervals;
  const Rows times = plant.Run("select INTERVAL_ID, START_TIME, STOP_TIME from T_SFC_INTERVAL");
  for (std::size_t i = 0; i < times.count(); ++i) {
    if (times.at(i, 1).IsNull() || times.at(i, 2).IsNull()) continue;
    intervals[times.at(i, 0).ToInt32()] = {SecondsBetween(DateTime(), times.at(i, 1).ToDateTime()),
                                           SecondsBetween(DateTime(), times.at(i, 2).ToDateTime())};
  }
  const Rows rows = plant.Run(
      "select SHIFT_ID, SHIFT_NAME, MON_INTERVAL_ID, TUE_INTERVAL_ID, WED_INTERVAL_ID, THU_INTERVAL_ID, "
      "FRI_INTERVAL_ID, SAT_INTERVAL_ID, SUN_INTERVAL_ID from T_SFC_SHIFT order by SHIFT_ID");
  for (std::size_t i = 0; i < rows.count(); ++i) {
    auto& shift = shifts_.emplace_back();
    shift.id = rows.at(i, 0).ToInt32();
    shift.name = rows.at(i, 1).ToTextOr("");
    for (std::size_t day = 0; day < 7; ++day) {
      const auto found = intervals.find(rows.at(i, 2 + day).ToInt32Or(-1));
      shift.days.push_back(found == intervals.end() ? std::nullopt : std::optional(found->second));
    }
  }
}

std::vector<ShiftTime> Calendar::OfDay(DateTime day) const {
  std::vector<ShiftTime> times;
  const DateTime midnight = day.Date();
  for (const WeeklyShift& shift : shifts_) {
    if (const auto& interval = shift.days[WeekdayIndex(day)]) {
      times.push_back({shift.id, NameOf(shift.id), midnight.AddSeconds(interval->first),
                       midnight.AddSeconds(interval->second)});
    }
  }
  std::ranges::sort(times, {}, [](const ShiftTime& s) { return std::tuple(s.start, s.stop, s.shift_id); });
  return times;
}

std::optional<ShiftTime> Calendar::At(DateTime moment) const {
  for (const int back : {1, 0}) {
    for (const ShiftTime& shift : OfDay(moment.AddDays(-back))) {
      if (shift.start <= moment && moment < shift.stop) return shift;
    }
  }
  return std::nullopt;
}

std::optional<ShiftTime> Calendar::EndedBy(DateTime moment) const {
  std::optional<ShiftTime> last;
  for (int back = 15; back >= 0; --back) {
    for (ShiftTime& shift : OfDay(moment.AddDays(-back))) {
      if (shift.stop <= moment && (!last || shift.stop >= last->stop)) last = std::move(shift);
    }
  }
  return last;
}

DateTime Calendar::DayOf(DateTime moment) const {
  const auto shift = At(moment);
  return shift ? shift->start.Date() : moment.Date();
}

std::int32_t Calendar::FindShift(std::string_view name) const {
  for (const WeeklyShift& shift : shifts_) {
    if (EqualsIgnoringCase(shift.name, name) || std::to_string(shift.id) == name) return shift.id;
  }
  std::string known;
  for (const WeeklyShift& shift : shifts_) known += (known.empty() ? "" : ", ") + NameOf(shift.id);
  throw ToolError(Concat("there is no shift \"", name, "\"; ",
                         known.empty() ? "the plant has no shifts" : "the plant has " + known));
}

std::string Calendar::NameOf(std::int32_t shift_id) const {
  const auto found = std::ranges::find(shifts_, shift_id, &WeeklyShift::id);
  return found == shifts_.end() || found->name.empty() ? Concat("shift ", shift_id) : found->name;
}

std::string Range::Title() const {
  std::string title = shift_id ? Concat(shift_name, " shift, ") : "";
  title += DayText(first);
  return last == first ? title : Concat(title, " – ", DayText(last));
}

std::string Range::Times() const {
  if (first != last) return "";
  const DateTime midnight = first.AddDays(1);
  return Concat(ClockText(from), "–", to == midnight ? "24:00" : ClockText(to),
                to > midnight ? " on the next day" : "");
}

Range MakeRange(const Calendar& calendar, DateTime first, DateTime last,
                std::optional<std::int32_t> shift_id) {
  Range range{first.Date(), last.Date(), shift_id, shift_id ? calendar.NameOf(*shift_id) : "", {}, {}};
  const std::int64_t days = DaysBetween(range.first, range.last) + 1;
  if (days < 1)
    throw ToolError(Concat("the range ends (", IsoDay(last), ") before it begins (", IsoDay(first), ")"));
  if (days > kMostDays)
    throw ToolError(Concat("the range has ", days, " days; at most ", kMostDays, " are summed"));
  // A night shift is booked on the day of its start: the days reach from one such end to the next.
  const auto end_of = [&](DateTime day) {
    DateTime end = day.AddDays(1);
    for (const ShiftTime& shift : calendar.OfDay(day)) end = std::max(end, shift.stop);
    return end;
  };
  range.from = end_of(range.first.AddDays(-1));
  range.to = end_of(range.last);
  if (range.IsOneShift()) {
    for (const ShiftTime& shift : calendar.OfDay(first)) {
      if (shift.shift_id == *shift_id) std::tie(range.from, range.to) = std::tie(shift.start, shift.stop);
    }
  }
  return range;
}

Range RangeOf(const ShiftTime& shift) {
  return {shift.start.Date(), shift.start.Date(), shift.shift_id, shift.name, shift.start, shift.stop};
}

std::optional<Range> NamedRange(const Calendar& calendar, std::string_view name, DateTime now) {
  const DateTime today = calendar.DayOf(now);
  const auto shift = calendar.At(now);
  if (name == "shift" && shift) return RangeOf(*shift);
  if (name == "shift" || name == "today") return MakeRange(calendar, today, today);
  if (name == "yesterday") return MakeRange(calendar, today.AddDays(-1), today.AddDays(-1));
  if (name == "week") return MakeRange(calendar, Monday(today), Monday(today).AddDays(6));
  if (name == "lastweek") return MakeRange(calendar, Monday(today).AddDays(-7), Monday(today).AddDays(-1));
  if (name == "last") {
    const auto last = calendar.EndedBy(shift ? shift->start : now);
    return last ? RangeOf(*last) : MakeRange(calendar, today.AddDays(-1), today.AddDays(-1));
  }
  return std::nullopt;
}

std::string RangeNames() { return "shift, last (the shift before), today, yesterday, week, lastweek"; }

std::optional<Range> RangeBefore(const Calendar& calendar, const Range& range) {
  if (range.IsOneShift()) {
    const auto shift = calendar.EndedBy(range.from);
    return shift ? std::optional(RangeOf(*shift)) : std::nullopt;
  }
  const std::int64_t days = DaysBetween(range.first, range.last) + 1;
  return MakeRange(calendar, range.first.AddDays(-days), range.first.AddDays(-1), range.shift_id);
}

}  // namespace kx::tool
