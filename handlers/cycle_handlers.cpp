#include "handlers/cycle_handlers.h"

#include "database/text.h"
#include "handlers/frame.h"
#include "handlers/part_handlers.h"
#include "handlers/roll_over.h"
#include "machinedata/downtime_rows.h"
#include "machinedata/lookups.h"
#include "machinedata/machine_status.h"
#include "machinedata/records.h"
#include "machinedata/segments.h"
#include "session/messages.h"
#include "session/options.h"
#include "session/sql_dialect.h"
#include "shifts/current_record.h"
#include "shifts/shift_info.h"

namespace kx {
namespace {

std::string StatusIs(MachineStatus status) {
  return Concat("STATUS_CODE = ", static_cast<std::int32_t>(status));
}

Outcome StartCycle(Session& session, const MdcLogItem& item) {
  const std::int32_t machine_id = item.place.machine_id;
  const DateTime time = item.time_stamp;
  const std::int32_t current = GetCurrentMachineDataID(session, machine_id, time);
  if (!StopEvents(session, item, {command_type::kCycle, command_type::kSetup})) return Outcome::kLocked;
  if (!StopEvents(session, item, {command_type::kMachineDowntime})) return Outcome::kNotApplicable;
  if (!StopEvents(session, item, {command_type::kTeardown})) return Outcome::kLocked;
  StartEvent(session, item, command_type::kCycle, "");
  StopFirstDowntime(session, current, DowntimeType::kMachine, time);

  Recordset record = OpenMachineData(session, current);
  const ShiftChange shift = GetChangedShiftID(session, record, time, machine_id);
  if (shift.shift_id > 0) {
    record = OpenMachineData(session, RollOverRecord(session, machine_id, record, ChangedItem::kNone, time));
  }
  if (shift.shift_id != 0) SetShift(record, shift.shift_id, shift.end);
  CloseUnfinishedCycle(record, time);
  CloseSegment(record, kSetupSegment, time);
  CloseSegment(record, kTeardownSegment, time);
  CloseSegment(record, kIdleSegment, time);
  record.Set(kCycleSegment.start, time);
  record.Update();
  SetMachineStatus(session, machine_id, MachineStatus::kInCycle, time);
  return Outcome::kDone;
}

Outcome EndCycle(Session& session, const MdcLogItem& item) {
  const std::int32_t machine_id = item.place.machine_id;
  const CurrentMachine current = GetCurrentMachine(session, machine_id, item.time_stamp);
  if (current.status != MachineStatus::kInCycle) return Outcome::kNotApplicable;
  if (!StopEvents(session, item, {command_type::kCycle})) return Outcome::kLocked;
  Recordset record = OpenMachineData(session, current.machine_data_id);
  if (CloseSegment(record, kCycleSegment, item.time_stamp)) AddToCount(record, "FINISHED_CYCLES", 1);
  BeginIdle(record, item.time_stamp);
  record.Update();
  SetMachineStatus(session, machine_id, MachineStatus::kIdle, item.time_stamp);
  return Outcome::kDone;
}

}  // namespace

bool IsCycleLocked(Session& session, std::int32_t machine_id) {
  const std::string_view hint = NoLockHint(session);
  const auto option_value = [&](std::int32_t code) {
    return Concat("(Select BOOL_VAL from T_SFC_OPTION ", hint, " where APP_CODE=", option::kApplication,
                  " and OPTION_CODE = ", code, ")");
  };
  // Only machine downtimes: a user downtime beside one must not make this more than one row.
  const std::string downtime_code_lock = Concat(
      "(select CYCLE_STATUS_LOCK from T_SFC_DOWNTIME_CODE ", hint,
      " where DOWNTIME_CODE_ID=(select DOWNTIME_CODE_ID from T_SFC_DT_PER_MACHINE_DATA ", hint,
      " where MACHINE_DATA_ID = m.MACHINE_DATA_ID and STOP_TIME is null  and DOWNTIME_TYPE_CODE = 0))");
  const std::string lock =
      SqlIif(session, StatusIs(MachineStatus::kSetup), option_value(option::kSetupLocksCycles),
             SqlIif(session, StatusIs(MachineStatus::kTeardown), option_value(option::kTeardownLocksCycles),
                    SqlIif(session, StatusIs(MachineStatus::kDowntime), downtime_code_lock, "0")));
  return GetScalarText(session, Concat("Select ", lock, " AS CYCLE_LOCK from T_SFC_MACHINE m ", hint,
                                       " where MACHINE_ID=", machine_id)) == "1";
}

bool DoCycleStart(Session& session, const MdcLogItem& item, std::string& error) {
  return WithErrorLabel(error, [&] {
    if (IsCycleLocked(session, item.place.machine_id)) return false;
    error.clear();
    return EnsurePartRuns(session, item, error) &&
           InTransaction(session, message::kCycleStart, error, [&] { return StartCycle(session, item); });
  });
}

bool DoCycleEnd(Session& session, const MdcLogItem& item, std::string& error) {
  return WithErrorLabel(error, [&] {
    if (IsCycleLocked(session, item.place.machine_id)) return false;
    error.clear();
    return InTransaction(session, message::kCycleEnd, error, [&] { return EndCycle(session, item); });
  });
}

}  // namespace kx
