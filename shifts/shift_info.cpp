#include "shifts/shift_info.h"

#include <string>

#include "database/database_error.h"
#include "database/text.h"
#include "machinedata/lookups.h"
#include "session/sql_dialect.h"
#include "session/trace.h"
#include "shifts/machine_shifts.h"

namespace kx {
namespace {

// The shifts that could be at work at a moment, a row each with SHIFT_ID and the START_TIME and STOP_TIME of
// its interval: yesterday's swing interval that still runs (its times moved to the days before), today's
// swing interval that has begun, and today's ordinary interval around the moment.
std::string CandidateShifts(const Session& session, DateTime moment) {
  const std::size_t today = WeekdayIndex(moment);
  const std::size_t yesterday = (today + kWeekdays.size() - 1) % kWeekdays.size();
  const std::string today_text = SqlDateLiteral(session, CombineDateAndTime(kBaseDay, moment));
  const std::string tomorrow_text = SqlDateLiteral(session, CombineDateAndTime(kDayAfterBase, moment));
  const std::string_view hint = NoLockHint(session);
  const auto from = [&](std::size_t weekday, int is_swing) {
    return Concat(" from T_SFC_SHIFT ", hint, ", T_SFC_INTERVAL ", hint, " where T_SFC_SHIFT.",
                  kWeekdays[weekday],
                  "_INTERVAL_ID = T_SFC_INTERVAL.INTERVAL_ID  and T_SFC_INTERVAL.IS_SWING = ", is_swing);
  };
  return Concat(
      "select T_SFC_SHIFT.SHIFT_ID, ", SqlDateAdd(session, "T_SFC_INTERVAL.START_TIME", -1),
      " as START_TIME,  ", SqlDateAdd(session, "T_SFC_INTERVAL.STOP_TIME", -1), " as STOP_TIME, 1 as u",
      from(yesterday, 1), "  and ", tomorrow_text, " < T_SFC_INTERVAL.STOP_TIME ",
      " UNION select T_SFC_SHIFT.SHIFT_ID, START_TIME,  STOP_TIME, 2 as u", from(today, 1),
      "  and T_SFC_INTERVAL.START_TIME <= ", today_text,
      " UNION select T_SFC_SHIFT.SHIFT_ID, T_SFC_INTERVAL.START_TIME,  T_SFC_INTERVAL.STOP_TIME, 3 as u ",
      from(today, 0), "  and T_SFC_INTERVAL.START_TIME <= ", today_text, " and T_SFC_INTERVAL.STOP_TIME > ",
      today_text);
}

// A time of the interval, whose day counts from the base day, on the calendar day of the moment.
DateTime OnDayOf(DateTime moment, DateTime interval_time) {
  return CombineDateAndTime(moment.AddDays(DaysBetween(kBaseDay, interval_time)), interval_time);
}

}  // namespace

std::int32_t PreferredShift(Session& session, std::string_view user_name) {
  const std::int32_t user_id = GetUserID(session, user_name);
  if (user_id == -1) return kNoShift;
  const Recordset user = OpenMasterData(
      session, Concat("select * from T_SFC_USER ", NoLockHint(session), " where USER_ID = ", user_id));
  return user.Fields("SHIFT_ID").ToInt32Or(kNoShift);
}

ShiftInfo DetermineChartDateAndShiftInfo(Session& session, DateTime moment, std::string_view user_name,
                                         std::int32_t machine_id) {
  WriteTrace(session, "DetermineChartDateAndShiftInfo");
  ShiftInfo info;
  info.chart_date = moment.Date();
  Recordset shifts =
      OpenMasterData(session, AddMachineShiftFilter(session, CandidateShifts(session, moment), machine_id) +
                                  " order by START_TIME,STOP_TIME,s.SHIFT_ID");
  if (shifts.RecordCount() == 0) return info;
  if (shifts.RecordCount() > 1) {
    const std::int32_t preferred = PreferredShift(session, user_name);
    if (preferred != kNoShift && !shifts.Find("SHIFT_ID", preferred)) shifts.MoveFirst();
  }
  info.shift_id = shifts.Fields("SHIFT_ID").ToInt32();
  info.start = OnDayOf(moment, shifts.Fields("START_TIME").ToDateTime());
  info.end = OnDayOf(moment, shifts.Fields("STOP_TIME").ToDateTime());
  return info;
}

ShiftChange GetChangedShiftID(Session& session, const Recordset& record, DateTime moment,
                              std::int32_t machine_id) {
  try {
    if (record.RecordCount() == 0 || record.Fields("SHIFT_ID").ToInt32Or(0) <= 0) return {};
    const ShiftInfo now = DetermineChartDateAndShiftInfo(session, moment, "", machine_id);
    if (now.shift_id == record.Fields("SHIFT_ID").ToInt32()) return {0, now.end};
    return {now.shift_id, now.end};
  } catch (const DatabaseError&) {
    return {};
  }
}

void SetShift(Recordset& record, std::int32_t shift_id, DateTime shift_end) {
  const bool none = shift_id == kNoShift;
  record.Set("SHIFT_ID", none ? Value() : Value(shift_id));
  record.Set("SHIFT_END", none ? Value() : Value(shift_end));
}

}  // namespace kx
