#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "session/session.h"

namespace kx {

// What DOWNTIME_TYPE_CODE of a downtime row says.
enum class DowntimeType : std::int32_t { kMachine = 0, kUser = 1 };

inline constexpr std::string_view kDowntimeTable = "T_SFC_DT_PER_MACHINE_DATA";

// Adds a row for a downtime of a record that runs from `start_time` on, with the caller's columns besides.
// Returns its key.
std::int64_t AddDowntime(Session& session, std::int32_t machine_data_id, DateTime start_time,
                         std::span<const ColumnValue> columns);

// The downtime rows of a record that have no STOP_TIME, of one type or of any.
Recordset OpenRunningDowntimes(Session& session, std::int32_t machine_data_id,
                               std::optional<DowntimeType> type);

// Writes the stop and the duration, in hours, of the first or of all those rows.
void StopFirstDowntime(Session& session, std::int32_t machine_data_id, DowntimeType type, DateTime stop_time);
void StopAllDowntimes(Session& session, std::int32_t machine_data_id, std::optional<DowntimeType> type,
                      DateTime stop_time);

}  // namespace kx
