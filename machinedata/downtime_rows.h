#pragma once

#include <cstdint>
#include <optional>

#include "machinedata/lookups.h"
#include "session/session.h"

namespace kx {

// The downtime rows of a record that have no STOP_TIME, of one type or of any.
Recordset OpenRunningDowntimes(Session& session, std::int32_t machine_data_id,
                               std::optional<DowntimeType> type);

// Writes the stop and the duration, in hours, of the first or of all those rows.
void StopFirstDowntime(Session& session, std::int32_t machine_data_id, DowntimeType type, DateTime stop_time);
void StopAllDowntimes(Session& session, std::int32_t machine_data_id, std::optional<DowntimeType> type,
                      DateTime stop_time);

}  // namespace kx
