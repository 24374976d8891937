#include "shifts/next_shift_start.h"

#include <limits>
#include <string>

#include "database/database_error.h"
#include "database/text.h"
#include "session/sql_dialect.h"
#include "session/trace.h"
#include "shifts/machine_shifts.h"
#include "shifts/weekdays.h"

namespace kx {
namespace {

// The join of `source` with the interval that it works on a weekday.
std::string JoinInterval(const Session& session, std::string_view from, std::string_view source,
                         std::string_view weekday) {
  if (UsesOuterJoinMarks(session)) {
    return Concat(from, ", T_SFC_INTERVAL where ", source, ".", weekday,
                  "_INTERVAL_ID = T_SFC_INTERVAL.INTERVAL_ID (+)");
  }
  return Concat(from, " LEFT JOIN T_SFC_INTERVAL", NoLockHint(session), "  on ", source, ".", weekday,
                "_INTERVAL_ID = T_SFC_INTERVAL.INTERVAL_ID");
}

// The start times of every shift on every weekday, a row a shift: MON_START_TIME to SUN_START_TIME, SHIFT_ID.
// Each level of the nesting joins the interval of one weekday more.
std::string WeeklyStartTimes(const Session& session) {
  std::string source = "T_SFC_SHIFT";
  std::string from = Concat("T_SFC_SHIFT", NoLockHint(session));
  for (std::size_t day = 0;; ++day) {
    const bool outermost = day + 1 == kWeekdays.size();
    std::string columns;
    for (std::size_t known = 0; known < day; ++known) {
      Append(columns, source, ".", kWeekdays[known], "_START_TIME, ");
    }
    Append(columns, "T_SFC_INTERVAL.START_TIME AS ", kWeekdays[day], "_START_TIME");
    for (std::size_t open = day + 1; open < kWeekdays.size(); ++open) {
      Append(columns, ", ", source, ".", kWeekdays[open], "_INTERVAL_ID");
    }
    const std::string join = JoinInterval(session, from, source, kWeekdays[day]);
    if (outermost) return Concat("select ", columns, ", SHIFT_ID from ", join, " ");
    source = Concat("JOIN", day + 1);
    from = Concat("(select SHIFT_ID, ", columns, " from ", join, ") ", source);
  }
}

[[noreturn]] void ThrowNoShift(std::int32_t machine_id) {
  throw DatabaseError(Concat("Overflow: no shift ever starts for machine ", machine_id));
}

}  // namespace

DateTime GetNextShiftStart(Session& session, DateTime moment, std::int32_t machine_id) {
  WriteTrace(session, "GetNextShiftStart");
  Recordset shifts =
      OpenMasterData(session, AddMachineShiftFilter(session, WeeklyStartTimes(session), machine_id) +
                                  " order by s.SHIFT_ID");
  if (shifts.RecordCount() == 0) ThrowNoShift(machine_id);

  const DateTime time_of_day = CombineDateAndTime(kBaseDay, moment);
  DateTime best = kNoShiftStart;
  bool found = false;
  std::int16_t days = 0;
  for (;; ++days) {  // as far as 16 bits go
    const std::string column = Concat(kWeekdays[WeekdayIndex(moment.AddDays(days))], "_START_TIME");
    for (shifts.MoveFirst(); !shifts.IsEof(); shifts.MoveNext()) {
      const Value& start = shifts.Fields(column);
      if (start.IsNull()) {
        if (!found) best = kDayAfterBase;
        found = true;
        continue;
      }
      const DateTime candidate = start.ToDateTime().AddDays(days);
      if (candidate > time_of_day && (!found || candidate < best)) {
        best = candidate;
        found = true;
      }
    }
    if (found) break;
    if (days == std::numeric_limits<std::int16_t>::max()) ThrowNoShift(machine_id);
  }
  return CombineDateAndTime(moment.AddDays(best == kDayAfterBase ? days + 1 : days), best);
}

}  // namespace kx
