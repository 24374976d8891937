#include "plant/guard.h"

#include <ctime>

#include "plant/platform.h"
#include "plant/setting.h"

namespace kx::tool {
namespace {

using kxdata7::Dialect;

// "process 4711 on hall-2 since 2026-01-12 06:00:00"
std::string WhoNow() { return ProcessName() + " since " + PlantTime(std::time(nullptr)).ToText(); }

// The file of a plant that is one: SQLite's own name for it, or what an Access connection names.
std::filesystem::path FileOf(Plant& plant, const PlantOptions& options) {
  if (plant.db.target() == SqlTarget::kSqlite)
    return ToPath(
        plant.Run("select file from pragma_database_list where name = 'main'").at(0, 0).ToTextOr(""));
  const auto connection = ConnectionString::Parse(PlantConnectionString(options.plant));
  const std::string* const file = connection.Find("dbq");
  std::error_code ignored;
  const bool is_file = file != nullptr && std::filesystem::is_regular_file(ToPath(*file), ignored);
  return is_file ? ToPath(*file) : std::filesystem::path();
}

// Takes the lock of the link's session. False: another session has it. On PostgreSQL a plant is a schema of a
// database; the first number says that the locks are these programs'.
bool TakeSessionLock(Plant& plant, Dialect dialect) {
  const auto is_one = [&](std::string_view sql) { return plant.Run(sql).at(0, 0).ToInt32() == 1; };
  if (plant.db.target() == SqlTarget::kPostgres) {
    return is_one(
        "select case when pg_try_advisory_lock(1263027031, hashtext(current_schema())) then 1 else 0 end");
  }
  if (dialect == Dialect::kSqlServer) {
    plant.Run(
        "exec sp_getapplock @Resource = 'kxdata7', @LockMode = 'Exclusive', @LockOwner = 'Session', "
        "@LockTimeout = 0");
    return is_one(
        "select case APPLOCK_MODE('public', 'kxdata7', 'Session') when 'Exclusive' then 1 else 0 end");
  }
  if (dialect != Dialect::kOracle) return true;
  try {
    plant.Run(
        "begin if dbms_lock.request(126302703, dbms_lock.x_mode, 0) not in (0, 4) then "
        "raise_application_error(-20001, 'held'); end if; end;");
    return true;
  } catch (const DatabaseError& error) {
    if (error.native_code() != 20001) throw;
    return false;
  }
}

// Who has the lock: on PostgreSQL the name of its session, elsewhere what the holder wrote down.
std::string Holder(Plant& plant) {
  if (plant.db.target() != SqlTarget::kPostgres) return ReadSetting(plant, setting::kProcessor).value_or("");
  const Rows rows = plant.Run(
      "select a.application_name from pg_locks l inner join pg_stat_activity a on a.pid = l.pid "
      "where l.locktype = 'advisory' and l.granted and l.classid = 1263027031 and "
      "l.objid = (hashtext(current_schema())::bigint & 4294967295)::oid and "
      "l.database = (select oid from pg_database where datname = current_database())");
  return rows.count() == 0 ? "" : rows.at(0, 0).ToTextOr("");
}

}  // namespace

Guard::Guard(const PlantOptions& options) : plant_(options), who_(WhoNow()) {
  plant_file_ = FileOf(plant_, options);
  if (!plant_file_.empty()) {
    LockFile();
  } else if (plant_.db.target() != SqlTarget::kSqlite) {
    LockServer(static_cast<Dialect>(options.dialect));
  }
}

void Guard::LockFile() {
  plant_file_ = std::filesystem::canonical(plant_file_);
  plant_identity_ = FileIdentity(plant_file_);
  std::filesystem::path beside = plant_file_;
  file_ = std::make_unique<LockedFile>(beside += "-guard");
  if (!file_->held()) Refuse(file_->Read());
  file_->Write(who_);
}

void Guard::LockServer(Dialect dialect) {
  const bool postgres = plant_.db.target() == SqlTarget::kPostgres;
  if (postgres) plant_.Run("select set_config('application_name', ?, false)", {who_});
  if (!TakeSessionLock(plant_, dialect)) Refuse(Holder(plant_));
  if (!postgres) WriteSetting(plant_, setting::kProcessor, who_);
}

void Guard::Refuse(const std::string& holder) const {
  throw GuardError("the plant is being worked off by " + (holder.empty() ? "another process" : holder) +
                       ", and only one process at a time may do that",
                   holder.starts_with(ProcessName() + " since"));
}

std::optional<std::int32_t> Guard::FirstRow() {
  if (file_ != nullptr && FileIdentity(plant_file_) != plant_identity_)
    throw GuardError("the plant's file was replaced or deleted while it was being worked off");
  if (file_ != nullptr && !file_->StillHeld())
    throw GuardError(ToText(plant_file_) + "-guard was deleted while the plant was being worked off");
  const Rows rows = plant_.Run("select min(MDC_LOG_ID) from T_SFC_MDC_LOG");
  if (rows.at(0, 0).IsNull()) return std::nullopt;
  return rows.at(0, 0).ToInt32();
}

}  // namespace kx::tool
