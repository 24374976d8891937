#include "handlers/downtime_handlers.h"

#include "handlers/frame.h"
#include "machinedata/downtime_rows.h"
#include "machinedata/lookups.h"
#include "machinedata/machine_status.h"
#include "machinedata/records.h"
#include "machinedata/segments.h"
#include "session/messages.h"
#include "shifts/current_record.h"
#include "shifts/shift_info.h"

namespace kx {
namespace {

// In what machine and user downtimes differ.
struct Downtime {
  std::int32_t command_type;
  DowntimeType type;
  bool is_machine_status;
  std::int32_t start_message;
  std::int32_t end_message;
};

constexpr Downtime kMachineDowntime{command_type::kMachineDowntime, DowntimeType::kMachine, true,
                                    message::kMachineDowntimeStart, message::kMachineDowntimeEnd};
constexpr Downtime kUserDowntime{command_type::kUserDowntime, DowntimeType::kUser, false,
                                 message::kUserDowntimeStart, message::kUserDowntimeEnd};

// Stops the events that a start of this downtime ends.
bool StopEventsBefore(Session& session, const MdcLogItem& item, const Downtime& kind) {
  if (!kind.is_machine_status) return StopEvents(session, item, {command_type::kUserDowntime});
  return StopEvents(
      session, item,
      {command_type::kSetup, command_type::kMachineDowntime, command_type::kCycle, command_type::kTeardown});
}

void AddDowntimeRow(Session& session, const MdcLogItem& item, std::int32_t machine_data_id,
                    DowntimeType type) {
  const std::int32_t code_id = GetDowntimeCodeID(session, item.param, type);
  const bool known = code_id != -1;
  const ColumnValue columns[] = {
      {"DOWNTIME_TYPE_CODE", static_cast<std::int32_t>(type)},
      {"DOWNTIME_CODE_ID", known ? Value(code_id) : Value()},
      {"DT_NUMBER", known || item.param.empty() ? Value() : Value(item.param)},
  };
  const std::int64_t row_id = AddDowntime(session, machine_data_id, item.time_stamp, columns);
  if (known) return;
  const ColumnValue own_key[] = {{"DT_DATA_START_ID", row_id}};
  session.connection.UpdateRow(kDowntimeTable, own_key, row_id);
}

bool DoStart(Session& session, const MdcLogItem& item, std::string& error, const Downtime& kind) {
  return RunHandler(session, kind.start_message, error, [&] {
    const std::int32_t machine_id = item.place.machine_id;
    const DateTime time = item.time_stamp;
    std::int32_t current = GetCurrentMachineDataID(session, machine_id, time);
    if (!StopEventsBefore(session, item, kind)) return Outcome::kLocked;
    StartEvent(session, item, kind.command_type, item.param);
    StopAllDowntimes(session, current, kind.type, time);

    Recordset record = OpenMachineData(session, current);
    CloseSegment(record, kSetupSegment, time);
    CloseUnfinishedCycle(record, time);
    CloseSegment(record, kTeardownSegment, time);
    CloseSegment(record, kIdleSegment, time);
    record.Update();

    const ShiftChange shift = GetChangedShiftID(session, record, time, machine_id);
    if (shift.shift_id > 0) {
      current = ReplaceRecord(session, machine_id, current, ChangedItem::kShift, time,
                              [&](Recordset& next, std::int32_t) {
                                SetShift(next, shift.shift_id, shift.end);
                                next.Set("CHART_DATE", time.Date());
                              });
    }
    AddDowntimeRow(session, item, current, kind.type);
    if (kind.is_machine_status) SetMachineStatus(session, machine_id, MachineStatus::kDowntime, time);
    return Outcome::kDone;
  });
}

bool DoEnd(Session& session, const MdcLogItem& item, std::string& error, const Downtime& kind) {
  return RunHandler(session, kind.end_message, error, [&] {
    const std::int32_t machine_id = item.place.machine_id;
    const DateTime time = item.time_stamp;
    const CurrentMachine current = GetCurrentMachine(session, machine_id, time);
    if (kind.is_machine_status && current.status != MachineStatus::kDowntime) {
      return Outcome::kNotApplicable;
    }
    if (!StopEvents(session, item, {kind.command_type})) return Outcome::kLocked;
    StopFirstDowntime(session, current.machine_data_id, kind.type, time);
    if (kind.is_machine_status) {
      Recordset record = OpenMachineData(session, current.machine_data_id);
      BeginIdle(record, time);
      record.Update();
      SetMachineStatus(session, machine_id, MachineStatus::kIdle, time);
    }
    return Outcome::kDone;
  });
}

}  // namespace

bool DoMachineDowntimeStart(Session& session, const MdcLogItem& item, std::string& error) {
  return DoStart(session, item, error, kMachineDowntime);
}
bool DoMachineDowntimeEnd(Session& session, const MdcLogItem& item, std::string& error) {
  return DoEnd(session, item, error, kMachineDowntime);
}
bool DoUserDowntimeStart(Session& session, const MdcLogItem& item, std::string& error) {
  return DoStart(session, item, error, kUserDowntime);
}
bool DoUserDowntimeEnd(Session& session, const MdcLogItem& item, std::string& error) {
  return DoEnd(session, item, error, kUserDowntime);
}

}  // namespace kx
