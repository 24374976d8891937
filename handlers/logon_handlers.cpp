#include "handlers/logon_handlers.h"

#include "handlers/frame.h"
#include "machinedata/lookups.h"
#include "machinedata/records.h"
#include "session/messages.h"
#include "shifts/current_record.h"
#include "shifts/shift_info.h"

namespace kx {
namespace {

// Gives a new record the shift in force for a user where it differs from the one taken over.
void WriteShiftOf(Session& session, const MdcLogItem& item, std::string_view user_name, Recordset& record) {
  const ShiftInfo now =
      DetermineChartDateAndShiftInfo(session, item.time_stamp, user_name, item.place.machine_id);
  if (now.shift_id == record.Fields("SHIFT_ID").ToInt32Or(kNoShift)) return;
  SetShift(record, now.shift_id, now.end);
  record.Set("CHART_DATE", now.chart_date);
}

void WriteUser(Session& session, std::string_view user_name, Recordset& record,
               std::int32_t machine_data_id) {
  // The name stands there for a known user, too: the shift calendar asks for it.
  record.Set("USER_NAME", user_name.empty() ? Value() : Value(user_name));
  const std::int32_t user_id = GetUserID(session, user_name);
  if (user_id != -1) {
    record.Set("USER_ID", user_id);
  } else {
    record.Set("LOGON_DATA_START_ID", machine_data_id);
  }
}

}  // namespace

bool DoLogonStart(Session& session, const MdcLogItem& item, std::string& error) {
  return RunHandler(session, message::kLogonStart, error, [&] {
    const std::int32_t machine_id = item.place.machine_id;
    const std::int32_t current = GetCurrentMachineDataID(session, machine_id, item.time_stamp);
    if (!StopEvents(session, item, {command_type::kLogon})) return Outcome::kLocked;
    StartEvent(session, item, command_type::kLogon, item.param);
    ReplaceRecord(session, machine_id, current, ChangedItem::kUser, item.time_stamp,
                  [&](Recordset& next, std::int32_t next_id) {
                    WriteUser(session, item.param, next, next_id);
                    WriteShiftOf(session, item, item.param, next);
                  });
    return Outcome::kDone;
  });
}

bool DoLogonEnd(Session& session, const MdcLogItem& item, std::string& error) {
  return RunHandler(session, message::kLogonEnd, error, [&] {
    const std::int32_t machine_id = item.place.machine_id;
    const std::int32_t current = GetCurrentMachineDataID(session, machine_id, item.time_stamp);
    if (!StopEvents(session, item, {command_type::kLogon})) return Outcome::kLocked;
    ReplaceRecord(session, machine_id, current, ChangedItem::kUser, item.time_stamp,
                  [&](Recordset& next, std::int32_t) { WriteShiftOf(session, item, "", next); });
    return Outcome::kDone;
  });
}

}  // namespace kx
