#include "mdclog/append.h"

#include "database/database_error.h"
#include "database/statement_text.h"
#include "database/text.h"
#include "kxdata7/text.h"
#include "machinedata/lookups.h"
#include "session/sql_dialect.h"

namespace kx {
namespace {

constexpr int kAttempts = 20;
constexpr std::int16_t kPauseBetweenAttempts = 3000;
constexpr std::int32_t kRefreshCommand = -1;

std::int32_t ReadCount(Session& session, std::string_view sql) {
  const Recordset count = OpenRecordset(session, sql);
  return count.RecordCount() == 0 ? 0 : count.Fields("CT").ToInt32();
}

bool RefreshWaits(Session& session, std::int32_t machine_id) {
  return ReadCount(session, Concat("select COUNT(MDC_LOG_ID) AS CT  from T_SFC_MDC_LOG ", NoLockHint(session),
                                   " where COMMAND_ID IS NULL  and MACHINE_ID = ", machine_id)) > 0;
}

std::string InsertStatement(const Session& session, const LogEntry& entry, DateTime time_stamp) {
  const std::string time = SqlDateLiteral(session, time_stamp);
  const std::string place =
      Concat(entry.dept_id, ",", entry.location_id, ",", entry.group_id, ",", entry.machine_id);
  if (entry.command_id == kRefreshCommand) {
    return Concat(
        "INSERT INTO T_SFC_MDC_LOG (DEPT_ID, LOCATION_ID,  GROUP_ID, MACHINE_ID, TIME_STAMP)  VALUES (",
        place, ",", time, ")");
  }
  const bool has_param = !entry.param.empty();
  const std::size_t longest = session.connection.LongestText();
  if (longest < entry.param.size() && longest < kxdata7::ToUtf16(entry.param).size()) {
    throw DatabaseError(Concat("The parameter is longer than the ", longest,
                               " characters that the database takes in every place."));
  }
  std::string sql = Concat(
      "INSERT INTO T_SFC_MDC_LOG (COMMAND_ID, DEPT_ID, LOCATION_ID,  GROUP_ID, MACHINE_ID, "
      "COMMAND_TIME_CODE, "
      "TIME_STAMP",
      has_param ? ", PARAM1" : "", ")  VALUES (", entry.command_id, ",", place, ",", entry.command_time_code,
      ",", time);
  if (has_param) Append(sql, ",", Quoted(entry.param));
  return sql += ")";
}

}  // namespace

bool AppendItemToMDCLog(Session& session, const LogEntry& entry, std::string& error) {
  try {
    const DateTime time_stamp = GetServerTime(session);
    error.clear();
    if (entry.command_id == kRefreshCommand && RefreshWaits(session, entry.machine_id)) return true;
    const std::string sql = InsertStatement(session, entry, time_stamp);
    for (int attempt = 1; attempt <= kAttempts; ++attempt) {
      if (attempt > 1) PauseMilliseconds(session, kPauseBetweenAttempts);
      const Attempt outcome = ExecuteSqlInTransaction(session, sql, error);
      if (outcome != Attempt::kFailed) return outcome == Attempt::kDone;
    }
    return false;
  } catch (const DatabaseError& failure) {
    // What can never be a statement has failed as after the last attempt.
    error = failure.category() == ErrorCategory::kNoStatement ? "" : failure.description();
    return false;
  }
}

bool AppendItemToMDCLogDNC(Session& session, LogEntry numbers, std::string& error) {
  numbers.dept_id = GetDeptIdByVelkarisId(session, numbers.dept_id);
  numbers.location_id = GetLocationIdByVelkarisId(session, numbers.location_id);
  numbers.group_id = GetGroupIdByVelkarisId(session, numbers.group_id);
  numbers.machine_id = GetMachineIdByVelkarisId(session, numbers.machine_id);
  numbers.command_id = GetCommandIdByVelkarisId(session, numbers.command_id);
  return AppendItemToMDCLog(session, numbers, error);
}

std::int32_t GetMDCLogCount(Session& session) {
  RequireKnownDialect(session);
  return ReadCount(session,
                   Concat("select COUNT(MDC_LOG_ID) AS CT from T_SFC_MDC_LOG ", NoLockHint(session), " "));
}

}  // namespace kx
