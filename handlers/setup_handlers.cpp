#include "handlers/setup_handlers.h"

#include "handlers/frame.h"
#include "handlers/roll_over.h"
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

// In what setup and teardown differ.
struct Preparation {
  std::int32_t command_type;
  Segment own;
  Segment other;
  MachineStatus status;
  std::int32_t start_message;
  std::int32_t end_message;
};

constexpr Preparation kSetup{command_type::kSetup,  kSetupSegment,        kTeardownSegment,
                             MachineStatus::kSetup, message::kSetupStart, message::kSetupEnd};
constexpr Preparation kTeardown{command_type::kTeardown,  kTeardownSegment,        kSetupSegment,
                                MachineStatus::kTeardown, message::kTeardownStart, message::kTeardownEnd};

bool DoStart(Session& session, const MdcLogItem& item, std::string& error, const Preparation& kind) {
  return RunHandler(session, kind.start_message, error, [&] {
    const std::int32_t machine_id = item.place.machine_id;
    const DateTime time = item.time_stamp;
    const std::int32_t current = GetCurrentMachineDataID(session, machine_id, time);
    if (!StopEvents(session, item,
                    {command_type::kSetup, command_type::kMachineDowntime, command_type::kUserDowntime,
                     command_type::kCycle, command_type::kTeardown})) {
      return Outcome::kLocked;
    }
    StartEvent(session, item, kind.command_type, "");
    StopAllDowntimes(session, current, std::nullopt, time);

    Recordset record = OpenMachineData(session, current);
    const ShiftChange shift = GetChangedShiftID(session, record, time, machine_id);
    const bool new_shift = shift.shift_id > 0;
    if (new_shift) {
      record =
          OpenMachineData(session, RollOverRecord(session, machine_id, record, ChangedItem::kShift, time));
    }
    if (shift.shift_id != 0) SetShift(record, shift.shift_id, shift.end);
    if (new_shift) record.Set("CHART_DATE", time.Date());
    AddElapsed(record, kind.own, time);
    CloseSegment(record, kind.other, time);
    CloseSegment(record, kIdleSegment, time);
    CloseUnfinishedCycle(record, time);
    record.Set(kind.own.start, time);
    record.Update();
    SetMachineStatus(session, machine_id, kind.status, time);
    return Outcome::kDone;
  });
}

bool DoEnd(Session& session, const MdcLogItem& item, std::string& error, const Preparation& kind) {
  return RunHandler(session, kind.end_message, error, [&] {
    const std::int32_t machine_id = item.place.machine_id;
    const CurrentMachine current = GetCurrentMachine(session, machine_id, item.time_stamp);
    if (current.status != kind.status) return Outcome::kNotApplicable;
    if (!StopEvents(session, item, {kind.command_type})) return Outcome::kLocked;
    Recordset record = OpenMachineData(session, current.machine_data_id);
    CloseSegment(record, kind.own, item.time_stamp);
    BeginIdle(record, item.time_stamp);
    record.Update();
    SetMachineStatus(session, machine_id, MachineStatus::kIdle, item.time_stamp);
    return Outcome::kDone;
  });
}

}  // namespace

bool DoSetupStart(Session& session, const MdcLogItem& item, std::string& error) {
  return DoStart(session, item, error, kSetup);
}
bool DoSetupEnd(Session& session, const MdcLogItem& item, std::string& error) {
  return DoEnd(session, item, error, kSetup);
}
bool DoTeardownStart(Session& session, const MdcLogItem& item, std::string& error) {
  return DoStart(session, item, error, kTeardown);
}
bool DoTeardownEnd(Session& session, const MdcLogItem& item, std::string& error) {
  return DoEnd(session, item, error, kTeardown);
}

}  // namespace kx
