#include "machinedata/completion.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "database/text.h"
#include "machinedata/downtime_rows.h"
#include "machinedata/records.h"
#include "machinedata/segments.h"
#include "session/sql_dialect.h"
#include "session/trace.h"

namespace kx {
namespace {

// A thing was named that its table did not know, and nobody has resolved the name since.
bool IsUnresolved(const Recordset& row, std::string_view id, std::string_view data_start_id) {
  return row.Fields(id).IsNull() && !row.Fields(data_start_id).IsNull();
}

bool AnyUnresolved(Recordset& rows, std::string_view id, std::string_view data_start_id) {
  for (; !rows.IsEof(); rows.MoveNext()) {
    if (IsUnresolved(rows, id, data_start_id)) return true;
  }
  return false;
}

bool ProducedWithoutPart(const Recordset& record) {
  constexpr std::array kProduction = {"CYCLE_TIME", "GOOD_COUNT", "SCRAPPED_COUNT", "FINISHED_CYCLES",
                                      "UNFINISHED_CYCLES"};
  return std::ranges::any_of(kProduction,
                             [&](const char* column) { return record.Fields(column).ToDoubleOr(0) > 0; });
}

Recordset OpenChildren(Session& session, std::string_view table, std::int32_t machine_data_id) {
  return OpenRecordset(session, Concat("select * from ", table, " ", NoLockHint(session),
                                       " where MACHINE_DATA_ID = ", machine_data_id));
}

bool AnyUserDowntime(Recordset& downtimes) {
  const bool any = downtimes.Find("DOWNTIME_TYPE_CODE", static_cast<std::int32_t>(DowntimeType::kUser));
  if (!downtimes.IsBof()) downtimes.MoveFirst();
  return any;
}

}  // namespace

void PrepareMachineDataRecordForCompletion(Session& session, Recordset& record, DateTime stop_time) {
  WriteTrace(session, "PrepareMachineDataRecordForCompletion");
  for (const Segment& segment : {kCycleSegment, kSetupSegment, kTeardownSegment, kIdleSegment}) {
    CloseSegment(record, segment, stop_time);
  }
  record.Set("STATUS_CODE", static_cast<std::int16_t>(RecordStatus::kClosed));
  record.Update();
  StopAllDowntimes(session, KeyOf(record), std::nullopt, stop_time);
}

bool ValidateMachineDataRecord(Session& session, const Recordset& record) {
  WriteTrace(session, "ValidateMachineDataRecord");
  if (IsUnresolved(record, "JOB_ID", "JOB_DATA_START_ID")) return false;
  if (IsUnresolved(record, "OP_ID", "OP_DATA_START_ID")) return false;
  if (IsUnresolved(record, "USER_ID", "LOGON_DATA_START_ID")) return false;
  Recordset downtimes = OpenChildren(session, kDowntimeTable, KeyOf(record));
  if (AnyUserDowntime(downtimes)) return false;
  if (IsUnresolved(record, "PART_ID", "PART_DATA_START_ID")) return false;
  if (record.Fields("PART_ID").IsNull() && ProducedWithoutPart(record)) return false;
  if (AnyUnresolved(downtimes, "DOWNTIME_CODE_ID", "DT_DATA_START_ID")) return false;
  Recordset scrap = OpenChildren(session, "T_SFC_SCRAP_PER_MACHINE_DATA", KeyOf(record));
  return !AnyUnresolved(scrap, "SCRAP_CODE_ID", "SCRAP_DATA_START_ID");
}

void CompleteMachineDataRecord(Session& session, const Recordset& record) {
  if (!ValidateMachineDataRecord(session, record)) return;
  ExecuteSql(session, Concat("update T_SFC_MACHINE_DATA  set STATUS_CODE = ",
                             static_cast<std::int16_t>(RecordStatus::kComplete),
                             " where MACHINE_DATA_ID = ", KeyOf(record)));
}

}  // namespace kx
