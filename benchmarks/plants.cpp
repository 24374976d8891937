#include "benchmarks/plants.h"

#include <cstdlib>

#include "database/text.h"

namespace kx::bench {
namespace {

constexpr int kRefreshedMachine = 3;

// Temporary folders of the test support lie where TMPDIR says.
const Ground& Enter(const Ground& ground) {
  setenv("TMPDIR", ground.folder.c_str(), 1);
  return ground;
}

// "with recursive" for an insert of `count` rows, numbered N from 0.
std::string Numbers(int count) {
  return Concat("with recursive k(N) as (select 0 union all select N + 1 from k where N < ", count - 1, ") ");
}

}  // namespace

MasterPlant::MasterPlant(const Ground& ground, const Fill& fill) : ground_(Enter(ground)) {
  using test::DatabaseKind;
  {
    test::Plant plant(0, ground.server != nullptr ? DatabaseKind::kPostgres : DatabaseKind::kSqlite);
    plant.db.Begin();
    PrepareForRounds(plant);
    fill(plant);
    plant.db.Commit();
    if (ground.server == nullptr) {
      plant.Execute("PRAGMA wal_checkpoint(TRUNCATE)");
      database_ = (folder_.path() / "master.db").string();
      std::filesystem::copy_file(plant.database.file(), database_);
      return;
    }
    database_ = plant.database.server_database();
  }
  // Nobody is connected any more.
  database_ = ground.server->CreateDatabase(database_);
}

MasterPlant::Copy MasterPlant::MakeCopy(std::string_view synchronous) {
  if (ground_.server != nullptr) {
    const std::string copy = ground_.server->CreateDatabase(database_);
    const std::string connection = ground_.server->ConnectionString(copy);
    return {{},
            connection,
            {KXDATA7_ODBC_FLOOR, connection + ";Protocol=7.4-2;UseServerSidePrepare=0;UseDeclareFetch=0"}};
  }
  const std::string file = (folder_.path() / Concat("copy", ++copies_, ".db")).string();
  std::filesystem::copy_file(database_, file);
  return {file,
          Concat("Provider=SQLite;Synchronous=", synchronous, ";Data Source=", file),
          {KXDATA7_SQLITE_FLOOR, file, std::string(synchronous)}};
}

void PrepareForRounds(test::Plant& plant) {
  plant.Execute("update T_SFC_MACHINE_DATA set PART_ID = 1");
  plant.Execute("update T_SFC_SHIFT set SAT_INTERVAL_ID = SHIFT_ID, SUN_INTERVAL_ID = SHIFT_ID");
}

void QueueRounds(test::Plant& plant, int rounds, std::span<const int> machines) {
  DateTime now(2026, 1, 12, 6, 0, 1);
  DateTime shift_end(2026, 1, 12, 14, 0, 1);
  for (int round = 0; round < rounds; ++round) {
    const int machine = machines[static_cast<std::size_t>(round) % machines.size()];
    for (const EventType& type : std::span(kEventTypes).first(kRefresh)) {
      plant.QueueRow(now.ToText(), machine, type.command, type.time_code, type.param);
      now = now.AddSeconds(1);
    }
    plant.QueueRow(shift_end.ToText(), kRefreshedMachine, -1, 0, "");
    shift_end = shift_end.AddSeconds(std::int64_t{8} * 3600);
  }
}

void QueueCycles(test::Plant& plant, int count) {
  plant.Execute(
      Concat("insert into T_SFC_MDC_LOG (COMMAND_ID, DEPT_ID, LOCATION_ID, GROUP_ID, MACHINE_ID, "
             "COMMAND_TIME_CODE, TIME_STAMP) ",
             Numbers(count), "select 109, 1, 2, 3, 1, N % 2, '2026-01-12 13:59:5' || (N % 2) from k"));
}

void AddPast(test::Plant& plant, int records, int events_of_each) {
  constexpr std::string_view kTimes =
      "datetime('2015-01-05', N * 300 || ' seconds'), datetime('2015-01-05', N * 300 + 300 || ' seconds')";
  plant.Execute(
      Concat("insert into T_SFC_MACHINE_DATA (START_TIME, STOP_TIME, DEPT_ID, LOCATION_ID, GROUP_ID, "
             "MACHINE_ID, STATUS_CODE, IS_MANUAL, CYCLE_TIME, IDLE_TIME, FINISHED_CYCLES, "
             "GOOD_COUNT, SHIFT_ID, PART_ID, JOB_ID) ",
             Numbers(records), "select ", kTimes, ", 1, 2, 3, N % 3 + 1, 2, 0, 2.5, 0.1, 1, 1, ",
             "N % 3 + 1, 1, 1 from k"));
  plant.Execute(
      Concat("insert into T_SFC_EVENT (START_TIME, STOP_TIME, COMMAND_ID, DEPT_ID, LOCATION_ID, "
             "GROUP_ID, MACHINE_ID) ",
             Numbers(events_of_each * records), "select ", kTimes, ", 109, 1, 2, 3, N % 3 + 1 from k"));
  plant.Execute(
      Concat("insert into T_SFC_DT_PER_MACHINE_DATA (MACHINE_DATA_ID, START_TIME, STOP_TIME, "
             "DURATION, DOWNTIME_TYPE_CODE, DOWNTIME_CODE_ID) ",
             Numbers(records), "select N + 4, ", kTimes, ", 0.1, 0, 1 from k"));
}

void QueueRollOver(test::Plant& plant, int shifts) {
  const DateTime end = DateTime(2026, 1, 12, 6, 0, 1).AddSeconds(std::int64_t{8} * 3600 * shifts);
  plant.QueueRow(end.ToText(), kRefreshedMachine, -1, 0, "");
}

void AddMachines(test::Plant& plant, int count) {
  plant.Execute(Concat(
      "insert into T_SFC_MACHINE (MACHINE_ID, VELKARIS_ID, MACHINE_NAME, MACHINE_DATA_ID, "
      "STATUS_CODE, STATUS_DATE) ",
      Numbers(count), "select N + 10, N + 1010, 'Mill ' || N, N + 10, 0, ", "'2026-01-12 06:00:00' from k"));
  plant.Execute(
      "insert into T_SFC_MACHINE_DATA (MACHINE_DATA_ID, START_TIME, DEPT_ID, LOCATION_ID, GROUP_ID, "
      "MACHINE_ID, "
      "STATUS_CODE, IS_MANUAL, SETUP_TIME, TEARDOWN_TIME, CYCLE_TIME, IDLE_TIME, FINISHED_CYCLES, "
      "UNFINISHED_CYCLES, GOOD_COUNT, SCRAPPED_COUNT, SHIFT_ID, CHART_DATE, SHIFT_END, PART_ID) "
      "select MACHINE_ID, '2026-01-12 06:00:00', 1, 2, 3, MACHINE_ID, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, "
      "'2026-01-12 00:00:00', '2026-01-12 14:00:00', 1 from T_SFC_MACHINE where MACHINE_ID >= 10");
}

// They work the intervals of the three that are there, which stay the first ones.
void AddShifts(test::Plant& plant, int count) {
  plant.Execute(Concat("insert into T_SFC_SHIFT ", Numbers(count),
                       "select N + 10, 'Shift ' || N, N % 3 + 1, N % 3 + 1, N % 3 + 1, N % 3 + 1, N % 3 + 1, "
                       "N % 3 + 1, N % 3 + 1 from k"));
}

std::string DumpOf(const std::string& connection) {
  Connection db;
  db.Open(connection);
  std::string dump;
  for (const char* query :
       {"select * from T_SFC_MACHINE order by 1", "select * from T_SFC_MACHINE_DATA order by 1",
        "select * from T_SFC_DT_PER_MACHINE_DATA order by 1",
        "select * from T_SFC_SCRAP_PER_MACHINE_DATA order by 1", "select * from T_SFC_EVENT order by 1",
        "select * from T_SFC_MACHINE_EVENT order by 1",
        // But for the time, which is the clock's.
        "select MDC_LOG_ID, COMMAND_ID, PARAM1 from T_SFC_MDC_LOG order by 1"}) {
    for (const Value& value : db.ExecuteDirect(query).values) Append(dump, value.ToTextOr("-"), "|");
    dump += '\n';
  }
  return dump;
}

}  // namespace kx::bench
