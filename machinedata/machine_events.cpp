#include "machinedata/machine_events.h"

#include <string>

#include "database/database_error.h"
#include "database/text.h"
#include "machinedata/lookups.h"
#include "session/insert_row.h"
#include "session/sql_dialect.h"

namespace kx {
namespace {

Recordset OpenRunningEvents(Session& session, std::int32_t machine_id, std::int32_t command_id) {
  return OpenRecordset(session, Concat("select * from T_SFC_MACHINE_EVENT ", NoLockHint(session),
                                       " where MACHINE_ID = ", machine_id, " and COMMAND_ID = ", command_id));
}

}  // namespace

void StartMachineEvent(Session& session, const MachinePlace& place, std::int32_t command_id,
                       std::string_view param, DateTime start_time) {
  const ColumnValue columns[] = {
      {"START_TIME", start_time},
      {"COMMAND_ID", command_id},
      {"DEPT_ID", place.dept_id},
      {"LOCATION_ID", place.location_id},
      {"GROUP_ID", place.group_id},
      {"MACHINE_ID", place.machine_id},
      {"PARAM1", param.empty() ? Value() : Value(param)},
  };
  const std::int32_t event_id = InsertRow(session, "T_SFC_EVENT", columns);
  const ColumnValue running[] = {
      {"MACHINE_ID", place.machine_id}, {"COMMAND_ID", command_id}, {"EVENT_ID", event_id}};
  session.connection.InsertRow("T_SFC_MACHINE_EVENT", running);
}

bool StopMachineEvent(Session& session, std::int32_t machine_id, std::int32_t command_id,
                      DateTime stop_time) {
  try {
    Recordset running = OpenRunningEvents(session, machine_id, command_id);
    if (running.RecordCount() == 0) return true;
    const std::int32_t event_id = running.Fields("EVENT_ID").ToInt32();
    running.Delete();
    const ColumnValue stopped[] = {{"STOP_TIME", stop_time}};
    session.connection.UpdateRow("T_SFC_EVENT", stopped, event_id);
    return true;
  } catch (const DatabaseError&) {
    return false;
  }
}

bool MachineEventExists(Session& session, std::int32_t machine_id) {
  const std::int32_t command_id = GetCommandIdByTypeCode(session, command_type::kPart);
  return OpenRunningEvents(session, machine_id, command_id).RecordCount() > 0;
}

}  // namespace kx
