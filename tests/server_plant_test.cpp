// The component on PostgreSQL: the same events leave the same rows as on SQLite.

#include <gtest/gtest.h>

#include "component/text.h"
#include "tests/support/plant.h"
#include "tests/support/postgres_server.h"
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

TEST(ServerPlantTest, AppendsAndCounts) {
  for (const int database_type : {0, 1, 2}) {
    SCOPED_TRACE(database_type);
    Plant plant(database_type, DatabaseKind::kPostgres);
    EXPECT_TRUE(plant.component.IsConnected());
    const std::string text = "Zoë \U0001F527 ?{x}" + std::string(4000, 'x');
    EXPECT_EQ(plant.component.Append(1001, 1002, 1003, 1001, 1105, text, 0, true), (Outcome{true, ""}));
    EXPECT_EQ(plant.component.Append(1, 2, 3, 1, -1, "", 0), (Outcome{true, ""}));
    EXPECT_EQ(plant.component.Append(1, 2, 3, 1, -1, "", 0), (Outcome{true, ""}));
    LONG count = 0;
    EXPECT_EQ(plant.component->GetMDCLogCount(&count), S_OK);
    EXPECT_EQ(count, 2);
    EXPECT_EQ(plant.Query("select PARAM1 from T_SFC_MDC_LOG where COMMAND_ID = 105"), text);
    // A statement that fails leaves neither rows nor an open transaction.
    EXPECT_EQ(plant.component.Append(1, 2, 3, 1, 105, "O'Brien", 0), (Outcome{false, ""}));
    EXPECT_EQ(plant.Query("select count(*) from T_SFC_MDC_LOG"), "2");
  }
}

// The server dies between two events and comes back.
TEST(ServerPlantTest, LinkBreaks) {
  Plant plant(0, DatabaseKind::kPostgres);
  plant.Queue("08:00 job start J1; 08:10 cycle start; 08:20 cycle end");
  EXPECT_EQ(plant.component.Next(), (Outcome{true, ""}));
  TestServer().Kill();
  const Outcome lost = plant.component.Next();
  EXPECT_FALSE(lost.done);
  EXPECT_FALSE(lost.error.empty());
  EXPECT_FALSE(plant.component.IsConnected());
  TestServer().Start();
  EXPECT_FALSE(plant.component.IsConnected());
  EXPECT_EQ(plant.component.Connect(plant.connection_string(), 0), (Outcome{true, ""}));
  EXPECT_EQ(plant.component.Next(), (Outcome{true, ""}));
  EXPECT_EQ(plant.component.Next(), (Outcome{true, ""}));
  plant.db.Open(plant.connection_string());
  EXPECT_EQ(plant.Query("select sum(FINISHED_CYCLES) from T_SFC_MACHINE_DATA"), "1");
  EXPECT_EQ(plant.Query("select count(*) from T_SFC_MDC_LOG"), "0");
}

}  // namespace
}  // namespace kx::test
