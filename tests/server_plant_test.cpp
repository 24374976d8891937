// The component on PostgreSQL: the same events leave the same rows as on SQLite, whatever dies meanwhile.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <iostream>
#include <random>
#include <thread>

#include "tests/support/interrupted_event.h"
#include "tests/support/long_run.h"
#include "tests/support/random_walk.h"

namespace kx::test {
namespace {

std::string RowsAfterWalk(Plant& plant, unsigned seed) {
  for (const Step& step : RandomWalk(seed, 150)) {
    plant.QueueRow(step.time.ToText(), step.machine, step.command, step.time_code, step.param);
    const Outcome outcome = plant.component.Next();
    EXPECT_EQ(outcome, (Outcome{true, ""})) << step.command << " " << step.time_code << " " << step.param;
    if (!outcome.done) break;
  }
  return plant.Snapshot();
}

TEST(ServerPlantTest, SameWalkSameRows) {
  for (const int database_type : {0, 1, 2}) {
    SCOPED_TRACE(database_type);
    const unsigned seed = static_cast<unsigned>(database_type) + 11;
    std::string on_server;
    {
      Plant plant(database_type, DatabaseKind::kPostgres);
      on_server = RowsAfterWalk(plant, seed);
    }
    Plant embedded(database_type, DatabaseKind::kSqlite);
    EXPECT_EQ(on_server, RowsAfterWalk(embedded, seed));
  }
}

void Reconnect(Plant& plant) {
  plant.database.OpenLink();
  plant.Connect();
}

// The server's processes are killed just before a call of each handler: the event waits, and after the
// restart it has its effect.
TEST(ServerPlantTest, ServerDiesBeforeACall) {
  int kills = 0;
  int twice = 0;
  int call = 0;
  for (const HandlerCase& handler : InterruptionCases()) {
    SCOPED_TRACE(handler.event);
    InterruptedEvent interrupted(kills % 3, handler, DatabaseKind::kPostgres);
    Plant& plant = interrupted.plant;
    const auto& watch = plant.host.watch;
    for (int n = 1 + call % Stride(25);; n += Stride(25)) {
      interrupted.Restore();
      plant.host.watch.AtNth(n, [] { TestServer().Kill(); });
      const Outcome outcome = plant.component.Next();
      plant.host.watch.Heal();
      if (!watch.failed) {
        call = n;
        break;
      }
      SCOPED_TRACE(watch.failed_sql);
      ++kills;
      EXPECT_FALSE(outcome.done);
      const bool applied = watch.failed_sql.starts_with("delete from T_SFC_MDC_LOG");
      EXPECT_TRUE(applied ? outcome.error.empty()
                          : !outcome.error.empty() || MayDrop(handler, watch.failed_sql));
      if (watch.failed_sql == "commit" && !MayDrop(handler, watch.failed_sql)) {
        EXPECT_NE(outcome.error.find("the outcome of the commit is unknown"), std::string::npos)
            << outcome.error;
      }
      EXPECT_FALSE(plant.component.IsConnected());
      TestServer().Start();
      EXPECT_FALSE(plant.component.IsConnected());
      Reconnect(plant);
      EXPECT_EQ(interrupted.CheckAndFinish(), applied);
      if (applied) ++twice;
    }
  }
  std::cout << kills << " kills before a call, " << twice << " events applied twice\n";
  EXPECT_GT(kills, 20);
}

// What a kill at any moment may leave of good parts reported one by one: each is applied, at most one of them
// twice.
void CheckGoodParts(Plant& plant, int reported, int& twice) {
  const int before = twice;
  const double applied = plant.Number("select count(*) from T_SFC_EVENT where COMMAND_ID = 113");
  twice = static_cast<int>(applied + plant.Number("select count(*) from T_SFC_MDC_LOG")) - reported;
  EXPECT_GE(twice, before);
  EXPECT_LE(twice, before + 1);
  EXPECT_EQ(plant.Number("select sum(GOOD_COUNT) from T_SFC_MACHINE_DATA"), applied);
  EXPECT_EQ(plant.Breaches(), "");
}

void QueueGoodParts(Plant& plant, int count, int& reported) {
  plant.db.Begin();
  for (int i = 0; i < count; ++i) plant.QueueRow(Moment("08:00"), 1, 113, 0, "1");
  plant.db.Commit();
  reported += count;
}

TEST(ServerPlantTest, ServerDiesAtAnyMoment) {
  std::mt19937 random(5);
  Plant plant(0, DatabaseKind::kPostgres);
  plant.Run("07:00 part start P1");
  int reported = 0;
  int twice = 0;
  const int kills = IsLongRun() ? 500 : 12;
  for (int kill = 1; kill <= kills; ++kill) {
    QueueGoodParts(plant, 200, reported);
    std::thread killer([delay = std::chrono::microseconds(random() % 100'000)] {
      std::this_thread::sleep_for(delay);
      TestServer().Kill();
    });
    while (plant.component.Next().done) continue;
    killer.join();
    EXPECT_FALSE(plant.component.Next().error.empty());
    EXPECT_FALSE(plant.component.IsConnected());
    TestServer().Start();
    Reconnect(plant);
    CheckGoodParts(plant, reported, twice);
  }
  plant.ProcessAll();
  CheckGoodParts(plant, reported, twice);
  std::cout << kills << " kills at any moment, " << twice << " events applied twice\n";
}

TEST(ServerPlantTest, ClientDiesAtAnyMoment) {
  std::mt19937 random(6);
  Plant plant(0, DatabaseKind::kPostgres);
  plant.Run("07:00 part start P1");
  int reported = 0;
  int twice = 0;
  const int kills = IsLongRun() ? 500 : 30;
  for (int count = 1; count <= kills; ++count) {
    QueueGoodParts(plant, 40, reported);
    const pid_t client = fork();
    if (client == 0) {
      Component component;
      if (!component.Connect(plant.connection_string(), kxdata7::Dialect{0}).done) _exit(1);
      for (;;) component.Next();
    }
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 100'000));
    kill(client, SIGKILL);
    int status = 0;
    waitpid(client, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status)) << "the client ended by itself";
    // The server may still be at the client's last statement.
    plant.database.EndOtherLinks();
    CheckGoodParts(plant, reported, twice);
  }
  plant.Connect();
  plant.ProcessAll();
  CheckGoodParts(plant, reported, twice);
  std::cout << kills << " kills of a client, " << twice << " events applied twice\n";
}

}  // namespace
}  // namespace kx::test
