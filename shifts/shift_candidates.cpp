#include "shifts/shift_candidates.h"

#include <algorithm>
#include <string>
#include <tuple>
#include <vector>

#include "database/text.h"
#include "session/sql_dialect.h"
#include "session/trace.h"
#include "shifts/machine_shifts.h"

namespace kx {
namespace {

Recordset OpenIntervals(Session& session, std::size_t weekday, int is_swing, std::string_view time_tests) {
  const std::string_view hint = NoLockHint(session);
  return OpenMasterData(
      session,
      Concat("select T_SFC_SHIFT.SHIFT_ID, T_SFC_INTERVAL.START_TIME,  T_SFC_INTERVAL.STOP_TIME  from "
             "T_SFC_SHIFT",
             hint, ", T_SFC_INTERVAL", hint, "  where T_SFC_SHIFT.", kWeekdays[weekday],
             "_INTERVAL_ID = T_SFC_INTERVAL.INTERVAL_ID  and T_SFC_INTERVAL.IS_SWING = ", is_swing,
             time_tests, " order by T_SFC_INTERVAL.START_TIME "));
}

struct Candidate {
  DateTime start;
  std::int32_t shift_id;
  DateTime stop;
};

void Collect(Recordset intervals, DateTime start_day, DateTime stop_day, std::vector<Candidate>& candidates) {
  for (; !intervals.IsEof(); intervals.MoveNext()) {
    candidates.push_back({CombineDateAndTime(start_day, intervals.Fields("START_TIME").ToDateTime()),
                          intervals.Fields("SHIFT_ID").ToInt32(),
                          CombineDateAndTime(stop_day, intervals.Fields("STOP_TIME").ToDateTime())});
  }
}

}  // namespace

ShiftInfo DetermineShiftFromCandidateList(Session& session, DateTime moment, std::string_view user_name,
                                          std::int32_t machine_id) {
  WriteTrace(session, "DetermineChartDateAndShiftInfo");
  const std::size_t today = WeekdayIndex(moment);
  const std::size_t yesterday = (today + kWeekdays.size() - 1) % kWeekdays.size();
  const std::string probe = SqlTimeLiteral(session, CombineDateAndTime(kBaseDay, moment));
  const std::string next_day_probe = SqlTimeLiteral(session, CombineDateAndTime(kDayAfterBase, moment));
  const std::string has_begun = Concat(" and T_SFC_INTERVAL.START_TIME <= ", probe);

  std::vector<Candidate> candidates;
  Collect(
      OpenIntervals(session, yesterday, 1, Concat(" and ", next_day_probe, " < T_SFC_INTERVAL.STOP_TIME ")),
      moment.AddDays(-1), moment, candidates);
  Collect(OpenIntervals(session, today, 1, has_begun), moment, moment.AddDays(1), candidates);
  Collect(OpenIntervals(session, today, 0, Concat(has_begun, " and T_SFC_INTERVAL.STOP_TIME > ", probe)),
          moment, moment, candidates);
  std::ranges::sort(candidates, {}, [](const Candidate& c) { return std::tuple(c.start, c.shift_id); });

  auto chosen = candidates.end();
  if (const std::int32_t preferred = PreferredShift(session, user_name); preferred != kNoShift) {
    chosen = std::ranges::find(candidates, preferred, &Candidate::shift_id);
  }
  if (chosen == candidates.end()) {
    LoadMachineShifts(session, machine_id);
    chosen = std::ranges::find_if(
        candidates, [&](const Candidate& c) { return IsShiftAllowedForMachine(session, c.shift_id); });
  }
  ShiftInfo info;
  info.chart_date = moment.Date();
  if (chosen != candidates.end()) {
    info.shift_id = chosen->shift_id;
    info.start = chosen->start;
    info.end = chosen->stop;
  }
  return info;
}

}  // namespace kx
