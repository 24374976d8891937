// A plant's life: upgrade, backup, copy, thinning out, rights and repair, on plants that the component worked
// in, with the process killed at each step of its files.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <thread>

#include "database/sql_script.h"
#include "database/text.h"
#include "plant/backup.h"
#include "plant/copy.h"
#include "plant/grants.h"
#include "plant/health.h"
#include "plant/platform.h"
#include "plant/purge.h"
#include "plant/schema_sql.h"
#include "plant/schema_tables.h"
#include "plant/schema_version.h"
#include "tests/support/faulty_vfs.h"
#include "tests/support/long_run.h"
#include "tests/support/random_walk.h"

namespace kx::tool {
namespace {

namespace fs = std::filesystem;
using test::DatabaseKind;

constexpr auto kSilent = [](auto&&...) {};

PlantOptions At(std::string place) {
  PlantOptions options;
  options.plant = std::move(place);
  return options;
}

// What the doctor finds wrong in the plant itself.
std::string Faults(const PlantOptions& options) {
  Plant plant(options);
  std::string faults;
  for (const Finding& finding : Examine(plant, 0)) {
    if (finding.grade == Finding::Grade::kMissing || finding.grade == Finding::Grade::kFailed)
      Append(faults, finding.text, "\n");
  }
  if (plant.db.target() == SqlTarget::kSqlite &&
      plant.Run("PRAGMA integrity_check").at(0, 0).ToText() != "ok")
    faults += "damaged file\n";
  return faults;
}

std::int64_t Number(const PlantOptions& options, const std::string& sql) {
  Plant plant(options);
  return plant.Run(sql).at(0, 0).ToInt32();
}

// Every row of every table, as text.
std::string Content(const PlantOptions& options) {
  Plant plant(options);
  std::string text;
  for (const TableSchema& table : ReadSchemaTables(SchemaSql("sqlite"))) {
    const Rows rows = plant.Run(Concat("select * from ", table.name, " order by 1"));
    Append(text, table.name, " ", rows.count(), ":\n");
    for (const Value& value : rows.values) Append(text, value.ToTextOr("-"), "|");
  }
  return text;
}

void Walk(test::Plant& plant, unsigned seed, int length) {
  for (const test::Step& step : test::RandomWalk(seed, length))
    plant.QueueRow(step.time.ToText(), step.machine, step.command, step.time_code, step.param);
  plant.ProcessAll();
}

// Plants of some days' work, made once; they are never written.
const PlantOptions& WorkedPlant() {
  static const TemporaryFolder folder;
  static const PlantOptions options = [] {
    test::Plant plant(0, DatabaseKind::kSqlite);
    plant.Run(
        "06:10 logon start anna; 06:15 down start D2; 06:20 down end; 06:25 part start P1; 06:30 cycle "
        "start; 06:35 "
        "cycle end; 06:40 good 3; 06:41 scrap 1.17; 06:45 part start P2; 06:50 cycle start; 06:55 cycle end; "
        "06:58 "
        "part start P1");
    Walk(plant, 17, 400);
    plant.QueueRow("2026-03-01 06:00:00", 1, 109, 0, "");
    const std::string file = ToText(folder.path() / "worked.db");
    plant.Execute("vacuum into '" + file + "'");
    return At(file);
  }();
  return options;
}

class LifeTest : public testing::Test {
 protected:
  PlantOptions File(const std::string& name) { return At(ToText(folder_.path() / name)); }
  PlantOptions CopyOfWorked(const std::string& name) {
    PlantOptions copy = File(name);
    for (const char* suffix : {"", "-wal", "-shm"}) fs::remove(copy.plant + suffix);
    fs::copy_file(WorkedPlant().plant, copy.plant);
    return copy;
  }

  // Runs `work` in a process that is killed at the n-th step of its files, for every n up to where the work
  // is done. After each kill `check` is called. Returns how many kills there were.
  int KillAtEachStep(const std::function<void()>& prepare, const std::function<void()>& work,
                     const std::function<void()>& check) {
    for (int n = 1, kills = 0;; n += 1 + (test::IsLongRun() ? 0 : n / 12), ++kills) {
      SCOPED_TRACE(n);
      prepare();
      const pid_t child = fork();
      if (child == 0) {
        test::FaultyVfs vfs;
        vfs.KillAtNth(n);
        try {
          work();
        } catch (const std::exception& error) {
          std::cerr << error.what() << '\n';
          _exit(1);
        }
        _exit(0);
      }
      int status = 0;
      waitpid(child, &status, 0);
      if (WIFEXITED(status)) {
        EXPECT_EQ(WEXITSTATUS(status), 0);
        return kills;
      }
      check();
      if (HasFailure()) return kills;
    }
  }

