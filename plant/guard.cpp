#include "plant/guard.h"

#include <ctime>

#include "database/text.h"
#include "plant/platform.h"
#include "plant/setting.h"

namespace kx::tool {
namespace {

using kxdata7::Dialect;

// How the guards of one kind of work are told from those of another.
struct WorkNames {
  std::string_view suffix;   // of the file beside the plant
  std::string_view setting;  // where the holder's name stands, when the guard cannot tell it
  std::string_view resource;
  std::int32_t number;  // the first one of PostgreSQL's lock: says that it is these programs'
  std::int32_t oracle_number;
  std::string_view what;
};
constexpr WorkNames kProcessing{"-guard",   setting::kProcessor, "kxdata7",
                                1263027031, 126302703,           "the plant is being worked off by "};
constexpr WorkNames kCollecting{"-collect",        setting::kCollector,
                                "kxdata7 collect", 1263027032,
                                126302704,         "the plant's machines are being listened to by "};

const WorkNames& NamesOf(Guard::Work work) {
  return work == Guard::Work::kProcessing ? kProcessing : kCollecting;
}

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
// database.
bool TakeSessionLock(Plant& plant, Dialect dialect, const WorkNames& names) {
  const auto is_one = [&](std::string_view sql) { return plant.Run(sql).at(0, 0).ToInt32() == 1; };
  if (plant.db.target() == SqlTarget::kPostgres) {
    return is_one(Concat("select case when pg_try_advisory_lock(", names.number,
                         ", hashtext(current_schema())) then 1 else 0 end"));
  }
  if (dialect == Dialect::kSqlServer) {
    plant.Run(Concat("exec sp_getapplock @Resource = '", names.resource,
                     "', @LockMode = 'Exclusive', @LockOwner = 'Session', @LockTimeout = 0"));
    return is_one(Concat("select case APPLOCK_MODE('public', '", names.resource,
                         "', 'Session') when 'Exclusive' then 1 else 0 end"));
  }
  if (dialect != Dialect::kOracle) return true;
  try {
    plant.Run(Concat("begin if dbms_lock.request(", names.oracle_number,
                     ", dbms_lock.x_mode, 0) not in (0, 4) then raise_application_error(-20001, 'held'); "
                     "end if; end;"));
    return true;
  } catch (const DatabaseError& error) {
    if (error.native_code() != 20001) throw;
    return false;
  }
}

// Who has the lock: on PostgreSQL the name of its session, elsewhere what the holder wrote down.
std::string Holder(Plant& plant, const WorkNames& names) {
  if (plant.db.target() != SqlTarget::kPostgres) return ReadSetting(plant, names.setting).value_or("");
  const Rows rows = plant.Run(
      "select a.application_name from pg_locks l inner join pg_stat_activity a on a.pid = l.pid "
      "where l.locktype = 'advisory' and l.granted and l.classid::bigint = ? and "
      "l.objid = (hashtext(current_schema())::bigint & 4294967295)::oid and "
      "l.database = (select oid from pg_database where datname = current_database())",
      {names.number});
  return rows.count() == 0 ? "" : rows.at(0, 0).ToTextOr("");
}

}  // namespace

Guard::Guard(const PlantOptions& options, Work work) : work_(work), plant_(options), who_(WhoNow()) {
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
  file_ = std::make_unique<LockedFile>(beside += NamesOf(work_).suffix);
  if (!file_->held()) Refuse(file_->Read());
  file_->Write(who_);
}

void Guard::LockServer(Dialect dialect) {
  const bool postgres = plant_.db.target() == SqlTarget::kPostgres;
  if (postgres) plant_.Run("select set_config('application_name', ?, false)", {who_});
  if (!TakeSessionLock(plant_, dialect, NamesOf(work_))) Refuse(Holder(plant_, NamesOf(work_)));
  if (!postgres) WriteSetting(plant_, NamesOf(work_).setting, who_);
}

void Guard::Refuse(const std::string& holder) const {
  throw GuardError(Concat(NamesOf(work_).what, holder.empty() ? "another process" : holder,
                          ", and only one process at a time may do that"),
                   holder.starts_with(ProcessName() + " since"));
}

void Guard::RequireHeld() const {
  if (file_ == nullptr) return;
  if (FileIdentity(plant_file_) != plant_identity_)
    throw GuardError("the plant's file was replaced or deleted while it was in use");
  if (!file_->StillHeld())
    throw GuardError(
        Concat(ToText(plant_file_), NamesOf(work_).suffix, " was deleted while the plant was in use"));
}

std::optional<std::int32_t> Guard::FirstRow() {
  RequireHeld();
  const Rows rows = plant_.Run("select min(MDC_LOG_ID) from T_SFC_MDC_LOG");
  if (rows.at(0, 0).IsNull()) return std::nullopt;
  return rows.at(0, 0).ToInt32();
}

}  // namespace kx::tool
