#include "machinedata/records.h"

#include <array>
#include <string>
#include <vector>

#include "database/text.h"
#include "machinedata/completion.h"
#include "machinedata/downtime_rows.h"
#include "machinedata/segments.h"
#include "session/insert_row.h"
#include "session/sql_dialect.h"
#include "session/trace.h"

namespace kx {
namespace {

constexpr std::array kPlaceColumns = {"DEPT_ID", "LOCATION_ID", "GROUP_ID", "MACHINE_ID"};

constexpr std::array kSegments = {kSetupSegment, kTeardownSegment, kCycleSegment, kIdleSegment};

constexpr std::array kCountColumns = {"FINISHED_CYCLES", "UNFINISHED_CYCLES", "GOOD_COUNT", "SCRAPPED_COUNT"};

struct ContextGroup {
  ChangedItem item;
  std::array<std::string_view, 4> columns;  // the unused ones empty
};

constexpr std::array<ContextGroup, 5> kContextGroups = {{
    {ChangedItem::kShift, {"SHIFT_ID", "CHART_DATE", "SHIFT_END"}},
    {ChangedItem::kJob, {"JOB_ID", "JOB_NUMBER", "JOB_DATA_START_ID"}},
    {ChangedItem::kPart, {"PART_TYPE_ID", "PART_ID", "PART_NUMBER", "PART_DATA_START_ID"}},
    {ChangedItem::kUser, {"USER_ID", "USER_NAME", "LOGON_DATA_START_ID"}},
    {ChangedItem::kOperation, {"OP_ID", "OP_NUMBER", "OP_DATA_START_ID"}},
}};

std::vector<ColumnValue> NextRecord(const Recordset& old, ChangedItem changed_item, DateTime start_time) {
  std::vector<ColumnValue> next;
  next.push_back({"START_TIME", start_time});
  next.push_back({"STOP_TIME", Value()});
  for (const std::string_view column : kPlaceColumns) next.push_back({column, old.Fields(column)});
  next.push_back({"STATUS_CODE", static_cast<std::int16_t>(RecordStatus::kOpen)});
  next.push_back({"IS_MANUAL", 0});
  for (const Segment& segment : kSegments) {
    next.push_back({segment.start, IsRunning(old, segment) ? Value(start_time) : Value()});
  }
  for (const Segment& segment : kSegments) next.push_back({segment.total, 0});
  for (const std::string_view column : kCountColumns) next.push_back({column, 0});
  for (const ContextGroup& group : kContextGroups) {
    for (const std::string_view column : group.columns) {
      if (column.empty()) continue;
      next.push_back({column, group.item == changed_item ? Value() : old.Fields(column)});
    }
  }
  return next;
}

void CarryOverDowntimes(Session& session, std::int32_t old_machine_data_id, std::int32_t new_machine_data_id,
                        DateTime start_time) {
  Recordset running = OpenRunningDowntimes(session, old_machine_data_id, std::nullopt);
  for (; !running.IsEof(); running.MoveNext()) {
    std::vector<ColumnValue> copy;
    for (const char* column : {"DOWNTIME_CODE_ID", "DT_NUMBER", "DT_DATA_START_ID", "DOWNTIME_TYPE_CODE"}) {
      copy.push_back({column, running.Fields(column)});
    }
    AddDowntime(session, new_machine_data_id, start_time, copy);
  }
}

}  // namespace

Recordset OpenMachineData(Session& session, std::int32_t machine_data_id) {
  return OpenRecordset(session, Concat("select * from T_SFC_MACHINE_DATA ", NoLockHint(session),
                                       " where MACHINE_DATA_ID = ", machine_data_id));
}

Recordset OpenMachineDataUnderLock(Session& session, std::int32_t machine_data_id) {
  return OpenRecordset(session,
                       Concat("select * from T_SFC_MACHINE_DATA  where MACHINE_DATA_ID = ", machine_data_id));
}

std::int32_t KeyOf(const Recordset& record) { return record.Fields("MACHINE_DATA_ID").ToInt32(); }

Recordset CreateNextMachineDataRecord(Session& session, const Recordset& old, ChangedItem changed_item,
                                      DateTime start_time) {
  constexpr std::string_view kTable = "T_SFC_MACHINE_DATA";
  WriteTrace(session, "CreateNextMachineDataRecord");
  std::vector<ColumnValue> next = NextRecord(old, changed_item, start_time);
  const std::int32_t machine_data_id = InsertRow(session, kTable, next);
  CarryOverDowntimes(session, KeyOf(old), machine_data_id, start_time);
  next.push_back({"MACHINE_DATA_ID", machine_data_id});
  std::vector<std::string> names;
  Rows row;
  for (ColumnValue& column : next) {
    names.emplace_back(column.column);
    row.values.push_back(std::move(column.value));
  }
  row.columns = std::move(names);
  return {session.connection, kTable, std::move(row)};
}

void SetCurrentMachineDataID(Session& session, std::int32_t machine_id, std::int32_t machine_data_id) {
  ExecuteSql(session, Concat("update T_SFC_MACHINE  set MACHINE_DATA_ID = ", machine_data_id,
                             " where MACHINE_ID = ", machine_id));
}

std::int32_t ReplaceRecord(Session& session, std::int32_t machine_id, std::int32_t old_machine_data_id,
                           ChangedItem changed_item, DateTime time, const ContextWriter& write_context) {
  ExecuteSql(session, Concat("update T_SFC_MACHINE_DATA  set STOP_TIME = ", SqlDateLiteral(session, time),
                             " where MACHINE_DATA_ID = ", old_machine_data_id));
  Recordset old = OpenMachineDataUnderLock(session, old_machine_data_id);
  Recordset next = CreateNextMachineDataRecord(session, old, changed_item, time);
  const std::int32_t new_machine_data_id = KeyOf(next);
  if (write_context) {
    write_context(next, new_machine_data_id);
    next.Update();
  }
  PrepareMachineDataRecordForCompletion(session, old, time);
  SetCurrentMachineDataID(session, machine_id, new_machine_data_id);
  CompleteMachineDataRecord(session, old);
  return new_machine_data_id;
}

}  // namespace kx
