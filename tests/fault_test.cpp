// What must be withstood: each statement failing once, a busy database, and plants that are wrong.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>

#include "component/text.h"
#include "tests/support/plant.h"

namespace kx::test {
namespace {

using Commits = int;

class FaultTest : public testing::TestWithParam<int> {
 protected:
  Plant plant{GetParam()};
};

INSTANTIATE_TEST_SUITE_P(DatabaseTypes, FaultTest, testing::Values(0, 1, 2));

struct HandlerCase {
  const char* before;
  const char* event;
  const char* message;
  // How many transactions commit before the handler's own and stay: the automatic part start or end.
  Commits stay = 0;
  bool keeps_row = true;  // a logon end goes whatever happens
};

constexpr HandlerCase kHandlers[] = {
    {"07:00 logon start anna", "08:00 logon start bert", "Logon Start"},
    {"07:00 logon start anna", "08:00 logon end", "", 0, false},
    {"07:00 job start J2", "08:00 job start X", "Job Start"},
    {"07:00 job start J2", "08:00 job end", "Job End"},
    {"07:00 cycle start", "08:00 part start P1", "Part Start"},
    {"07:00 cycle start", "08:00 part end", "Part End"},
    {"07:00 op start X", "08:00 op start O10", "Operation Start"},
    {"07:00 op start X", "08:00 op end", "Operation End"},
    {"07:00 down start D1; 07:10 userdown start", "08:00 setup start", "Setup Start"},
    {"07:00 setup start", "08:00 setup end", "Setup End"},
    {"07:00 down start D1", "08:00 teardown start", "Teardown Start"},
    {"07:00 teardown start", "08:00 teardown end", "Teardown End"},
    {"07:00 cycle start", "08:00 down start X", "Machine Downtime Start"},
    {"07:00 down start D2", "08:00 down end", "Machine Downtime End"},
    {"07:00 cycle start", "08:00 userdown start X", "User Downtime Start"},
    {"07:00 userdown start X", "08:00 userdown end", "User Downtime End"},
    {"07:00 part start P1; 07:10 setup start", "14:30 cycle start", "Cycle Start"},
    {"07:00 cycle start", "14:30 cycle end", "Cycle End"},
    {"07:00 part start P1", "08:00 good 3", "Good Part Count"},
    {"07:00 part start P1", "08:00 scrap 3.X", "Scrapped Part Count"},
    {"", "08:00 good 3", "Good Part Count", 1},
    {"", "08:00 cycle start", "Cycle Start", 1},
    {"07:00 door start", "08:00 door start x", "Custom Start"},
    {"07:00 door start", "08:00 door end", "Custom End"},
    {"07:00 part start P1", "08:00 door both x", "Custom Both"},
};

std::string Locked(const char* message) {
  return Concat(message, " failed because the database is currently locked.");
}

// Each call of the engine fails once: the plant is as it was but for what is committed before, the row waits,
// the object goes on, and the event then has its full effect.
TEST_P(FaultTest, EveryCallOfEveryHandlerFailsOnce) {
  for (const HandlerCase& handler : kHandlers) {
    SCOPED_TRACE(handler.event);
    Plant clean(GetParam());
    clean.Run(handler.before);
    clean.Queue(handler.event);
    const std::string before = clean.Snapshot();
    clean.Save();
    clean.Execute("delete from T_SFC_MDC_LOG");
    const std::string dropped = clean.Snapshot();
    clean.Restore();
    ASSERT_EQ(clean.component.Next(), (Outcome{true, ""}));
    const std::string after = clean.Snapshot();

    int n = 1;
    for (;; ++n) {
      SCOPED_TRACE(n);
      clean.Restore();
      auto& watch = clean.host.watch;
      watch.begins = watch.commits_done = 0;
      watch.FailNth(n, n % 2 == 0 ? ErrorCategory::kBusy : ErrorCategory::kGeneral);
      const Outcome outcome = clean.component.Next();
      watch.Heal();
      if (!watch.failed) break;
      const bool untouched = clean.Snapshot() == before;
      if (outcome.done) {
        // Trapped where an error is no failure (the search for a new shift) or tried again (a transaction):
        // the full effect. Only a logon end, and a cycle start at the machine downtime's event, lose theirs.
        ASSERT_EQ(outcome.error, "");
        const bool may_drop =
            !handler.keeps_row || (handler.message == std::string_view("Cycle Start") &&
                                   watch.failed_sql.find("MACHINE_EVENT") != std::string::npos);
        const std::string rows = clean.Snapshot();
        if (rows != after && may_drop && watch.commits_done == handler.stay) {
          EXPECT_TRUE(handler.stay > 0 || rows == dropped) << watch.failed_sql;
          EXPECT_EQ(clean.Breaches(), "");
        } else {
          EXPECT_EQ(rows, after) << watch.failed_sql;
        }
        continue;
      }
      if (outcome.error.empty()) {
        // Applied, the row not deleted.
        EXPECT_TRUE(watch.failed_sql.starts_with("delete from T_SFC_MDC_LOG")) << watch.failed_sql;
        EXPECT_EQ(clean.Query("select count(*) from T_SFC_MDC_LOG"), "1");
        clean.Execute("delete from T_SFC_MDC_LOG");
        EXPECT_EQ(clean.Snapshot(), after);
        continue;
      }
      EXPECT_TRUE(outcome.error == kInjected || outcome.error == Locked(handler.message) ||
                  (handler.stay > 0 && outcome.error == Locked("Part Start")))
          << outcome.error;
      // A job start asks for the option after its commit: the job change stays and is made again.
      const bool job_stays =
          watch.commits_done == 1 && watch.failed_sql.starts_with("select * from T_SFC_OPTION");
      EXPECT_TRUE(untouched || job_stays || (handler.stay > 0 && watch.commits_done == handler.stay))
          << watch.failed_sql;
      EXPECT_EQ(clean.Query("select count(*) from T_SFC_MDC_LOG"), "1");
      ASSERT_EQ(clean.component.Next(), (Outcome{true, ""}));
      if (!job_stays) {
        EXPECT_EQ(clean.Snapshot(), after);
      }
      EXPECT_EQ(clean.Breaches(), "");
    }
    EXPECT_GT(n, 5);
  }
}

// While nothing can be begun or committed, each handler says so in its own words after twelve attempts.
TEST_P(FaultTest, LockedDatabase) {
  for (const HandlerCase& handler : kHandlers) {
    if (!handler.keeps_row || handler.stay > 0) continue;
    SCOPED_TRACE(handler.event);
    Plant locked(GetParam());
    locked.Run(handler.before);
    locked.Queue(handler.event);
    const std::string before = locked.Snapshot();
    for (const EngineCall call : {EngineCall::kBegin, EngineCall::kCommit}) {
      int attempts = 0;
      locked.host.watch.before = [&](EngineCall made, std::string_view) {
        if (made != call) return;
        ++attempts;
        throw DatabaseError("locked", ErrorCategory::kBusy);
      };
      EXPECT_EQ(locked.component.Next(), (Outcome{false, Locked(handler.message)}));
      EXPECT_EQ(attempts, 12);
      EXPECT_EQ(locked.Snapshot(), before);
    }
    locked.host.watch.Heal();
    EXPECT_EQ(locked.component.Next(), (Outcome{true, ""}));
  }
}

// Another session really holds the write lock.
TEST_P(FaultTest, AnotherWriter) {
  plant.component.Connect(plant.connection_string() + ";Busy Timeout=0", GetParam());
  plant.Queue("08:00 job start J1");
  plant.db.Begin();
  EXPECT_EQ(plant.component.Next(), (Outcome{false, Locked("Job Start")}));
  EXPECT_EQ(plant.component.Append(1, 2, 3, 1, 109, "", 0),
            (Outcome{false, "Append Item To Log failed because a transaction could not be started."}));
  EXPECT_TRUE(plant.component.IsConnected());
  plant.db.Rollback();
  EXPECT_EQ(plant.component.Next(), (Outcome{true, ""}));
}

TEST_P(FaultTest, RefreshStepByStep) {
  plant.Queue("Wed 12:00 refresh");
  plant.host.watch.FailAll(EngineCall::kBegin, ErrorCategory::kBusy);
  EXPECT_EQ(plant.component.Next(), (Outcome{false, "Refresh Machine Status failed."}));
  // The third commit fails for good: two steps stay.
  int commits = 0;
  plant.host.watch.before = [&](EngineCall call, std::string_view) {
    if (call == EngineCall::kCommit && ++commits > 2) throw DatabaseError("full");
  };
  EXPECT_EQ(plant.component.Next(), (Outcome{false, "Refresh Machine Status failed."}));
  plant.host.watch.Heal();
  EXPECT_EQ(plant.Query("select count(*) from T_SFC_MACHINE_DATA where MACHINE_ID = 1"), "3");
  EXPECT_EQ(plant.Breaches(), "");
  EXPECT_EQ(plant.component.Next(), (Outcome{true, ""}));
  EXPECT_EQ(plant.Query("select max(START_TIME) from T_SFC_MACHINE_DATA where MACHINE_ID = 1"),
            "2026-01-14 06:00:00");
}

// Rows that can never be applied: a clear text, nothing changed, the object usable.
TEST_P(FaultTest, WrongPlants) {
  constexpr const char* kNoRow = "Either BOF or EOF is true, or the current record has been deleted.";
  const struct {
    const char* change;
    const char* event;
    std::string error;
  } cases[] = {
      {"update T_SFC_MACHINE set MACHINE_DATA_ID = null", "08:00 cycle start", kNoRow},
      {"update T_SFC_MACHINE set MACHINE_DATA_ID = 99", "08:00 job end", kNoRow},
      {"delete from T_SFC_MACHINE where MACHINE_ID = 1", "08:00 setup start", kNoRow},
      {"delete from T_SFC_MACHINE where MACHINE_ID = 1", "08:00 refresh", kNoRow},
      {"update T_SFC_MACHINE_DATA set SHIFT_END = null", "08:00 down start", "Invalid use of Null"},
      {"update T_SFC_MACHINE_DATA set START_TIME = null", "08:00 part end", "Invalid use of Null"},
      {"update T_SFC_MACHINE_DATA set SHIFT_END = 'soon'", "08:00 part end", "Type mismatch"},
      {"update T_SFC_MDC_LOG set MACHINE_ID = null", "08:00 part end", "Invalid use of Null"},
      {"update T_SFC_MDC_LOG set TIME_STAMP = null", "08:00 part end", "Invalid use of Null"},
      {"delete from T_SFC_SHIFT", "Tue 08:00 refresh", "Overflow: no shift ever starts for machine 1"},
      {"update T_SFC_INTERVAL set STOP_TIME = START_TIME, IS_SWING = 1", "Tue 08:00 refresh",
       "The shift calendar of machine 1 does not advance at 2026-01-12 14:00:00"},
      {"delete from T_SFC_OPTION", "08:00 job end", kNoRow},
  };
  plant.Save();
  for (const auto& test : cases) {
    SCOPED_TRACE(test.change);
    plant.Restore();
    plant.Queue(test.event);
    plant.Execute(test.change);
    const Outcome outcome = plant.component.Next();
    EXPECT_FALSE(outcome.done);
    EXPECT_EQ(outcome.error, test.error);
    EXPECT_EQ(plant.Query("select count(*) from T_SFC_MDC_LOG"), "1");
    EXPECT_EQ(plant.component.Next(), outcome);
    plant.db.Begin();  // no transaction is left open
    plant.db.Rollback();
  }
}

TEST_P(FaultTest, TextsWithApostrophes) {
  for (const char* event :
       {"08:00 job start O'Brien", "08:00 op start O'Brien", "08:00 part start O'Brien",
        "08:00 logon start O'Brien", "08:00 down start O'Brien", "08:00 scrap 1.O'Brien"}) {
    SCOPED_TRACE(event);
    plant.Queue("07:00 part start P1");
    plant.ProcessAll();
    plant.Queue(event);
    const std::string before = plant.Snapshot();
    const Outcome outcome = plant.component.Next();
    EXPECT_FALSE(outcome.done);
    EXPECT_FALSE(outcome.error.empty());
    EXPECT_EQ(plant.Snapshot(), before);
    plant.Execute("delete from T_SFC_MDC_LOG");
  }
}

TEST(ConnectTest, WhatIsNoPlant) {
  TemporaryFolder folder;
  FakeHost host;
  const std::string prefix = "Provider=SQLite;Data Source=" + (folder.path() / "").string();
  std::ofstream(folder.path() / "text") << std::string(5000, 'x');
  std::ofstream(folder.path() / "empty").flush();
  Component component;
  EXPECT_FALSE(component.IsConnected());
  const std::string closed = "Operation is not allowed when the object is closed.";
  EXPECT_EQ(component.Next(), (Outcome{false, closed}));
  EXPECT_EQ(component.Append(1, 1, 1, 1, 1, "", 0), (Outcome{false, closed}));
  for (const char* name : {"missing", "text", ""}) {
    const Outcome outcome = component.Connect(prefix + name, 2);
    EXPECT_FALSE(outcome.done || outcome.error.empty()) << name;
    EXPECT_FALSE(component.IsConnected());
  }
  // A database without the tables is a connection, but not to a plant.
  EXPECT_EQ(component.Connect(prefix + "empty", 7), (Outcome{true, ""}));
  EXPECT_FALSE(component.IsConnected());
  EXPECT_EQ(component.Next(), (Outcome{false, "Type mismatch"}));
  EXPECT_EQ(component.Append(1, 1, 1, 1, 1, "", 0), (Outcome{false, "Type mismatch"}));
  EXPECT_EQ(component.Connect(prefix + "empty", 0), (Outcome{true, ""}));
  EXPECT_EQ(component.Next(), (Outcome{false, "no such table: T_SFC_MDC_LOG"}));
}

// As an account that may only read, which root never is: in a process of its own.
TEST(ConnectTest, ReadOnlyFile) {
  Plant plant(0);
  plant.Queue("08:00 job end");
  plant.component.Connect("Provider=SQLite;Data Source=:memory:", 0);
  plant.db.Close();
  std::filesystem::permissions(plant.file(),
                               std::filesystem::perms::owner_read | std::filesystem::perms::others_read);
  std::filesystem::permissions(std::filesystem::path(plant.file()).parent_path(),
                               std::filesystem::perms(0555));
  const pid_t child = fork();
  if (child == 0) {
    if (getuid() == 0 && setuid(65534) != 0) _exit(9);
    Component component;
    const Outcome connected = component.Connect(plant.connection_string(), 0);
    const Outcome outcome = component.Next();
    _exit(!outcome.done && !outcome.error.empty() && (connected.done || !connected.error.empty()) ? 0 : 1);
  }
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

}  // namespace
}  // namespace kx::test
