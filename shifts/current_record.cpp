#include "shifts/current_record.h"

#include "database/database_error.h"
#include "database/numeric_text.h"
#include "database/text.h"
#include "machinedata/records.h"
#include "session/messages.h"
#include "session/sql_dialect.h"
#include "session/trace.h"
#include "session/transaction.h"
#include "shifts/next_shift_start.h"
#include "shifts/shift_info.h"

namespace kx {
namespace {

// What the calendar needs to know of a machine's current record.
struct CurrentRecord {
  std::int32_t machine_data_id;
  MachineStatus machine_status;
  DateTime start_time;
  DateTime chart_date;
  std::string user_name;
  DateTime shift_end;  // kNoShiftEnd for a record without a shift
};

CurrentRecord ReadCurrentRecord(Session& session, std::int32_t machine_id) {
  const std::string_view hint = NoLockHint(session);
  const Recordset row = OpenRecordset(
      session,
      Concat(
          "select md.MACHINE_DATA_ID,START_TIME,CHART_DATE,USER_NAME,SHIFT_ID,SHIFT_END,m.STATUS_CODE from "
          "T_SFC_MACHINE_DATA md",
          hint, " inner join T_SFC_MACHINE m ", hint,
          " on md.MACHINE_DATA_ID=m.MACHINE_DATA_ID  where m.MACHINE_ID = ", machine_id));
  WriteTrace(session, "HandleExpiredShifts-A");
  const DateTime start_time = row.Fields("START_TIME").ToDateTime();
  return {row.Fields("MACHINE_DATA_ID").ToInt32(),
          static_cast<MachineStatus>(row.Fields("STATUS_CODE").ToInt32Or(-1)),
          start_time,
          row.Fields("CHART_DATE").ToDateTimeOr(start_time).Date(),
          row.Fields("USER_NAME").ToTextOr(""),
          row.Fields("SHIFT_ID").IsNull() ? kNoShiftEnd : row.Fields("SHIFT_END").ToDateTime()};
}

// When a record's shift ends and what begins then.
struct Expiry {
  DateTime moment;
  ShiftInfo next;
};

[[noreturn]] void ThrowCalendarStands(std::int32_t machine_id, DateTime at) {
  throw DatabaseError(
      Concat("The shift calendar of machine ", machine_id, " does not advance at ", at.ToText()));
}

// Nothing when the record's shift has not ended before `moment`. A calendar that stands still is an error:
// steps only ever lead on in time.
std::optional<Expiry> FindExpiry(Session& session, std::int32_t machine_id, const CurrentRecord& record,
                                 DateTime moment) {
  const bool no_shift = record.shift_end == kNoShiftEnd;
  Expiry expiry;
  expiry.moment = no_shift ? GetNextShiftStart(session, record.start_time, machine_id) : record.shift_end;
  if (no_shift && expiry.moment <= record.start_time) ThrowCalendarStands(machine_id, expiry.moment);
  if (expiry.moment >= moment) return std::nullopt;
  expiry.next = DetermineChartDateAndShiftInfo(session, expiry.moment, record.user_name, machine_id);
  if (no_shift && expiry.next.chart_date != record.chart_date) {
    // A record without a shift ends with its chart day at the latest.
    expiry.next = ShiftInfo{.chart_date = record.chart_date.AddDays(1)};
    expiry.moment = expiry.next.chart_date;
  }
  if (expiry.next.shift_id != kNoShift && expiry.next.end <= expiry.moment)
    ThrowCalendarStands(machine_id, expiry.moment);
  return expiry;
}

// Replaces the record at the end of its shift and describes the new one.
CurrentRecord CloseExpired(Session& session, std::int32_t machine_id, const CurrentRecord& record,
                           const Expiry& expiry) {
  WriteTrace(session, "HandleExpiredShifts-Ca");
  WriteTrace(session, "HandleExpiredShifts-Cb");
  CurrentRecord current;
  current.machine_data_id = ReplaceRecord(session, machine_id, record.machine_data_id, ChangedItem::kShift,
                                          expiry.moment, [&](Recordset& next, std::int32_t) {
                                            SetShift(next, expiry.next.shift_id, expiry.next.end);
                                            next.Set("CHART_DATE", expiry.next.chart_date);
                                            current.user_name = next.Fields("USER_NAME").ToTextOr("");
                                          });
  current.machine_status = record.machine_status;
  current.start_time = expiry.moment;
  current.chart_date = expiry.next.chart_date;
  current.shift_end = expiry.next.end;
  return current;
}

// The machine's current record after its expired shifts were closed; nothing when a transaction could not be
// begun or committed.
std::optional<CurrentRecord> CloseExpiredShifts(Session& session, std::int32_t machine_id, DateTime moment,
                                                bool use_transactions) {
  WriteTrace(session, Concat("HandleExpiredShifts(", machine_id, ",", moment.ToText(),
                             "):", session.trace_file_open ? -1 : 0));
  TransactionScope transaction(session);
  if (use_transactions && !transaction.Begin()) return std::nullopt;
  CurrentRecord record = ReadCurrentRecord(session, machine_id);
  // Ends: after the first step each leads later in time than the one before it, and none begins at `moment`.
  for (;;) {
    WriteTrace(session, "HandleExpiredShifts-B");
    const auto expiry = FindExpiry(session, machine_id, record, moment);
    if (!expiry) break;
    record = CloseExpired(session, machine_id, record, *expiry);
    if (use_transactions && !(transaction.Commit() && transaction.Begin())) return std::nullopt;
  }
  if (use_transactions && !transaction.Commit()) return std::nullopt;
  WriteTrace(session, "HandleExpiredShifts-Done");
  return record;
}

}  // namespace

bool HandleExpiredShifts(Session& session, std::int32_t machine_id, DateTime moment, bool use_transactions) {
  return CloseExpiredShifts(session, machine_id, moment, use_transactions).has_value();
}

CurrentMachine GetCurrentMachine(Session& session, std::int32_t machine_id, DateTime time) {
  const CurrentRecord record = CloseExpiredShifts(session, machine_id, time, false).value();
  return {record.machine_data_id, record.machine_status};
}

std::int32_t GetCurrentMachineDataID(Session& session, std::int32_t machine_id, DateTime time) {
  return GetCurrentMachine(session, machine_id, time).machine_data_id;
}

ShiftInfo GetShiftAt(Session& session, std::int32_t machine_id, DateTime moment) {
  ShiftInfo shift = DetermineChartDateAndShiftInfo(session, moment, "", machine_id);
  if (shift.shift_id != kNoShift) return shift;
  CurrentRecord record{};
  record.start_time = moment;
  record.chart_date = shift.chart_date;
  record.shift_end = kNoShiftEnd;
  shift.start = moment;
  shift.end = FindExpiry(session, machine_id, record, DateTime(9999, 12, 31)).value().moment;
  return shift;
}

bool RefreshMachineStatus(Session& session, std::string& error) {
  const DateTime now = GetServerTime(session);
  Recordset machines =
      OpenRecordset(session, Concat("select MACHINE_ID from T_SFC_MACHINE ", NoLockHint(session)));
  for (; !machines.IsEof(); machines.MoveNext()) {
    if (!HandleExpiredShifts(session, machines.Fields("MACHINE_ID").ToInt32(), now, true)) {
      error = FormatResourceMessage(message::kRefreshFailed);
      return false;
    }
  }
  return true;
}

}  // namespace kx
