#pragma once

#include <cstdint>
#include <optional>

#include "session/session.h"

namespace kx {

// What DOWNTIME_TYPE_CODE of a downtime row says.
enum class DowntimeType : std::int32_t { kMachine = 0, kUser = 1 };

// A recordset for new downtime rows, and in it a new row of a record that runs from `start_time` on. The rest
// of the row is the caller's, and its Update.
Recordset OpenNewDowntimes(Session& session);
void BeginDowntime(Recordset& downtimes, std::int32_t machine_data_id, DateTime start_time);

// The downtime rows of a record that have no STOP_TIME, of one type or of any.
Recordset OpenRunningDowntimes(Session& session, std::int32_t machine_data_id,
                               std::optional<DowntimeType> type);

// Writes the stop and the duration, in hours, of the first or of all those rows.
void StopFirstDowntime(Session& session, std::int32_t machine_data_id, DowntimeType type, DateTime stop_time);
void StopAllDowntimes(Session& session, std::int32_t machine_data_id, std::optional<DowntimeType> type,
                      DateTime stop_time);

}  // namespace kx
