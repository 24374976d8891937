// The component on PostgreSQL: the same events leave the same rows as on SQLite.

#include <gtest/gtest.h>

#include "component/text.h"
#include "tests/support/plant.h"
#include "tests/support/postgres_server.h"
#include "tests/support/random_walk.h"

namespace kx::test {
namespace {

class ServerPlantTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { server = std::make_unique<PostgresServer>(); }
  static void TearDownTestSuite() { server.reset(); }
  static std::string NewDatabase() { return server->ConnectionString(server->CreateDatabase()); }
  static inline std::unique_ptr<PostgresServer> server;
};

// A record's place among all records: a rolled back insert leaves a gap in the keys of a server's sequence.
std::string Place(std::string_view column) {
  return Concat("(select count(*) from T_SFC_MACHINE_DATA k where k.MACHINE_DATA_ID <= ", column, ")");
}

// The rows of all tables, records named by their place.
std::string RowsByPlace(Plant& plant) {
  std::string record_columns;
  for (const char* column : {"START_TIME",      "STOP_TIME",        "MACHINE_ID",          "STATUS_CODE",
                             "IS_MANUAL",       "SETUP_START_TIME", "TEARDOWN_START_TIME", "CYCLE_START_TIME",
                             "IDLE_START_TIME", "SETUP_TIME",       "TEARDOWN_TIME",       "CYCLE_TIME",
                             "IDLE_TIME",       "FINISHED_CYCLES",  "UNFINISHED_CYCLES",   "GOOD_COUNT",
                             "SCRAPPED_COUNT",  "SHIFT_ID",         "CHART_DATE",          "SHIFT_END",
                             "JOB_ID",          "JOB_NUMBER",       "PART_TYPE_ID",        "PART_ID",
                             "PART_NUMBER",     "USER_ID",          "USER_NAME",           "OP_ID",
                             "OP_NUMBER"}) {
    Append(record_columns, column, ", ");
  }
  for (const char* column :
       {"d.JOB_DATA_START_ID", "d.PART_DATA_START_ID", "d.LOGON_DATA_START_ID", "d.OP_DATA_START_ID"}) {
    Append(record_columns, Place(column), ", ");
  }
  std::string rows;
  for (const std::string& query :
       {Concat("select MACHINE_ID, STATUS_CODE, STATUS_DATE, ", Place("m.MACHINE_DATA_ID"),
               " from T_SFC_MACHINE m order by 1"),
        Concat("select ", record_columns, Place("d.MACHINE_DATA_ID"),
               " from T_SFC_MACHINE_DATA d order by d.MACHINE_DATA_ID"),
        Concat("select START_TIME, STOP_TIME, DURATION, DOWNTIME_TYPE_CODE, DOWNTIME_CODE_ID, DT_NUMBER, "
               "case when "
               "DT_DATA_START_ID is null then 0 else 1 end, ",
               Place("t.MACHINE_DATA_ID"),
               " from T_SFC_DT_PER_MACHINE_DATA t order by DT_PER_MACHINE_DATA_ID"),
        Concat("select START_TIME, QTY, SCRAP_CODE_ID, SCRAP_CODE_NUMBER, SCRAP_DATA_START_ID, ",
               Place("t.MACHINE_DATA_ID"),
               " from T_SFC_SCRAP_PER_MACHINE_DATA t order by SCRAP_PER_MACHINE_DATA_ID"),
        std::string("select * from T_SFC_EVENT order by 1"),
        std::string("select * from T_SFC_MACHINE_EVENT order by 1"),
        std::string("select * from T_SFC_MDC_LOG order by 1")}) {
    Append(rows, plant.Query(query), "\n");
  }
  return rows;
}

std::string RowsAfterWalk(Plant& plant, unsigned seed) {
  for (const Step& step : RandomWalk(seed, 150)) {
    plant.QueueRow(step.time.ToText(), step.machine, step.command, step.time_code, step.param);
    const Outcome outcome = plant.component.Next();
    EXPECT_EQ(outcome, (Outcome{true, ""})) << step.command << " " << step.time_code << " " << step.param;
    if (!outcome.done) break;
  }
  return RowsByPlace(plant);
}

TEST_F(ServerPlantTest, SameWalkSameRows) {
  for (const int database_type : {0, 1, 2}) {
    SCOPED_TRACE(database_type);
    const unsigned seed = static_cast<unsigned>(database_type) + 11;
    std::string on_server;
    {
      Plant plant(database_type, NewDatabase());
      on_server = RowsAfterWalk(plant, seed);
    }
    Plant embedded(database_type);
    EXPECT_EQ(on_server, RowsAfterWalk(embedded, seed));
  }
}

TEST_F(ServerPlantTest, AppendsAndCounts) {
  for (const int database_type : {0, 1, 2}) {
    SCOPED_TRACE(database_type);
    Plant plant(database_type, NewDatabase());
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
TEST_F(ServerPlantTest, LinkBreaks) {
  Plant plant(0, NewDatabase());
  plant.Queue("08:00 job start J1; 08:10 cycle start; 08:20 cycle end");
  EXPECT_EQ(plant.component.Next(), (Outcome{true, ""}));
  server->Kill();
  const Outcome lost = plant.component.Next();
  EXPECT_FALSE(lost.done);
  EXPECT_FALSE(lost.error.empty());
  EXPECT_FALSE(plant.component.IsConnected());
  server->Start();
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
