#include "plant/grants.h"

#include <algorithm>
#include <array>

#include "database/ascii.h"
#include "database/text.h"
#include "plant/schema_sql.h"
#include "plant/schema_tables.h"

namespace kx::tool {
namespace {

constexpr std::string_view kAllRights = "SELECT, INSERT, UPDATE, DELETE";

// What the component does with a table beyond reading it. T_SFC_SETTING is read for it by the programs that
// ask which version a plant has.
struct Rights {
  std::string_view table;
  std::string_view rights;
};
constexpr std::array<Rights, 8> kWritten = {{{"T_SFC_MDC_LOG", "SELECT, INSERT, DELETE"},
                                             {"T_SFC_MACHINE", "SELECT, UPDATE"},
                                             {"T_SFC_MACHINE_DATA", "SELECT, INSERT, UPDATE"},
                                             {"T_SFC_DT_PER_MACHINE_DATA", "SELECT, INSERT, UPDATE"},
                                             {"T_SFC_SCRAP_PER_MACHINE_DATA", "SELECT, INSERT, UPDATE"},
                                             {"T_SFC_EVENT", "SELECT, INSERT, UPDATE"},
                                             {"T_SFC_MACHINE_EVENT", "SELECT, INSERT, DELETE"},
                                             {"T_SFC_SETTING", "SELECT"}}};

// The name between the quotes of a system that doubles the closing one inside.
std::string Quoted(std::string_view name, char open, char close) {
  std::string quoted(1, open);
  for (const char c : name) quoted.append(c == close ? 2 : 1, c);
  return quoted + close;
}

std::string AccountName(std::string_view schema, std::string_view account) {
  RequirePlainText(account);
  if (schema == "postgresql") return Quoted(account, '"', '"');
  if (schema == "sqlserver") return Quoted(account, '[', ']');
  // A name between quotes would not be folded as that of the account was.
  const bool plain = std::ranges::all_of(account, [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
           c == '$' || c == '#';
  });
  if (!plain || account.empty()) throw ToolError("this is no plain name of an account");
  return std::string(account);
}

}  // namespace

bool IsWrittenByComponent(std::string_view table) {
  return std::ranges::any_of(kWritten, [&](const Rights& each) {
    return EqualsIgnoringCase(each.table, table) && each.rights != "SELECT";
  });
}

std::vector<std::string> Grants(Plant& plant, std::int32_t dialect, std::string_view account,
                                bool for_programs) {
  const std::string_view schema = SchemaName(plant, dialect);
  if (schema == "sqlite" || schema == "access")
    throw ToolError("the plant is a file: an account needs the right to write it and its folder");
  const std::string name = AccountName(schema, account);
  std::vector<std::string> statements;
  if (schema == "postgresql") {
    const Rows place = plant.Run("select current_database(), current_schema()");
    statements.push_back(
        Concat("GRANT CONNECT ON DATABASE ", Quoted(place.at(0, 0).ToText(), '"', '"'), " TO ", name, ";"));
    statements.push_back(
        Concat("GRANT USAGE ON SCHEMA ", Quoted(place.at(0, 1).ToText(), '"', '"'), " TO ", name, ";"));
  } else if (schema == "oracle") {
    statements.push_back(Concat("GRANT CREATE SESSION TO ", name, ";"));
  }
  for (const TableSchema& table : ReadSchemaTables(SchemaSql(schema))) {
    const auto* const written = std::ranges::find(kWritten, table.name, &Rights::table);
    std::string_view rights = written == kWritten.end() ? "SELECT" : written->rights;
    if (for_programs) rights = kAllRights;
    statements.push_back(Concat("GRANT ", rights, " ON ", table.name, " TO ", name, ";"));
    if (schema != "oracle") continue;
    for (const std::string& object : {table.name, "S" + table.name.substr(1)}) {
      if (object != table.name) statements.push_back(Concat("GRANT SELECT ON ", object, " TO ", name, ";"));
      statements.push_back(Concat("CREATE SYNONYM ", name, ".", object, " FOR ", object, ";"));
    }
  }
  return statements;
}

}  // namespace kx::tool
