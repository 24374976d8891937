// Whole weeks: a script with sums known beforehand, random walks over all events, random calendars.

#include <gtest/gtest.h>

#include <array>
#include <random>

#include "database/recordset.h"
#include "database/text.h"
#include "session/sql_dialect.h"
#include "shifts/current_record.h"
#include "shifts/shift_candidates.h"
#include "tests/support/plant.h"
#include "tests/support/random_walk.h"

namespace kx::test {
namespace {

constexpr std::array kDays = {"Mon", "Tue", "Wed", "Thu", "Fri", "Sat", "Sun"};

class WeekTest : public testing::TestWithParam<int> {};
INSTANTIATE_TEST_SUITE_P(DatabaseTypes, WeekTest, testing::ValuesIn(TestedTypes()));

// Each machine does the same on five days: setup, cycles over the change of shift, parts, a downtime over the
// next change, a teardown into the swing shift. The weekend is free.
TEST_P(WeekTest, SumsAreWhatTheScriptSays) {
  Plant plant(GetParam());
  for (int day = 0; day < 5; ++day) {
    for (int machine = 1; machine <= 3; ++machine) {
      for (const char* event : {"07:00 logon start anna", "07:00:10 job start J1", "07:00:20 part start P1",
                                "07:00:30 op start O10",  "07:30 setup start",     "08:15 setup end",
                                "08:30 cycle start",      "09:00 cycle end",       "09:00 good 3",
                                "09:10 scrap 1.17",       "13:30 cycle start",     "14:30 cycle end",
                                "14:31 good 2",           "14:40 logon end",       "15:00 logon start bert",
                                "21:00 down start D0",    "22:30 down end",        "23:00 teardown start",
                                "23:30 teardown end",     "23:40 op end",          "23:41 part end",
                                "23:42 job end",          "23:43 logon end"}) {
        const std::string text = event;
        const std::size_t blank = text.find(' ');
        plant.Run(Concat(kDays[static_cast<std::size_t>(day)], " ", text.substr(0, blank), " #", machine,
                         text.substr(blank)));
      }
    }
  }
  plant.Run("Sun 12:00 #1 refresh; Sun 12:00 #2 refresh; Sun 12:00 #3 refresh");
  EXPECT_EQ(plant.Breaches(), "");
  // A cycle that runs over the change of shift is one finished cycle; its minutes are on both records.
  EXPECT_EQ(
      plant.Query("select MACHINE_ID, sum(GOOD_COUNT), sum(SCRAPPED_COUNT), sum(FINISHED_CYCLES), "
                  "sum(UNFINISHED_CYCLES), round(sum(CYCLE_TIME), 3), round(sum(SETUP_TIME), 4), "
                  "round(sum(TEARDOWN_TIME), 4) from T_SFC_MACHINE_DATA group by MACHINE_ID order by 1"),
      "1|25|5|10|0|450|3.75|2.5;2|25|5|10|0|450|3.75|2.5;3|25|5|10|0|450|3.75|2.5");
  // The downtime from 21:00 to 22:30 is cut by the change at 22:00.
  EXPECT_EQ(plant.Query("select count(*), round(sum(DURATION), 4), count(*) - count(STOP_TIME) from "
                        "T_SFC_DT_PER_MACHINE_DATA"),
            "30|22.5|0");
  EXPECT_EQ(plant.Query("select sum(QTY) from T_SFC_SCRAP_PER_MACHINE_DATA"), "15");
  // Idle from 08:15 to 08:30, 09:00 to 13:30, 14:30 to 21:00, 22:30 to 23:00 every day, and from 23:30 to the
  // next setup at 07:30; after Friday's last event to Sunday noon, of which the open record's part still
  // runs.
  const double closed_idle =
      plant.Number("select sum(IDLE_TIME) from T_SFC_MACHINE_DATA where MACHINE_ID = 2");
  const double open_idle = plant.Number(
      "select (julianday('2026-01-18 12:00:00') - julianday(IDLE_START_TIME)) * 24 from T_SFC_MACHINE_DATA "
      "where MACHINE_ID = 2 and STOP_TIME is null");
  EXPECT_NEAR(closed_idle + open_idle, 5 * 11.75 + 4 * 8 + 36.5, 0.001);
  EXPECT_EQ(plant.Query("select count(*) from T_SFC_MACHINE_EVENT"), "0");
  // No shift from Saturday 06:00 on: one record a chart day.
  EXPECT_EQ(
      plant.Query("select START_TIME, STOP_TIME, SHIFT_ID, SHIFT_END, CHART_DATE from T_SFC_MACHINE_DATA "
                  "where MACHINE_ID = 3 and START_TIME > '2026-01-17' order by MACHINE_DATA_ID"),
      "2026-01-17 06:00:00|2026-01-18 00:00:00|-|-|2026-01-17 00:00:00;"
      "2026-01-18 00:00:00|-|-|-|2026-01-18 00:00:00");
}

// Every event of a walk goes through, the invariants hold after each, good and scrapped parts are what was
// reported, and the rows do not depend on the dialect.
TEST(WalkTest, InvariantsHoldAndDialectsAgree) {
  for (const unsigned seed : {1U, 2U, 3U, 4U}) {
    SCOPED_TRACE(seed);
    std::vector<std::string> rows;
    for (const int database_type : TestedTypes()) {
      Plant plant(database_type);
      plant.Execute(Concat("update T_SFC_OPTION set BOOL_VAL = ", seed % 2));
      for (const Step& step : RandomWalk(seed, 250)) {
        plant.QueueRow(step.time.ToText(), step.machine, step.command, step.time_code, step.param);
        ASSERT_EQ(plant.component.Next(), (Outcome{true, ""})) << step.command << " " << step.param;
        ASSERT_EQ(plant.Breaches(), "") << step.time.ToText() << " " << step.command << " " << step.time_code;
      }
      ExpectReportedCounts(plant);
      EXPECT_EQ(plant.Query("select count(*) from T_SFC_MDC_LOG"), "0");
      rows.push_back(plant.Snapshot());
      EXPECT_EQ(rows.back(), rows.front()) << database_type;
    }
  }
}

// A calendar of a few shifts with distinct start times, so that no tie is broken differently.
void MakeRandomCalendar(Plant& plant, std::mt19937& random) {
  const auto pick = [&](int from, int to) { return std::uniform_int_distribution<int>(from, to)(random); };
  for (const char* table : {"SHIFT", "INTERVAL", "MACHINE_SHIFT"})
    plant.Execute(Concat("delete from T_SFC_", table));
  const int shifts = pick(1, 4);
  for (int shift = 1; shift <= shifts; ++shift) {
    std::string intervals;
    for (int day = 0; day < 7; ++day) {
      const int id = shift * 10 + day;
      const DateTime start = kBaseDay.AddSeconds(900 * (4 * pick(0, 23) + shift - 1));
      const DateTime stop = start.AddSeconds(pick(1, 12 * 60) * 60);
      const bool swing = stop >= kDayAfterBase;
      plant.Execute(
          Concat("insert into T_SFC_INTERVAL (INTERVAL_ID, START_TIME, STOP_TIME, IS_SWING) values (", id,
                 ", '", start.ToText(), "', '", stop.ToText(), "', ", swing ? 1 : 0, ")"));
      Append(intervals, ", ", pick(0, 3) == 0 ? std::string("null") : std::to_string(id));
    }
    plant.Execute(
        Concat("insert into T_SFC_SHIFT (SHIFT_ID, MON_INTERVAL_ID, TUE_INTERVAL_ID, WED_INTERVAL_ID, "
               "THU_INTERVAL_ID, FRI_INTERVAL_ID, SAT_INTERVAL_ID, SUN_INTERVAL_ID) values (",
               shift, intervals, ")"));
  }
}

TEST_P(WeekTest, RandomCalendars) {
  Plant plant(GetParam());
  Session session;
  session.database_type = static_cast<DatabaseType>(GetParam());
  session.connection.Open(plant.connection_string());
  std::mt19937 random(static_cast<unsigned>(GetParam()) + 7);
  for (int round = 0; round < 12; ++round) {
    SCOPED_TRACE(round);
    MakeRandomCalendar(plant, random);
    // The union form against the list form.
    for (int i = 0; i < 60; ++i) {
      const DateTime moment =
          DateTime(2026, 1, 12).AddSeconds(std::uniform_int_distribution<int>(0, 14 * 24 * 60)(random) * 60);
      const char* user = i % 3 == 0 ? "bert" : "";
      const ShiftInfo a = DetermineChartDateAndShiftInfo(session, moment, user, 1);
      const ShiftInfo b = DetermineShiftFromCandidateList(session, moment, user, 1);
      ASSERT_EQ(std::tuple(a.shift_id, a.chart_date, a.start, a.end),
                std::tuple(b.shift_id, b.chart_date, b.start, b.end))
          << moment.ToText() << " " << user;
      if (a.shift_id != kNoShift) {
        EXPECT_LE(a.start, moment);
        EXPECT_GT(a.end, moment);
      }
    }
    // A week of records: no gaps, and each record with a shift lies where the calendar has that shift.
    const DateTime last = DateTime(2026, 1, 12, 6).AddDays(7 * (round + 1));
    ASSERT_TRUE(HandleExpiredShifts(session, 1, last, round % 2 == 0)) << last.ToText();
    EXPECT_EQ(plant.Breaches(), "");
    Recordset records(session.connection,
                      Concat("select * from T_SFC_MACHINE_DATA where MACHINE_ID = 1 and START_TIME > ",
                             SqlDateLiteral(session, last.AddDays(-6)), " and STOP_TIME is not null"));
    for (; !records.IsEof(); records.MoveNext()) {
      if (records.Fields("SHIFT_ID").IsNull()) {
        EXPECT_EQ(records.Fields("START_TIME").ToDateTime().Date(),
                  records.Fields("CHART_DATE").ToDateTime());
        EXPECT_LE(records.Fields("STOP_TIME").ToDateTime(),
                  records.Fields("CHART_DATE").ToDateTime().AddDays(1));
        continue;
      }
      EXPECT_EQ(records.Fields("STOP_TIME"), records.Fields("SHIFT_END"));
      const DateTime start = records.Fields("START_TIME").ToDateTime();
      EXPECT_EQ(records.Fields("SHIFT_ID").ToInt32(),
                DetermineChartDateAndShiftInfo(session, start, "", 1).shift_id);
    }
  }
}

// What a client that embeds the routines asks for: every machine's status brought up to now, and read.
TEST_P(WeekTest, RefreshClosesTheShiftsOfEveryMachine) {
  Plant plant(GetParam());
  Session session;
  session.database_type = static_cast<DatabaseType>(GetParam());
  session.connection.Open(plant.connection_string());
  const DateTime start = GetServerTime(session).AddDays(-2);
  plant.Execute(Concat("update T_SFC_MACHINE_DATA set START_TIME = '", start.ToText(), "', SHIFT_END = '",
                       start.AddSeconds(3600).ToText(), "', CHART_DATE = '", start.Date().ToText(), "'"));
  const std::string behind =
      Concat("select MACHINE_ID from T_SFC_MACHINE_DATA where STOP_TIME is null and START_TIME < '",
             start.AddDays(1).ToText(), "' order by 1");
  plant.Execute("update T_SFC_MACHINE set STATUS_CODE = 4 where MACHINE_ID = 2");

  std::string error;
  plant.host.watch.FailAll(EngineCall::kBegin, ErrorCategory::kBusy);
  EXPECT_FALSE(RefreshMachineStatus(session, error));
  EXPECT_EQ(error, "Refresh Machine Status failed.");
  plant.host.watch.Heal();
  EXPECT_EQ(plant.Query(behind), "1;2;3");

  ASSERT_TRUE(RefreshMachineStatus(session, error));
  EXPECT_EQ(plant.Query(behind), "");
  EXPECT_EQ(plant.Breaches(), "");
  EXPECT_EQ(GetMachineStatus(session, 1), MachineStatus::kIdle);
  EXPECT_EQ(GetMachineStatus(session, 2), MachineStatus::kTeardown);
}

}  // namespace
}  // namespace kx::test
