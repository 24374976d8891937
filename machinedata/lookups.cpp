#include "machinedata/lookups.h"

#include "database/statement_text.h"
#include "database/text.h"
#include "machinedata/downtime_rows.h"
#include "session/sql_dialect.h"

namespace kx {
namespace {

// "select <columns> from <table> <hint> where <column> = " with the value behind it.
std::string Lookup(const Session& session, std::string_view columns, std::string_view table,
                   std::string_view column) {
  return Concat("select ", columns, " from ", table, " ", NoLockHint(session), " where ", column, " = ");
}

std::int32_t FirstId(const Recordset& rows, std::string_view id_column) {
  return rows.RecordCount() == 0 ? -1 : rows.Fields(id_column).ToInt32();
}

std::int32_t IdByText(Session& session, std::string_view columns, std::string_view table,
                      std::string_view column, std::string_view text, std::string_view id_column) {
  if (text.empty()) return -1;
  return FirstId(OpenMasterData(session, Concat(Lookup(session, columns, table, column), Quoted(text))),
                 id_column);
}

std::int32_t IdByVelkarisId(Session& session, std::string_view id_column, std::string_view table,
                            std::int32_t number) {
  RequireKnownDialect(session);
  return FirstId(OpenRecordset(session, Concat(Lookup(session, id_column, table, "VELKARIS_ID"), number)),
                 id_column);
}

// The commands that the component itself works into records.
Recordset OpenOwnCommands(Session& session) {
  RequireKnownDialect(session);
  return OpenMasterData(
      session, Concat("select COMMAND_ID, COMMAND_TYPE_CODE from T_SFC_COMMAND ", NoLockHint(session),
                      " where COMMAND_TYPE_CODE >= ", command_type::kLogon,
                      " and COMMAND_TYPE_CODE <= ", command_type::kScrappedPartCount));
}

}  // namespace

std::int32_t GetUserID(Session& session, std::string_view user_name) {
  return IdByText(session, "USER_ID", "T_SFC_USER", "USER_NAME", user_name, "USER_ID");
}

std::int32_t GetJobID(Session& session, std::string_view job_number) {
  return IdByText(session, "*", "T_SFC_JOB", "JOB_NUMBER", job_number, "JOB_ID");
}

std::int32_t GetOpID(Session& session, std::string_view op_number) {
  return IdByText(session, "*", "T_SFC_OP", "OP_NUMBER", op_number, "OP_ID");
}

std::int32_t GetScrapCodeID(Session& session, std::string_view scrap_code_number) {
  return IdByText(session, "SCRAP_CODE_ID", "T_SFC_SCRAP_CODE", "SCRAP_CODE_NUMBER", scrap_code_number,
                  "SCRAP_CODE_ID");
}

PartKey GetPartID(Session& session, std::string_view part_number) {
  if (part_number.empty()) return {};
  const Recordset part =
      OpenMasterData(session, Concat(Lookup(session, "*", "T_SFC_PART", "PART_NUMBER"), Quoted(part_number)));
  if (part.RecordCount() == 0) return {};
  return {part.Fields("PART_ID").ToInt32(), part.Fields("PART_TYPE_ID").ToInt32Or(-1)};
}

std::int32_t GetDowntimeCodeID(Session& session, std::string_view downtime_code_number, DowntimeType type) {
  if (downtime_code_number.empty()) return -1;
  return FirstId(OpenMasterData(session, Concat(Lookup(session, "DOWNTIME_CODE_ID", "T_SFC_DOWNTIME_CODE",
                                                       "DOWNTIME_CODE_NUMBER"),
                                                Quoted(downtime_code_number), " and DOWNTIME_TYPE_CODE IN (",
                                                static_cast<std::int32_t>(type), ",2)")),
                 "DOWNTIME_CODE_ID");
}

std::string GetDefaultScrapCodeNumber(Session& session) {
  for (const std::int32_t type : {-1, 1}) {
    const Recordset code = OpenMasterData(
        session,
        Concat(Lookup(session, "SCRAP_CODE_NUMBER", "T_SFC_SCRAP_CODE", "SCRAP_CODE_TYPE_CODE"), type));
    if (code.RecordCount() > 0) return code.Fields("SCRAP_CODE_NUMBER").ToTextOr("");
  }
  return {};
}

std::optional<std::string> GetFirstPartNumberOfJob(Session& session, std::string_view job_number) {
  const std::string_view hint = NoLockHint(session);
  const Recordset parts = OpenMasterData(
      session, Concat("select T_SFC_PART.PART_NUMBER  from T_SFC_PART", hint, ", T_SFC_PART_PER_JOB", hint,
                      ", T_SFC_JOB", hint, "  where T_SFC_JOB.JOB_NUMBER = ", Quoted(job_number),
                      "  and T_SFC_JOB.JOB_ID = T_SFC_PART_PER_JOB.JOB_ID "
                      " and T_SFC_PART.PART_ID = T_SFC_PART_PER_JOB.PART_ID "
                      " order by T_SFC_PART_PER_JOB.ORDINAL, T_SFC_PART.PART_NUMBER "));
  if (parts.RecordCount() == 0 || parts.Fields("PART_NUMBER").IsNull()) return std::nullopt;
  return parts.Fields("PART_NUMBER").ToText();
}

std::int32_t GetCommandIdByTypeCode(Session& session, std::int32_t command_type_code) {
  Recordset commands = OpenOwnCommands(session);
  return commands.Find("COMMAND_TYPE_CODE", command_type_code) ? commands.Fields("COMMAND_ID").ToInt32() : -1;
}

std::int32_t GetCommandTypeCode(Session& session, std::int32_t command_id) {
  Recordset commands = OpenOwnCommands(session);
  return commands.Find("COMMAND_ID", command_id) ? commands.Fields("COMMAND_TYPE_CODE").ToInt32() : -1;
}

std::int32_t GetDeptIdByVelkarisId(Session& session, std::int32_t number) {
  return IdByVelkarisId(session, "DEPT_ID", "T_SFC_DEPT", number);
}

std::int32_t GetLocationIdByVelkarisId(Session& session, std::int32_t number) {
  return IdByVelkarisId(session, "LOCATION_ID", "T_SFC_LOCATION", number);
}

std::int32_t GetGroupIdByVelkarisId(Session& session, std::int32_t number) {
  return IdByVelkarisId(session, "GROUP_ID", "T_SFC_GROUP", number);
}

std::int32_t GetMachineIdByVelkarisId(Session& session, std::int32_t number) {
  return IdByVelkarisId(session, "MACHINE_ID", "T_SFC_MACHINE", number);
}

std::int32_t GetCommandIdByVelkarisId(Session& session, std::int32_t number) {
  return IdByVelkarisId(session, "COMMAND_ID", "T_SFC_COMMAND", number);
}

}  // namespace kx
