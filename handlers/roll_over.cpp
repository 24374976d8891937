#include "handlers/roll_over.h"

#include "machinedata/completion.h"
#include "machinedata/segments.h"

namespace kx {

std::int32_t RollOverRecord(Session& session, std::int32_t machine_id, std::int32_t machine_data_id,
                            ChangedItem changed_item, DateTime time) {
  Recordset record = OpenMachineData(session, machine_data_id);
  CloseUnfinishedCycle(record, time);
  if (IsRunning(record, kSetupSegment)) record.Set(kSetupSegment.total, Value());
  CloseSegment(record, kTeardownSegment, time);
  CloseSegment(record, kIdleSegment, time);
  record.Set("STOP_TIME", time);
  record.Update();
  const std::int32_t next = CreateNextMachineDataRecord(session, machine_data_id, changed_item, time);
  SetCurrentMachineDataID(session, machine_id, next);
  CompleteMachineDataRecord(session, machine_data_id);
  return next;
}

}  // namespace kx
