#include "plant/plant.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <filesystem>
#include <utility>

#include "database/ascii.h"
#include "database/table_key.h"
#include "kxdata7/text.h"
#include "plant/advice.h"
#include "plant/platform.h"
#include "plant/schema_version.h"

namespace kx::tool {
namespace {

std::string Quoted(std::string_view text) {
  std::string quoted = "\"";
  for (const char c : text) quoted.append(c == '"' ? 2 : 1, c);
  return quoted + '"';
}

// T_SFC_DEPT is a "dept".
std::string Noun(std::string_view table) {
  std::string noun(table.substr(kTablePrefix.size()));
  std::ranges::transform(noun, noun.begin(), [](char c) { return static_cast<char>(c - 'A' + 'a'); });
  return noun;
}

bool IsSqlite(const ConnectionString& connection) {
  const std::string* const provider = connection.Find("provider");
  return provider != nullptr && EqualsIgnoringCase(*provider, "SQLite");
}

// A connection string for SQLite with `keyword` as it stands there or else with `value`; any other as it is.
std::string WithSqliteKeyword(std::string text, std::string_view keyword, std::string_view value) {
  const auto parsed = ConnectionString::Parse(text);
  if (IsSqlite(parsed) && parsed.Find(ToLowerAscii(keyword)) == nullptr)
    text.append(";").append(keyword).append("=").append(value);
  return text;
}

}  // namespace

std::string FileConnectionString(std::string_view file) {
  return "Provider=SQLite;Data Source=" + Quoted(file);
}

std::string PlantConnectionString(std::string_view plant, OpenMode mode) {
  if (plant.find("://") != std::string_view::npos && plant.find('=') > plant.find("://")) {
    throw ToolError(
        "the plant is given as a URL; a server is named by a connection string, as in "
        "\"Driver={PostgreSQL Unicode};Server=db;Database=plant;Uid=kxdata7\"");
  }
  std::error_code ignored;
  const bool is_file =
      plant.find('=') == std::string_view::npos || std::filesystem::exists(ToPath(plant), ignored);
  std::string text = is_file ? FileConnectionString(plant) : std::string(plant);
  if (mode == OpenMode::kExisting) return text;
  return WithSqliteKeyword(std::move(text), "Mode",
                           mode == OpenMode::kCreate ? "ReadWriteCreate" : "ReadOnly");
}

// A command waits for a processor that is at work rather than fail.
Plant::Plant(const PlantOptions& options, OpenMode mode) : by_dnc_(options.by_dnc) {
  const std::string text = PlantConnectionString(options.plant, mode);
  try {
    db.Open(WithSqliteKeyword(text, "Busy Timeout", std::to_string(kWaitOutsideTransaction.count())));
  } catch (const DatabaseError&) {
    const auto connection = ConnectionString::Parse(text);
    const std::string* const file = IsSqlite(connection) ? connection.Find("data source") : nullptr;
    const std::string trouble = file == nullptr || mode == OpenMode::kCreate ? "" : FileTrouble(*file);
    if (trouble.empty()) throw;
    throw ToolError("cannot open " + Quoted(*file) + ": " + trouble);
  }
  RequireKnownVersion(*this);
  if (mode == OpenMode::kReadOnly && db.target() == SqlTarget::kPostgres)
    Run("set default_transaction_read_only = on");
}

std::int32_t Plant::FindId(std::string_view table, std::int32_t number) {
  const std::string key = KeyColumnOf(table);
  const Rows rows = Run("select " + key + " from " + std::string(table) + " where " +
                            (by_dnc_ ? "VELKARIS_ID" : key) + " = ? order by " + key,
                        {number});
  if (rows.count() == 0) {
    throw ToolError("there is no " + Noun(table) + " with the " + (by_dnc_ ? "DNC number " : "id ") +
                    std::to_string(number));
  }
  return rows.at(0, 0).ToInt32();
}

Machine Plant::FindMachine(std::int32_t number) {
  const std::int32_t id = FindId("T_SFC_MACHINE", number);
  const Rows machine =
      Run("select MACHINE_NAME, MACHINE_DATA_ID from T_SFC_MACHINE where MACHINE_ID = ?", {id});
  std::string name = "machine " + std::to_string(id);
  if (!machine.at(0, 0).IsNull()) name += " (" + machine.at(0, 0).ToText() + ")";
  const Rows record =
      Run("select DEPT_ID, LOCATION_ID, GROUP_ID from T_SFC_MACHINE_DATA where MACHINE_DATA_ID = ?",
          {machine.at(0, 1)});
  if (record.count() == 0) throw ToolError(name + " has no current record");
  return {id, std::move(name), record.at(0, 0).ToInt32Or(-1), record.at(0, 1).ToInt32Or(-1),
          record.at(0, 2).ToInt32Or(-1)};
}

Command Plant::FindCommand(const NamedEvent& event) {
  if (event.type_code == kxdata7::command_type::kCustom) {
    const std::int32_t id = FindId("T_SFC_COMMAND", event.command_number);
    const Rows rows = Run("select COMMAND_TYPE_CODE from T_SFC_COMMAND where COMMAND_ID = ?", {id});
    return {id, rows.at(0, 0).ToInt32Or(-1)};
  }
  if (const auto known = commands_of_type_.find(event.type_code); known != commands_of_type_.end())
    return known->second;
  const Rows rows =
      Run("select COMMAND_ID from T_SFC_COMMAND where COMMAND_TYPE_CODE = ? order by COMMAND_ID",
          {event.type_code});
  if (rows.count() == 0) throw ToolError("there is no command of type " + std::to_string(event.type_code));
  return commands_of_type_[event.type_code] = {rows.at(0, 0).ToInt32(), event.type_code};
}

std::int32_t Plant::NumberOf(std::string_view table, std::int32_t id) {
  if (!by_dnc_) return id;
  const std::string key = KeyColumnOf(table);
  const Rows rows = Run("select VELKARIS_ID from " + std::string(table) + " where " + key + " = ?", {id});
  const bool numbered = rows.count() != 0 && !rows.at(0, 0).IsNull();
  if (!numbered || FindId(table, rows.at(0, 0).ToInt32()) != id)
    throw ToolError(Noun(table) + " " + std::to_string(id) + " has no DNC number of its own");
  return rows.at(0, 0).ToInt32();
}

std::string_view SchemaName(const Plant& plant, std::int32_t dialect) {
  switch (plant.db.target()) {
    case SqlTarget::kSqlite: return "sqlite";
    case SqlTarget::kPostgres: return "postgresql";
    case SqlTarget::kNative: break;
  }
  constexpr std::array<std::string_view, 3> kNames = {"oracle", "access", "sqlserver"};
  return kNames.at(static_cast<std::size_t>(dialect));
}

bool IsMissingTable(const DatabaseError& error) {
  return error.sqlstate() == "42S02" || error.sqlstate() == "42P01" ||
         error.description().starts_with("no such table");
}

std::int32_t AddMachine(Plant& plant, const NewMachine& machine, DateTime start) {
  const auto insert = [&](std::string_view table, const std::string& columns,
                          std::initializer_list<Value> values) {
    std::string marks = "?";
    for (std::size_t i = 1; i < values.size(); ++i) marks += ", ?";
    const std::string sql = "insert into " + std::string(table) + " (" + columns + ") values (" + marks + ")";
    return plant.db.InsertDirect(sql, {values.begin(), values.size()}, table, KeyColumnOf(table));
  };
  const Value dnc_number = machine.dnc_number ? Value(*machine.dnc_number) : Value();
  const std::int64_t id = insert("T_SFC_MACHINE", "VELKARIS_ID, MACHINE_NAME, STATUS_CODE, STATUS_DATE",
                                 {dnc_number, machine.name, 0, start});
  const std::int64_t record = insert(
      "T_SFC_MACHINE_DATA",
      "MACHINE_ID, DEPT_ID, LOCATION_ID, GROUP_ID, START_TIME, IDLE_START_TIME, CHART_DATE, STATUS_CODE, "
      "IS_MANUAL, SETUP_TIME, TEARDOWN_TIME, CYCLE_TIME, IDLE_TIME, FINISHED_CYCLES, UNFINISHED_CYCLES, "
      "GOOD_COUNT, SCRAPPED_COUNT",
      {id, machine.dept_id, machine.location_id, machine.group_id, start, start, start.Date(), 0, 0, 0, 0, 0,
       0, 0, 0, 0, 0});
  plant.Run("update T_SFC_MACHINE set MACHINE_DATA_ID = ? where MACHINE_ID = ?", {record, id});
  return Value(id).ToInt32();
}

DateTime PlantTime(std::time_t seconds) {
  std::tm local{};
  if (!ToLocalTime(seconds, local)) throw ToolError("the time lies out of range");
  return DateTime(local.tm_year + 1900, static_cast<unsigned>(local.tm_mon + 1),
                  static_cast<unsigned>(local.tm_mday), local.tm_hour, local.tm_min, local.tm_sec);
}

DateTime DatabaseTime(Plant& plant, std::int32_t dialect) {
  constexpr std::array kNative = {"select sysdate from dual", "select now()", "select getdate()"};
  const auto sql = [&] {
    switch (plant.db.target()) {
      case SqlTarget::kSqlite: return "select datetime('now', 'localtime')";
      case SqlTarget::kPostgres: return "select localtimestamp(0)";
      case SqlTarget::kNative: break;
    }
    return kNative.at(static_cast<std::size_t>(dialect));
  };
  return plant.Run(sql()).at(0, 0).ToDateTime();
}

void RequirePlainText(std::string_view text) {
  if (text.find('\'') != std::string_view::npos) throw ToolError("a text must hold no apostrophe");
  if (text.find('\0') != std::string_view::npos) throw ToolError("a text must hold no NUL character");
  if (kxdata7::ToUtf8(kxdata7::ToUtf16(text)) != text) throw ToolError("a text must be valid UTF-8");
}

}  // namespace kx::tool
