#include "handlers/part_handlers.h"

#include "database/text.h"
#include "handlers/frame.h"
#include "machinedata/lookups.h"
#include "machinedata/machine_status.h"
#include "machinedata/records.h"
#include "machinedata/segments.h"
#include "session/messages.h"
#include "session/sql_dialect.h"
#include "shifts/current_record.h"

namespace kx {
namespace {

// A part change cuts a running cycle short. False: the cycle's event could not be stopped.
bool CutCycle(Session& session, const MdcLogItem& item, std::int32_t machine_data_id) {
  Recordset record = OpenMachineData(session, machine_data_id);
  if (!IsRunning(record, kCycleSegment)) return true;
  CloseUnfinishedCycle(record, item.time_stamp);
  BeginIdle(record, item.time_stamp);
  record.Update();
  if (!StopEvents(session, item, {command_type::kCycle})) return false;
  SetMachineStatus(session, item.place.machine_id, MachineStatus::kIdle, item.time_stamp);
  return true;
}

void WritePart(Session& session, Recordset& record, std::int32_t machine_data_id,
               std::string_view part_number) {
  const PartKey part = GetPartID(session, part_number);
  if (part.part_id != -1) {
    record.Set("PART_ID", part.part_id);
    record.Set("PART_TYPE_ID", part.part_type_id == -1 ? Value() : Value(part.part_type_id));
  } else {
    record.Set("PART_NUMBER", part_number.empty() ? Value() : Value(part_number));
    record.Set("PART_DATA_START_ID", machine_data_id);
  }
}

}  // namespace

bool DoPartStart(Session& session, const MdcLogItem& item, std::string_view part_number, std::string& error,
                 bool by_job) {
  return RunHandler(session, message::kPartStart, error, [&] {
    const std::int32_t machine_id = item.place.machine_id;
    const std::int32_t current = GetCurrentMachineDataID(session, machine_id, item.time_stamp);
    if (!StopEvents(session, item, {command_type::kPart})) return Outcome::kLocked;
    StartEvent(session, item, command_type::kPart, part_number);
    if (!by_job && !CutCycle(session, item, current)) return Outcome::kLocked;
    ReplaceRecord(
        session, machine_id, current, ChangedItem::kPart, item.time_stamp,
        [&](Recordset& next, std::int32_t next_id) { WritePart(session, next, next_id, part_number); });
    return Outcome::kDone;
  });
}

bool DoPartEnd(Session& session, const MdcLogItem& item, std::string& error) {
  return RunHandler(session, message::kPartEnd, error, [&] {
    const std::int32_t machine_id = item.place.machine_id;
    const std::int32_t current = GetCurrentMachineDataID(session, machine_id, item.time_stamp);
    if (!StopEvents(session, item, {command_type::kPart})) return Outcome::kLocked;
    if (!CutCycle(session, item, current)) return Outcome::kLocked;
    ReplaceRecord(session, machine_id, current, ChangedItem::kPart, item.time_stamp, nullptr);
    return Outcome::kDone;
  });
}

bool EnsurePartRuns(Session& session, const MdcLogItem& item, std::string& error) {
  const std::string_view hint = NoLockHint(session);
  const Recordset record = OpenRecordset(
      session, Concat("select T_SFC_MACHINE_DATA.PART_DATA_START_ID,  T_SFC_MACHINE_DATA.PART_ID  from "
                      "T_SFC_MACHINE_DATA",
                      hint, ", T_SFC_MACHINE", hint,
                      "  where T_SFC_MACHINE.MACHINE_DATA_ID = T_SFC_MACHINE_DATA.MACHINE_DATA_ID  and "
                      "T_SFC_MACHINE.MACHINE_ID = ",
                      item.place.machine_id));
  if (!record.Fields("PART_DATA_START_ID").IsNull() || !record.Fields("PART_ID").IsNull()) return true;
  return DoPartStart(session, item, "", error);
}

}  // namespace kx
