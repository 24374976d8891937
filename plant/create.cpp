#include "plant/create.h"

#include <algorithm>
#include <array>

#include "database/sql_script.h"
#include "database/text.h"
#include "plant/plant_file.h"
#include "plant/schema_sql.h"
#include "plant/schema_version.h"

namespace kx::tool {
namespace {

// Whether nothing of a plant is there but what every plant needs.
bool IsEmpty(Plant& plant) {
  constexpr std::array kTables = {"T_SFC_MACHINE", "T_SFC_DEPT",  "T_SFC_LOCATION", "T_SFC_GROUP",
                                  "T_SFC_USER",    "T_SFC_SHIFT", "T_SFC_INTERVAL"};
  return std::ranges::all_of(kTables, [&](const char* table) {
    return plant.Run(Concat("select count(*) from ", table)).at(0, 0).ToInt32() == 0;
  });
}

// The statements of a dialect's own database, singly. SQL Server's add what is missing, in one transaction;
// those of Oracle and Access are for an empty database, where each is kept at once.
void CreateNativeTables(Plant& plant, std::string_view schema) {
  const bool adds_missing = schema == "sqlserver";
  bool has_tables = false;
  try {
    plant.Run("select * from T_SFC_MACHINE where 1 = 0");
    has_tables = true;
  } catch (const DatabaseError&) {
    // Not there; any other reason shows at the first statement.
  }
  if (has_tables && !adds_missing)
    throw ToolError(
        "the database has a plant's tables already; create makes them there in an empty one alone");
  const std::vector<std::string> statements = SplitStatements(SchemaSql(schema));
  if (adds_missing) plant.db.Begin();
  for (std::size_t i = 0; i < statements.size(); ++i) {
    try {
      plant.Run(statements[i]);
    } catch (const DatabaseError& error) {
      throw ToolError("statement " + std::to_string(i + 1) + " of " + std::to_string(statements.size()) +
                      " for " + std::string(schema) +
                      " (--dialect says for which database): " + error.description());
    }
  }
  WriteSchemaVersion(plant, kSchemaVersion);
  if (adds_missing) plant.db.Commit();
}

Applied Create(Plant& plant, const PlantDescription* description, DateTime start, bool in_empty) {
  plant.db.Begin();
  BringUpToDate(plant);
  if (in_empty && !IsEmpty(plant)) throw ToolError("the demo needs an empty plant, and this one is in use");
  AddStandardCommands(plant);
  Applied applied;
  if (description != nullptr) applied = ApplyDescription(plant, *description, start, false);
  applied.problems.empty() ? plant.db.Commit() : plant.db.Rollback();
  return applied;
}

}  // namespace

Applied CreatePlant(const PlantOptions& options, const PlantDescription* description, DateTime start) {
  Plant plant(options, OpenMode::kCreate);
  if (plant.db.target() == SqlTarget::kNative) {
    if (description != nullptr) throw ToolError("a plant's file is for SQLite and PostgreSQL");
    CreateNativeTables(plant, SchemaName(plant, options.dialect));
    return {};
  }
  return Create(plant, description, start, false);
}

void CreateDemoPlant(const PlantOptions& options, DateTime start) {
  std::vector<Problem> problems;
  const PlantDescription demo = ParsePlantFile(SchemaSql("demo.toml"), start, problems);
  Plant plant(options, OpenMode::kCreate);
  if (plant.db.target() == SqlTarget::kNative) throw ToolError("the demo is for SQLite and PostgreSQL");
  Create(plant, &demo, start, true);
}

}  // namespace kx::tool
