#include "handlers/roll_over.h"

#include "machinedata/completion.h"
#include "machinedata/segments.h"

namespace kx {

std::int32_t RollOverRecord(Session& session, std::int32_t machine_id, Recordset& record,
                            ChangedItem changed_item, DateTime time) {
  CloseUnfinishedCycle(record, time);
  if (IsRunning(record, kSetupSegment)) record.Set(kSetupSegment.total, Value());
  CloseSegment(record, kTeardownSegment, time);
  CloseSegment(record, kIdleSegment, time);
  record.Set("STOP_TIME", time);
  record.Update();
  const Recordset old = OpenMachineDataUnderLock(session, KeyOf(record));
  const std::int32_t next = KeyOf(CreateNextMachineDataRecord(session, old, changed_item, time));
  SetCurrentMachineDataID(session, machine_id, next);
  CompleteMachineDataRecord(session, old);
  return next;
}

}  // namespace kx
