// What each event changes.

#include <gtest/gtest.h>

#include "tests/support/plant.h"

namespace kx::test {
namespace {

class HandlersTest : public testing::TestWithParam<int> {
 protected:
  struct Case {
    const char* script;
    const char* rows;
  };

  // Runs each script on the plant as it is now and compares what `query` then reads.
  void Check(const char* query, std::initializer_list<Case> cases) {
    plant.Save();
    for (const Case& test : cases) {
      SCOPED_TRACE(test.script);
      plant.Restore();
      plant.Run(test.script);
      EXPECT_EQ(plant.Query(query), test.rows);
      EXPECT_EQ(plant.Breaches(), "");
    }
  }

  Plant plant{GetParam()};
};

INSTANTIATE_TEST_SUITE_P(DatabaseTypes, HandlersTest, testing::ValuesIn(TestedTypes()));

TEST_P(HandlersTest, GoodParts) {
  plant.Run("08:00 part start P1");
  Check(
      "select GOOD_COUNT, SCRAPPED_COUNT, PARAM1, e.START_TIME = e.STOP_TIME from T_SFC_MACHINE_DATA d, "
      "T_SFC_EVENT e where d.MACHINE_ID = 1 and d.STOP_TIME is null and e.COMMAND_ID = 113",
      {{"09:00 good", "1|0|1|1"},
       {"09:00 good abc", "1|0|1|1"},
       {"09:00 good 1,000", "1|0|1|1"},
       {"09:00 good 0", "1|0|1|1"},
       {"09:00 good -4", "1|0|1|1"},
       {"09:00 good 7", "7|0|7|1"},
       {"09:00 good 1e2", "100|0|1e2|1"},
       {"09:00 good 2.5", "2|0|2|1"},
       {"09:00 good 3.5", "4|0|4|1"},
       {"09:00 good 0.4", "0|0|0|1"},
       {"09:00 good -1.5", "-2|0|-2|1"}});
  // Beyond 16 bits.
  for (const char* param : {"32768", "-32769", "1e400"}) {
    plant.QueueRow(Moment("09:00"), 1, 113, 0, param);
    EXPECT_EQ(plant.component.Next(), (Outcome{false, "Overflow"})) << param;
    plant.Execute("delete from T_SFC_MDC_LOG");
  }
}

TEST_P(HandlersTest, ScrappedParts) {
  plant.Run("08:00 part start P1");
  constexpr const char* kScrap =
      "select GOOD_COUNT, SCRAPPED_COUNT, QTY, SCRAP_CODE_ID, SCRAP_CODE_NUMBER, SCRAP_DATA_START_ID, "
      "PARAM1, "
      "e.START_TIME = e.STOP_TIME, s.MACHINE_DATA_ID = d.MACHINE_DATA_ID, substr(s.START_TIME, 12) "
      "from T_SFC_MACHINE_DATA d, T_SFC_EVENT e, T_SFC_SCRAP_PER_MACHINE_DATA s where d.MACHINE_ID = 1 and "
      "d.STOP_TIME is null and e.COMMAND_ID = 114";
  Check(kScrap, {{"09:00 scrap", "0|1|1|2|-|-|-|1|1|09:00:00"},
                 {"09:00 scrap 5.17", "0|5|5|1|-|-|5.17|1|1|09:00:00"},
                 {"09:00 scrap .17", "0|1|1|1|-|-|.17|1|1|09:00:00"},
                 {"09:00 scrap x.17", "0|1|1|1|-|-|x.17|1|1|09:00:00"},
                 {"09:00 scrap 0", "0|0|0|2|-|-|0|1|1|09:00:00"},
                 {"09:00 scrap -2", "-2|2|2|2|-|-|-2|1|1|09:00:00"},
                 {"09:00 scrap 2.007", "0|2|2|-|007|1|2.007|1|1|09:00:00"},
                 {"09:00 scrap 2.5.17", "0|2|2|-|5.17|1|2.5.17|1|1|09:00:00"},
                 {"09:00 scrap 1.Späne", "0|1|1|-|Späne|1|1.Späne|1|1|09:00:00"}});
  plant.Restore();
  plant.Execute("update T_SFC_SCRAP_CODE set SCRAP_CODE_TYPE_CODE = 1 where SCRAP_CODE_ID = 1");
  plant.Execute("delete from T_SFC_SCRAP_CODE where SCRAP_CODE_ID = 2");
  Check(kScrap, {{"09:00 scrap 3", "0|3|3|1|-|-|3|1|1|09:00:00"}});
  plant.Queue("09:30 scrap -32768");
  EXPECT_EQ(plant.component.Next(), (Outcome{false, "Overflow"}));
}

TEST_P(HandlersTest, ProductionWithoutPartStartsOne) {
  constexpr const char* kParts =
      "select PART_ID, PART_NUMBER, PART_DATA_START_ID = MACHINE_DATA_ID, STATUS_CODE, GOOD_COUNT, "
      "SCRAPPED_COUNT "
      "from T_SFC_MACHINE_DATA where MACHINE_ID = 1 order by MACHINE_DATA_ID";
  Check(kParts, {{"08:00 good 3", "-|-|-|2|0|0;-|-|1|0|3|0"},
                 {"08:00 scrap 2", "-|-|-|2|0|0;-|-|1|0|0|2"},
                 {"08:00 cycle start", "-|-|-|2|0|0;-|-|1|0|0|0"},
                 {"08:00 good 3; 08:01 good 2", "-|-|-|2|0|0;-|-|1|0|5|0"}});
}

// One record for each change of context: what it holds and whether the one before became complete.
TEST_P(HandlersTest, JobsPartsOperations) {
  Check(
      "select substr(START_TIME, 12, 5), STATUS_CODE, JOB_ID, JOB_NUMBER, JOB_DATA_START_ID, OP_ID, "
      "OP_NUMBER, "
      "OP_DATA_START_ID, PART_TYPE_ID, PART_ID, PART_NUMBER, PART_DATA_START_ID from T_SFC_MACHINE_DATA "
      "where MACHINE_ID = 1 and MACHINE_DATA_ID > 3 order by MACHINE_DATA_ID",
      {{"08:00 job start J1; 08:10 job end", "08:00|2|1|-|-|-|-|-|-|-|-|-;08:10|0|-|-|-|-|-|-|-|-|-|-"},
       {"08:00 job start Übung; 08:10 job start J2",
        "08:00|1|-|Übung|4|-|-|-|-|-|-|-;08:10|0|2|-|-|-|-|-|-|-|-|-"},
       {"08:00 op start O20; 08:10 op start 007",
        "08:00|2|-|-|-|2|-|-|-|-|-|-;08:10|0|-|-|-|-|007|5|-|-|-|-"},
       {"08:00 op start X; 08:05 job start J1; 08:10 op end",
        "08:00|1|-|-|-|-|X|4|-|-|-|-;08:05|1|1|-|-|-|X|4|-|-|-|-;08:10|0|1|-|-|-|-|-|-|-|-|-"},
       {"08:00 part start P2; 08:10 part end", "08:00|2|-|-|-|-|-|-|8|2|-|-;08:10|0|-|-|-|-|-|-|-|-|-|-"},
       {"08:00 part start p2; 08:10 part start", "08:00|1|-|-|-|-|-|-|-|-|p2|4;08:10|0|-|-|-|-|-|-|-|-|-|5"},
       {"08:00 job end", "08:00|0|-|-|-|-|-|-|-|-|-|-"}});
}

TEST_P(HandlersTest, JobsStartAndEndTheirPart) {
  plant.Execute("update T_SFC_OPTION set BOOL_VAL = 1 where OPTION_CODE = 1");
  constexpr const char* kJobs =
      "select substr(START_TIME, 12, 5), JOB_ID, PART_ID from T_SFC_MACHINE_DATA where MACHINE_ID = 1 and "
      "MACHINE_DATA_ID > 3 order by MACHINE_DATA_ID";
  Check(kJobs, {{"08:00 job start J1; 09:00 job end", "08:00|1|-;08:00|1|2;09:00|1|-;09:00|-|-"},
                {"08:00 job start J2; 09:00 job end", "08:00|2|-;09:00|-|-"}});
  plant.Restore();
  // A part that a job starts does not cut a running cycle short.
  Check("select sum(UNFINISHED_CYCLES), sum(CYCLE_TIME), max(CYCLE_START_TIME) from T_SFC_MACHINE_DATA",
        {{"08:00 part start P1; 08:10 cycle start; 08:20 job start J1", "0|10|2026-01-12 08:20:00"},
         {"08:00 part start P1; 08:10 cycle start; 08:20 part start P2", "1|10|-"}});
}

TEST_P(HandlersTest, PartChangeAndWork) {
  // Setup, teardown and downtime go on over the change; a cycle does not.
  Check(
      "select sum(CYCLE_TIME), sum(UNFINISHED_CYCLES), sum(SETUP_TIME), max(SETUP_START_TIME), "
      "sum(IDLE_TIME), "
      "max(IDLE_START_TIME), (select STATUS_CODE from T_SFC_MACHINE where MACHINE_ID = 1), (select count(*) "
      "from "
      "T_SFC_MACHINE_EVENT where COMMAND_ID != 106) from T_SFC_MACHINE_DATA",
      {{"08:00 part start P1; 08:10 cycle start; 08:20 part end", "10|1|0|-|0|2026-01-12 08:20:00|0|0"},
       {"08:00 setup start; 08:30 part start P1", "0|0|0.5|2026-01-12 08:30:00|0|-|1|1"}});
}

TEST_P(HandlersTest, SetupAndTeardown) {
  Check(
      "select SETUP_TIME, TEARDOWN_TIME, IDLE_TIME, CYCLE_TIME, UNFINISHED_CYCLES, substr(SETUP_START_TIME, "
      "12, 5), "
      "substr(TEARDOWN_START_TIME, 12, 5), substr(IDLE_START_TIME, 12, 5), m.STATUS_CODE from T_SFC_MACHINE "
      "m "
      "join T_SFC_MACHINE_DATA d on d.MACHINE_DATA_ID = m.MACHINE_DATA_ID where m.MACHINE_ID = 1",
      {{"08:00 setup start", "0|0|0|0|0|08:00|-|-|1"},
       {"08:00 setup start; 08:30 setup end; 09:00 setup start", "0.5|0|0.5|0|0|09:00|-|-|1"},
       {"08:00 setup start; 08:30 setup start; 09:00 setup end", "1|0|0|0|0|-|-|09:00|0"},
       {"08:00 setup start; 08:30 teardown start; 09:00 teardown end", "0.5|0.5|0|0|0|-|-|09:00|0"},
       {"08:00 teardown start; 08:30 setup end", "0|0|0|0|0|-|08:00|-|4"},
       {"08:00 setup end; 08:01 teardown end", "0|0|0|0|0|-|-|-|0"},
       {"08:00 cycle start; 08:10 setup start", "0|0|0|10|1|08:10|-|-|1"},
       {"08:00 cycle start; 08:10 cycle end; 08:40 teardown start", "0|0|0.5|10|0|-|08:40|-|4"}});
}

TEST_P(HandlersTest, Downtimes) {
  Check(
      "select t.MACHINE_DATA_ID, substr(t.START_TIME, 12, 5), substr(t.STOP_TIME, 12, 5), DURATION, "
      "DOWNTIME_TYPE_CODE, DOWNTIME_CODE_ID, DT_NUMBER, DT_DATA_START_ID, (select STATUS_CODE from "
      "T_SFC_MACHINE "
      "where MACHINE_ID = 1), substr(d.IDLE_START_TIME, 12, 5) from T_SFC_DT_PER_MACHINE_DATA t join "
      "T_SFC_MACHINE_DATA d on d.MACHINE_DATA_ID = t.MACHINE_DATA_ID order by t.DT_PER_MACHINE_DATA_ID",
      {{"08:00 down start D0; 09:30 down end", "1|08:00|09:30|1.5|0|1|-|-|0|09:30"},
       {"08:00 userdown start D1; 09:30 userdown end", "1|08:00|09:30|1.5|1|2|-|-|0|-"},
       {"08:00 down start D1", "1|08:00|-|0|0|-|D1|1|3|-"},
       {"08:00 userdown start D2", "1|08:00|-|0|1|3|-|-|0|-"},
       {"08:00 down start", "1|08:00|-|0|0|-|-|1|3|-"},
       {"08:00 down start D0; 08:10 userdown start D1; 08:30 userdown end; 09:00 down start D2",
        "1|08:00|09:00|1|0|1|-|-|3|-;1|08:10|08:30|0.3333333432674408|1|2|-|-|3|-;1|09:00|-|0|0|3|-|-|3|-"},
       {"08:00 down start D0; 08:10 userdown start D1; 09:00 setup start",
        "1|08:00|09:00|1|0|1|-|-|1|-;1|08:10|09:00|0.8333333134651184|1|2|-|-|1|-"},
       // Carried over a change of job, with the stops as of the change.
       {"08:00 down start D0; 08:30 job start J1; 09:30 down end",
        "1|08:00|08:30|0.5|0|1|-|-|0|-;4|08:30|09:30|1|0|1|-|-|0|09:30"},
       // Ends that do not apply.
       {"08:00 down end; 08:05 userdown end", ""},
       {"08:00 userdown start D1; 08:30 down end", "1|08:00|-|0|1|2|-|-|0|-"}});
}

TEST_P(HandlersTest, EndsThatDoNotApplyChangeNothing) {
  plant.Run("08:00 part start P1; 08:01 cycle start");
  const std::string before = plant.Snapshot();
  plant.Run("08:10 setup end; 08:10 teardown end; 08:10 down end; 08:10 userdown end; 08:10 door end");
  EXPECT_EQ(plant.Snapshot(), before);
}

TEST_P(HandlersTest, Logons) {
  Check(
      "select substr(START_TIME, 12, 5), USER_ID, USER_NAME, LOGON_DATA_START_ID, SHIFT_ID, "
      "substr(SHIFT_END, 9, 8), STATUS_CODE from T_SFC_MACHINE_DATA where MACHINE_ID = 1 and MACHINE_DATA_ID "
      "> 3 "
      "order by MACHINE_DATA_ID",
      {{"08:00 logon start anna; 09:00 logon end", "08:00|1|anna|-|1|12 14:00|2;09:00|-|-|-|1|12 14:00|0"},
       {"08:00 logon start Zoë; 09:00 logon start Anna",
        "08:00|3|Zoë|-|1|12 14:00|2;09:00|-|Anna|5|1|12 14:00|0"},
       {"08:00 logon start", "08:00|-|-|4|1|12 14:00|0"}});
  // Bert's own shift 3 begins with his logon where it is at work beside another, and ends with the next
  // start.
  plant.Restore();
  plant.Execute("insert into T_SFC_INTERVAL values (4, '1970-01-01 07:00:00', '1970-01-01 12:00:00', 0)");
  plant.Execute("update T_SFC_SHIFT set MON_INTERVAL_ID = 4 where SHIFT_ID = 3");
  Check(
      "select substr(START_TIME, 12, 5), USER_NAME, SHIFT_ID, substr(SHIFT_END, 9, 8), substr(CHART_DATE, "
      "9), "
      "STATUS_CODE, SETUP_TIME from T_SFC_MACHINE_DATA where MACHINE_ID = 1 and MACHINE_DATA_ID > 3 "
      "order by MACHINE_DATA_ID",
      {{"08:00 logon start bert; 09:00 logon end",
        "08:00|bert|3|12 12:00|12 00:00:00|2|0;09:00|-|1|12 14:00|12 00:00:00|0|0"},
       {"08:00 logon start bert; 09:00 setup start",
        "08:00|bert|3|12 12:00|12 00:00:00|2|0;09:00|bert|1|12 14:00|12 00:00:00|0|0"},
       // The closing step clears the setup total and leaves the setup running on both records.
       {"07:20 part start P1; 07:30 setup start; 08:00 logon start bert; 09:00 cycle start",
        "07:20|-|1|12 14:00|12 00:00:00|2|0.5;08:00|bert|3|12 12:00|12 00:00:00|2|-;"
        "09:00|bert|1|12 14:00|12 00:00:00|0|0"}});
}

TEST_P(HandlersTest, SiteCommands) {
  Check(
      "select substr(START_TIME, 12, 5), substr(STOP_TIME, 12, 5), PARAM1, MACHINE_EVENT_ID, e.DEPT_ID, "
      "e.LOCATION_ID, e.GROUP_ID, e.MACHINE_ID from T_SFC_EVENT e left join T_SFC_MACHINE_EVENT r on "
      "r.EVENT_ID = "
      "e.EVENT_ID order by e.EVENT_ID",
      {{"08:00 door start A", "08:00|-|A|1|1|2|3|1"},
       {"08:00 door start A; 08:10 door start Tür", "08:00|08:10|A|-|1|2|3|1;08:10|-|Tür|2|1|2|3|1"},
       {"08:00 door start; 08:10 #2 door end", "08:00|-|-|1|1|2|3|1"},
       {"08:00 door both x", "08:00|08:00|x|-|1|2|3|1"},
       // The running event is the one that ends: the new one stays.
       {"08:00 door start A; 08:10 door end; 08:20 door end", "08:00|08:10|A|-|1|2|3|1"}});
  EXPECT_EQ(plant.Query("select count(*) from T_SFC_MACHINE_DATA"), "3");
}

}  // namespace
}  // namespace kx::test
