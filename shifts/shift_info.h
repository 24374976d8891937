#pragma once

#include <cstdint>
#include <string_view>

#include "session/session.h"
#include "shifts/weekdays.h"

namespace kx {

// The shift at work at a moment, and the chart date that the moment is booked under.
struct ShiftInfo {
  std::int32_t shift_id = kNoShift;
  DateTime chart_date;  // always the calendar date of the moment
  DateTime start = kNoShiftStart;
  DateTime end = kNoShiftEnd;
};

// Classifies a moment by the weekly calendar, among the shifts of the machine. Of several shifts the one that
// began first counts, and of those the one that ends first, unless the user's own shift is among them.
// `user_name` is empty when nobody is known.
ShiftInfo DetermineChartDateAndShiftInfo(Session& session, DateTime moment, std::string_view user_name,
                                         std::int32_t machine_id);

// What a record's shift became at a moment.
struct ShiftChange {
  std::int32_t shift_id = 0;  // the shift now in force when it differs, -1 for none; 0 when nothing changed
  DateTime end;               // of the shift in force
};

// Compares a record's stored shift with the one in force at `moment`, whoever is logged on. A record without
// a shift does not change. Never fails: an error is no change.
ShiftChange GetChangedShiftID(Session& session, const Recordset& record, DateTime moment,
                              std::int32_t machine_id);

// Writes a shift's id and end into a record, both NULL for no shift.
void SetShift(Recordset& record, std::int32_t shift_id, DateTime shift_end);

// The default shift of a user, -1 when there is no such user or the user has none.
std::int32_t PreferredShift(Session& session, std::string_view user_name);

}  // namespace kx
