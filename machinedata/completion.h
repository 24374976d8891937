#pragma once

#include <cstdint>

#include "session/session.h"

namespace kx {

// Folds the running segments and open downtimes of a record into its totals as of `stop_time` and marks it
// closed. CYCLE_TIME counts minutes, the other totals and a downtime's DURATION hours.
void PrepareMachineDataRecordForCompletion(Session& session, std::int32_t machine_data_id,
                                           DateTime stop_time);

// Whether a record is consistent: no group started under a number that was never resolved, no user downtime,
// no production without a part.
bool ValidateMachineDataRecord(Session& session, std::int32_t machine_data_id);

// Marks a consistent record complete; leaves an inconsistent one as it is.
void CompleteMachineDataRecord(Session& session, std::int32_t machine_data_id);

}  // namespace kx
