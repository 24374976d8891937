#pragma once

#include <cstdint>
#include <functional>

#include "session/session.h"

namespace kx {

// What STATUS_CODE of a machine data record says.
enum class RecordStatus : std::int16_t { kOpen = 0, kClosed = 1, kComplete = 2 };

// The group of context columns that a new record does not take over from its predecessor.
enum class ChangedItem : std::int32_t {
  kNone = -1,
  kShift = 0,
  kJob = 1,
  kPart = 2,
  kUser = 3,
  kOperation = 4
};

// The record with this key, for reading and changing.
Recordset OpenMachineData(Session& session, std::int32_t machine_data_id);

// The same, read under lock: for a record whose values end up in a new row.
Recordset OpenMachineDataUnderLock(Session& session, std::int32_t machine_data_id);

// The key of the record that a recordset stands on.
std::int32_t KeyOf(const Recordset& record);

// Writes the successor of a record: started at `start_time`, its context taken over but for the changed
// group, its totals 0, its running segments started anew and its open downtimes copied. The old record and
// the machine stay as they are. Returns the new row with what was written into it.
Recordset CreateNextMachineDataRecord(Session& session, const Recordset& old, ChangedItem changed_item,
                                      DateTime start_time);

// Makes a record the machine's current one.
void SetCurrentMachineDataID(Session& session, std::int32_t machine_id, std::int32_t machine_data_id);

// Writes the changed group of a new record. The record is updated afterwards.
using ContextWriter = std::function<void(Recordset& record, std::int32_t machine_data_id)>;

// Replaces a machine's current record as of `time` in the standard order: stop the old one, create the next,
// write what changed (nothing without a writer), prepare the old one, make the new one current, complete the
// old one. Returns the new key.
std::int32_t ReplaceRecord(Session& session, std::int32_t machine_id, std::int32_t old_machine_data_id,
                           ChangedItem changed_item, DateTime time, const ContextWriter& write_context);

}  // namespace kx
