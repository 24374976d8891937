#include "plant/schema_version.h"

#include <algorithm>
#include <array>

#include "database/ascii.h"
#include "database/database_error.h"
#include "database/sql_script.h"
#include "database/text.h"
#include "plant/schema_sql.h"
#include "plant/schema_tables.h"

namespace kx::tool {
namespace {

constexpr std::string_view kVersionSetting = "schema_version";

// What leads from the version before to `version`, beyond the tables, columns and indexes that the schema
// file adds: a statement in the SQL that SQLite and PostgreSQL share, or none.
struct Step {
  std::int32_t version;
  std::string_view statement;
};
constexpr std::array kSteps = {
    Step{2, ""},
};
static_assert(kSteps.back().version == kSchemaVersion);

// The columns of a table as the database has them; nothing when there is no such table.
std::optional<ColumnNames> ColumnsOf(Plant& plant, const std::string& table) {
  try {
    return plant.Run(Concat("select * from ", table, " where 1 = 0")).columns;
  } catch (const DatabaseError& error) {
    if (!IsMissingTable(error)) throw;
    return std::nullopt;
  }
}

}  // namespace

std::int32_t ReadSchemaVersion(Plant& plant) {
  const auto version = ReadSetting(plant, kVersionSetting);
  return version ? Value(*version).ToInt32() : 1;
}

void WriteSchemaVersion(Plant& plant, std::int32_t version) {
  WriteSetting(plant, kVersionSetting, std::to_string(version));
}

void RequireKnownVersion(Plant& plant) {
  const std::int32_t version = ReadSchemaVersion(plant);
  if (version <= kSchemaVersion) return;
  throw ToolError(Concat("the plant has schema version ", version, ", and this tool knows ", kSchemaVersion,
                         "; use a newer tool"));
}

void RequireCurrentVersion(Plant& plant) {
  const std::int32_t version = ReadSchemaVersion(plant);
  if (version == kSchemaVersion) return;
  throw ToolError(Concat("the plant has schema version ", version, ", and this needs ", kSchemaVersion,
                         "; \"kxdata7 upgrade\" brings it there"));
}

std::vector<std::string> BringUpToDate(Plant& plant) {
  if (plant.db.target() == SqlTarget::kNative)
    throw ToolError(
        "the tables of this database are brought up to date by its own tools, from its file of schema/");
  const std::int32_t version = ReadSchemaVersion(plant);
  const std::string_view schema = SchemaSql(SchemaName(plant, 0));
  std::vector<std::string> done;
  for (const TableSchema& table : ReadSchemaTables(schema)) {
    const auto present = ColumnsOf(plant, table.name);
    if (!present) done.push_back("added table " + table.name);
    for (const ColumnSchema& column : present ? table.columns : std::vector<ColumnSchema>()) {
      const auto is_column = [&](const std::string& name) { return EqualsIgnoringCase(name, column.name); };
      if (std::ranges::any_of(*present, is_column)) continue;
      plant.Run(Concat("alter table ", table.name, " add column ", column.definition));
      done.push_back(Concat("added column ", column.name, " of ", table.name));
    }
  }
  for (const std::string& statement : SplitStatements(schema)) plant.Run(statement);
  for (const Step& step : kSteps) {
    if (step.version <= version) continue;
    if (!step.statement.empty()) plant.Run(step.statement);
    done.push_back(Concat("schema version ", step.version));
  }
  WriteSchemaVersion(plant, kSchemaVersion);
  return done;
}

std::vector<std::string> Upgrade(Plant& plant) {
  plant.db.Begin();
  if (!ColumnsOf(plant, "T_SFC_MACHINE_DATA"))
    throw ToolError("the database is no plant; \"kxdata7 create\" makes one");
  std::vector<std::string> done = BringUpToDate(plant);
  plant.db.Commit();
  return done;
}

}  // namespace kx::tool
