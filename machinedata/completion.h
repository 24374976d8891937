#pragma once

#include <cstdint>

#include "session/session.h"

namespace kx {

// Records are given by a recordset on all columns of their row, as it is in the database.

// Folds the running segments and open downtimes of a record into its totals as of `stop_time` and marks it
// closed. CYCLE_TIME counts minutes, the other totals and a downtime's DURATION hours.
void PrepareMachineDataRecordForCompletion(Session& session, Recordset& record, DateTime stop_time);

// Whether a record is consistent: no group started under a number that was never resolved, no user downtime,
// no production without a part.
bool ValidateMachineDataRecord(Session& session, const Recordset& record);

// Marks a consistent record complete; leaves an inconsistent one as it is.
void CompleteMachineDataRecord(Session& session, const Recordset& record);

}  // namespace kx
