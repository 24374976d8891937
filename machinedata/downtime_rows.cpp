#include "machinedata/downtime_rows.h"

#include <string>
#include <vector>

#include "database/text.h"
#include "machinedata/segments.h"
#include "session/sql_dialect.h"

namespace kx {
namespace {

void StopCurrentRow(Recordset& downtime, DateTime stop_time) {
  const DateTime start_time = downtime.Fields("START_TIME").ToDateTime();
  downtime.Set("STOP_TIME", stop_time);
  downtime.Set("DURATION", Elapsed(start_time, stop_time, kSecondsPerHour));
  downtime.Update();
}

}  // namespace

std::int64_t AddDowntime(Session& session, std::int32_t machine_data_id, DateTime start_time,
                         std::span<const ColumnValue> columns) {
  std::vector<ColumnValue> row = {{"MACHINE_DATA_ID", machine_data_id},
                                  {"START_TIME", start_time},
                                  {"STOP_TIME", Value()},
                                  {"DURATION", 0}};
  row.insert(row.end(), columns.begin(), columns.end());
  return session.connection.InsertRow(kDowntimeTable, row);
}

Recordset OpenRunningDowntimes(Session& session, std::int32_t machine_data_id,
                               std::optional<DowntimeType> type) {
  std::string sql = Concat("select * from ", kDowntimeTable, " ", NoLockHint(session),
                           " where MACHINE_DATA_ID = ", machine_data_id, " and STOP_TIME IS NULL");
  if (type) Append(sql, "  and DOWNTIME_TYPE_CODE = ", static_cast<std::int32_t>(*type));
  return OpenRecordset(session, sql);
}

void StopFirstDowntime(Session& session, std::int32_t machine_data_id, DowntimeType type,
                       DateTime stop_time) {
  Recordset downtimes = OpenRunningDowntimes(session, machine_data_id, type);
  if (downtimes.RecordCount() > 0) StopCurrentRow(downtimes, stop_time);
}

void StopAllDowntimes(Session& session, std::int32_t machine_data_id, std::optional<DowntimeType> type,
                      DateTime stop_time) {
  Recordset downtimes = OpenRunningDowntimes(session, machine_data_id, type);
  for (; !downtimes.IsEof(); downtimes.MoveNext()) StopCurrentRow(downtimes, stop_time);
}

}  // namespace kx