  const TemporaryFolder folder_;
};

// The tables of the programs, which a plant of before does not have.
void MakeOld(Plant& plant) {
  for (const char* table : {"SETTING", "SOURCE", "SOURCE_STATE", "IMPORT", "SPOOL"})
    plant.Run(std::string("drop table T_SFC_") + table);
  plant.Run("alter table T_SFC_MDC_LOG_ASIDE drop column ERROR_TEXT");
}

TEST_F(LifeTest, UpgradeAddsWhatIsMissing) {
  for (const DatabaseKind kind : {DatabaseKind::kSqlite, DatabaseKind::kPostgres}) {
    test::Plant plant(0, kind);
    const PlantOptions options =
        At(kind == DatabaseKind::kSqlite
               ? plant.database.file()
               : test::TestServer().ConnectionString(plant.database.server_database()));
    {
      Plant old(options);
      MakeOld(old);
      EXPECT_EQ(ReadSchemaVersion(old), 1);
    }
    plant.Run("07:00 job start J1; 08:00 cycle start; 09:00 cycle end");
    const std::string rows = plant.Snapshot();
    EXPECT_NE(Faults(options), "");
    {
      Plant opened(options);
      EXPECT_THROW(RequireCurrentVersion(opened), ToolError);
      EXPECT_EQ(Upgrade(opened).size(), 7U);
      EXPECT_EQ(Upgrade(opened), std::vector<std::string>());
      EXPECT_EQ(ReadSchemaVersion(opened), kSchemaVersion);
    }
    EXPECT_EQ(Faults(options), "");
    EXPECT_EQ(plant.Snapshot(), rows);
    plant.Run("10:00 cycle start");
    {
      Plant opened(options);
      WriteSchemaVersion(opened, kSchemaVersion + 1);
    }
    EXPECT_THROW(Plant{options}, ToolError);
  }
  Plant no_plant(File("none.db"), OpenMode::kCreate);
  EXPECT_THROW(Upgrade(no_plant), ToolError);
}

TEST_F(LifeTest, UpgradeIsWholeOrNot) {
  PlantOptions plant;
  const auto upgrade = [&] {
    Plant opened(plant);
    Upgrade(opened);
  };
  const int kills = KillAtEachStep(
      [&] {
        plant = CopyOfWorked("old.db");
        Plant opened(plant);
        MakeOld(opened);
      },
      upgrade,
      [&] {
        const std::string faults = Faults(plant);
        EXPECT_TRUE(faults.empty() || faults.find("T_SFC_SPOOL") != std::string::npos) << faults;
        upgrade();
        EXPECT_EQ(Faults(plant), "");
      });
  EXPECT_GT(kills, 10);
}

// The processor is at work all the time; every backup is a whole plant of some moment.
TEST_F(LifeTest, BackUpWhileTheProcessorWorks) {
  test::PlantDatabase database(DatabaseKind::kSqlite);
  fs::remove(database.file());
  database.link.Close();
  for (const char* suffix : {"", "-wal", "-shm"}) fs::remove(database.file() + suffix);
  fs::copy_file(WorkedPlant().plant, database.file());
  std::atomic<bool> stop = false;
  std::atomic<int> done = 0;
  std::jthread processor([&] {
    test::Component component;
    ASSERT_TRUE(component.Connect(database.connection_string()).done);
    for (int i = 0; !stop; ++i) {
      ASSERT_TRUE(component.Append({1, 2, 3, 1 + i % 3, 113}, "1", 0).done);
      ASSERT_TRUE(component.Next().done);
      ++done;
    }
  });
  std::int64_t records = 0;
  for (int i = 0; i < 5; ++i) {
    for (const int before = done; done < before + 3;) std::this_thread::yield();
    const PlantOptions backup = File(Concat(i, ".db"));
    int steps = 0;
    const BackupContent content = BackUp(At(database.file()), backup.plant, [&](auto, auto) { ++steps; });
    EXPECT_GT(steps, 0);
    EXPECT_EQ(content.machines, 3);
    EXPECT_GE(content.records, records);
    records = content.records;
    EXPECT_FALSE(fs::exists(backup.plant + "-wal"));
    EXPECT_EQ(Faults(backup), "");
    EXPECT_THROW(BackUp(At(database.file()), backup.plant, kSilent), ToolError);
  }
  stop = true;
}

TEST_F(LifeTest, BackUpIsWholeOrNotThere) {
  const PlantOptions plant = CopyOfWorked("plant.db");
  const PlantOptions backup = File("backup.db");
  const auto back_up = [&] { BackUp(plant, backup.plant, kSilent); };
  const int kills = KillAtEachStep([&] { fs::remove(backup.plant); }, back_up,
                                   [&] {
                                     EXPECT_EQ(Faults(plant), "");
                                     if (!fs::exists(backup.plant)) back_up();
                                     EXPECT_EQ(Faults(backup), "");
                                     for (const char* suffix : {".part", ".part-wal", ".part-journal"})
                                       EXPECT_FALSE(fs::exists(backup.plant + suffix)) << suffix;
                                   });
  EXPECT_GT(kills, 10);
}

const PurgeOptions kPurge = {.before = DateTime(2026, 1, 16)};

PurgeCount PurgeAt(const PlantOptions& options, const PurgeOptions& purge) {
  Plant plant(options);
  return Purge(plant, purge, kSilent);
}

TEST_F(LifeTest, PurgeTakesWhatIsCompleteAndNobodyNeeds) {
  const PlantOptions plant = CopyOfWorked("plant.db");
  EXPECT_THROW(PurgeAt(plant, kPurge), ToolError) << "its version is that of before";
  {
    Plant opened(plant);
    Upgrade(opened);
  }
  const std::string before = Content(plant);
  const auto count = [&](const std::string& from) { return Number(plant, "select count(*) from " + from); };
  constexpr const char* kStaying =
      "T_SFC_MACHINE_DATA where STATUS_CODE <> 2 or STOP_TIME is null or CHART_DATE >= '2026-01-16 00:00:00'";
  const std::int64_t staying = count(kStaying);
  const std::int64_t records = count("T_SFC_MACHINE_DATA");
  const std::int64_t events = count("T_SFC_EVENT");

  const PurgeCount planned = PurgeAt(plant, {kPurge.before, true});
  EXPECT_EQ(Content(plant), before);
  const PurgeCount done = PurgeAt(plant, kPurge);
  EXPECT_EQ(std::tie(done.records, done.downtimes, done.scrap, done.events, done.kept),
            std::tie(planned.records, planned.downtimes, planned.scrap, planned.events, planned.kept));
  EXPECT_GT(done.records, 5);
  EXPECT_GT(std::min({done.downtimes, done.scrap, done.events}), 0);
  EXPECT_GT(done.kept, 5);
  EXPECT_EQ(count("T_SFC_MACHINE_DATA"), records - done.records);
  EXPECT_EQ(count("T_SFC_EVENT"), events - done.events);
  EXPECT_EQ(count(kStaying), staying);

  for (const char* column : {"JOB", "PART", "LOGON", "OP"}) {
    EXPECT_EQ(count(Concat("T_SFC_MACHINE_DATA where ", column,
                           "_DATA_START_ID not in (select MACHINE_DATA_ID from T_SFC_MACHINE_DATA)")),
              0);
  }
  EXPECT_EQ(
      count("T_SFC_DT_PER_MACHINE_DATA where DT_DATA_START_ID not in (select DT_PER_MACHINE_DATA_ID from "
            "T_SFC_DT_PER_MACHINE_DATA) or MACHINE_DATA_ID not in (select MACHINE_DATA_ID from "
            "T_SFC_MACHINE_DATA)"),
      0);
  // What could go is gone: a complete record of before has somebody who needs it.
  EXPECT_EQ(
      count("T_SFC_MACHINE_DATA d where STATUS_CODE = 2 and CHART_DATE < '2026-01-16' and not exists (select "
            "1 from T_SFC_MACHINE_DATA o where o.MACHINE_DATA_ID <> d.MACHINE_DATA_ID and d.MACHINE_DATA_ID "
            "in (o.JOB_DATA_START_ID, o.PART_DATA_START_ID, o.LOGON_DATA_START_ID, o.OP_DATA_START_ID)) and "
            "not exists (select 1 from T_SFC_DT_PER_MACHINE_DATA e join T_SFC_DT_PER_MACHINE_DATA l on "
            "l.DT_DATA_START_ID = e.DT_PER_MACHINE_DATA_ID where e.MACHINE_DATA_ID = d.MACHINE_DATA_ID and "
            "l.MACHINE_DATA_ID <> d.MACHINE_DATA_ID)"),
      0);
  EXPECT_EQ(
      count("T_SFC_EVENT e where STOP_TIME < '2026-01-16' and not exists (select 1 from T_SFC_MACHINE_DATA d "
            "where d.MACHINE_ID = e.MACHINE_ID and d.START_TIME <= e.STOP_TIME and (d.STOP_TIME is null or "
            "d.STOP_TIME > e.START_TIME))"),
      0);
  EXPECT_EQ(Faults(plant), "");
  EXPECT_EQ(PurgeAt(plant, kPurge).records, 0);

  test::FakeHost host;
  test::Component component;
  ASSERT_TRUE(component.Connect(PlantConnectionString(plant.plant)).done);
  EXPECT_EQ(component.Next(), (test::Outcome{true, ""}));
  EXPECT_EQ(Faults(plant), "");
}

TEST_F(LifeTest, PurgeGoesOnAfterAKill) {
  PlantOptions plant;
  const auto prepare = [&] {
    plant = CopyOfWorked("plant.db");
    Plant opened(plant);
    Upgrade(opened);
  };
  prepare();
  PurgeAt(plant, kPurge);
  const std::string purged = Content(plant);
  const int kills = KillAtEachStep(
      prepare, [&] { PurgeAt(plant, kPurge); },
      [&] {
        EXPECT_EQ(Faults(plant), "");
        PurgeAt(plant, kPurge);
        EXPECT_EQ(Content(plant), purged);
      });
  EXPECT_GT(kills, 10);
}

CopyResult CopyAll(const PlantOptions& from, const PlantOptions& to) { return CopyPlant(from, to, kSilent); }

TEST_F(LifeTest, CopyThereAndBack) {
  const PlantOptions start = CopyOfWorked("start.db");
  {
    Plant opened(start);
    Upgrade(opened);
    // A key that was in use, and a table of the site's own.
    opened.Run("insert into T_SFC_MDC_LOG (MDC_LOG_ID) values (5000)");
    opened.Run("delete from T_SFC_MDC_LOG where MDC_LOG_ID = 5000");
    opened.Run("create table T_SITE (X integer)");
    opened.Run("insert into T_SFC_JOB values (3, '')");
    opened.Run("insert into T_SFC_JOB values (4, ?)", {"Zoë \U0001F527 'x' ?"});
  }
  const PlantOptions server = At(test::TestServer().ConnectionString(test::TestServer().CreateDatabase()));
  const CopyResult there = CopyAll(start, server);
  EXPECT_EQ(there.left_out, std::vector<std::string>{"table T_SITE"});
  EXPECT_GT(there.rows, 400);
  EXPECT_EQ(Faults(server), Faults(start));  // of the jobs above
  EXPECT_THROW(CopyAll(start, server), ToolError);
  const PlantOptions back = File("back.db");
  CopyAll(server, back);
  EXPECT_EQ(Content(server), Content(start));
  EXPECT_EQ(Content(back), Content(start));
  for (const PlantOptions& copy : {server, back}) {
    Plant opened(copy);
    opened.Run("insert into T_SFC_MDC_LOG (COMMAND_ID) values (NULL)");
    EXPECT_EQ(opened.Run("select max(MDC_LOG_ID) from T_SFC_MDC_LOG").at(0, 0).ToInt32(), 5001);
  }

  // What the other database cannot hold breaks the copy, and nothing has changed there.
  { Plant(start).Run("update T_SFC_MACHINE_DATA set GOOD_COUNT = 'many' where MACHINE_DATA_ID = 7"); }
  const PlantOptions other = At(test::TestServer().ConnectionString(test::TestServer().CreateDatabase()));
  EXPECT_THROW(CopyAll(start, other), DatabaseError);
  EXPECT_EQ(Number(other, "select count(*) from pg_tables where schemaname = 'public'"), 0);
}

TEST_F(LifeTest, CopyIsWholeOrNothing) {
  const PlantOptions source = CopyOfWorked("source.db");
  {
    Plant opened(source);
    MakeOld(opened);
  }
  const PlantOptions target = File("target.db");
  const auto copy = [&] { CopyAll(source, target); };
  const int kills = KillAtEachStep(
      [&] {
        for (const char* suffix : {"", "-wal", "-shm"}) fs::remove(target.plant + suffix);
      },
      copy,
      [&] {
        if (!fs::exists(target.plant) || Number(target, "select count(*) from sqlite_schema") == 0) copy();
        EXPECT_EQ(Faults(target), "");
        EXPECT_EQ(Number(target, "select count(*) from T_SFC_EVENT"),
                  Number(source, "select count(*) from T_SFC_EVENT"));
        Plant opened(target);
        EXPECT_EQ(ReadSchemaVersion(opened), kSchemaVersion);
      });
  EXPECT_GT(kills, 10);
}

// What the component needs and no more: an account with these rights works events of every kind in.
TEST_F(LifeTest, GrantsAreEnoughForTheComponent) {
  test::Plant plant(0, DatabaseKind::kPostgres);
  const std::string& database = plant.database.server_database();
  Plant owner(At(test::TestServer().ConnectionString(database)));
  owner.Run("create role \"shift 1\" login");
  for (std::string statement : Grants(owner, 0, "shift 1", false)) {
    ASSERT_TRUE(statement.ends_with(';'));
    statement.pop_back();
    owner.Run(statement);
  }
  ASSERT_EQ(plant.component.Connect(test::TestServer().ConnectionString(database, "shift 1")),
            (test::Outcome{true, ""}));
  ASSERT_TRUE(plant.component.Append({1, 2, 3, 1, 113}, "1", 0));
  Walk(plant, 3, 150);
  Plant terminal(At(test::TestServer().ConnectionString(database, "shift 1")));
  EXPECT_THROW(terminal.Run("delete from T_SFC_MACHINE_DATA"), DatabaseError);
  EXPECT_THROW(terminal.Run("update T_SFC_USER set USER_NAME = ''"), DatabaseError);
  EXPECT_THROW(Grants(owner, 0, "o'neil", false), ToolError);
}

TEST_F(LifeTest, DoctorSeesAndRepairs) {
  const PlantOptions plant = CopyOfWorked("plant.db");
  ASSERT_EQ(Faults(plant), "");
  Plant opened(plant);
  for (const char* damage :
       {"update T_SFC_MACHINE_DATA set STOP_TIME = '2026-01-12 06:00:30' where MACHINE_DATA_ID = 4",
        "update T_SFC_MACHINE_DATA set USER_NAME = 'o''neil' where STOP_TIME is null and MACHINE_ID = 2",
        "insert into T_SFC_MACHINE_EVENT values (9000, 9000, 1, 120)",
        "insert into T_SFC_MACHINE_EVENT values (9001, 1, 1, 120), (9002, 2, 1, 120)",
        "insert into T_SFC_EVENT (EVENT_ID, MACHINE_ID) values (9003, 1)",
        "update T_SFC_MACHINE set MACHINE_DATA_ID = 1 where MACHINE_ID = 3"})
    opened.Run(damage);
  const auto found = [&](std::int32_t dialect) {
    std::string text;
    for (const Finding& finding : Examine(opened, dialect)) {
      if (finding.grade != Finding::Grade::kOk)
        Append(text, finding.repair ? "repair " : "", finding.text, "\n");
    }
    return text;
  };
  const std::string text = found(2);
  for (const char* expected :
       {"gap between record 4, which stops at 2026-01-12 06:00:30, and record 5", "\"o'neil\" as USER_NAME",
        "repair row 9000 of T_SFC_MACHINE_EVENT", "command 120 runs 3 times on machine 1",
        "event 9003 of machine 1 never ends", "repair machine 3 points at record 1"})
    EXPECT_NE(text.find(expected), std::string::npos) << expected << '\n' << text;
}

}  // namespace
}  // namespace kx::tool
