#include "plant/backup.h"

#include <filesystem>

#include "database/sqlite_backup.h"
#include "plant/platform.h"

namespace kx::tool {
namespace {

// The file of an SQLite plant.
std::string PlantFile(const PlantOptions& options) {
  Plant plant(options);
  switch (plant.db.target()) {
    case SqlTarget::kPostgres:
      throw ToolError(
          "backup is for a plant in an SQLite file; for this one: pg_dump --format=custom --file=FILE "
          "DATABASE, "
          "and back: pg_restore --dbname=DATABASE FILE");
    case SqlTarget::kNative:
      throw ToolError("backup is for a plant in an SQLite file; use the server's own tools");
    case SqlTarget::kSqlite: break;
  }
  const auto connection = ConnectionString::Parse(PlantConnectionString(options.plant));
  const std::string* const file = connection.Find("data source");
  if (file == nullptr)
    throw ToolError("backup does not reach an SQLite file over ODBC; give the file's name");
  return *file;
}

// Raises a ToolError unless `file` holds a plant without a fault.
BackupContent Verify(const std::string& file) {
  PlantOptions options;
  options.plant = file;
  Plant plant(options);
  const std::string found = plant.Run("PRAGMA integrity_check(1)").at(0, 0).ToText();
  if (found != "ok") throw ToolError("the backup is damaged, perhaps because the plant is: " + found);
  const auto count = [&](const char* table) {
    return static_cast<std::int64_t>(
        plant.Run(std::string("select count(*) from ") + table).at(0, 0).ToDouble());
  };
  const BackupContent content{count("T_SFC_MACHINE"), count("T_SFC_MACHINE_DATA"), count("T_SFC_MDC_LOG")};
  // With a write-ahead log the file could not be opened where nobody may write.
  plant.Run("PRAGMA journal_mode = DELETE");
  return content;
}

}  // namespace

BackupContent BackUp(const PlantOptions& options, const std::string& file,
                     const std::function<void(std::int64_t done, std::int64_t total)>& progress) {
  const std::string source = PlantFile(options);
  // The journals of a database that had the name would be taken for those of the backup.
  for (const char* const suffix : {"", "-wal", "-journal"}) {
    if (std::filesystem::exists(ToPath(file + suffix)))
      throw ToolError("\"" + file + suffix + "\" exists; a backup replaces no file");
  }
  const std::string part = file + ".part";
  BackUpSqlite(source, part, progress);
  const BackupContent content = Verify(part);
  std::filesystem::rename(ToPath(part), ToPath(file));
  SyncFolder(ToPath(file).parent_path());
  return content;
}

}  // namespace kx::tool
