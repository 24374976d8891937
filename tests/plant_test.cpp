// Connection, queue, dispatch, cycles and shift changes.

#include <gtest/gtest.h>

#include <optional>

#include "database/text.h"
#include "kxdata7/text.h"
#include "session/messages.h"
#include "tests/support/plant.h"

namespace kx::test {
namespace {

class PlantTest : public testing::TestWithParam<int> {
 protected:
  Plant plant{GetParam()};
  Component& component = plant.component;
};

INSTANTIATE_TEST_SUITE_P(DatabaseTypes, PlantTest, testing::ValuesIn(TestedTypes()));

constexpr const char* kQueue =
    "select DEPT_ID, LOCATION_ID, GROUP_ID, MACHINE_ID, COMMAND_ID, COMMAND_TIME_CODE, PARAM1 from "
    "T_SFC_MDC_LOG "
    "order by MDC_LOG_ID";

TEST_P(PlantTest, AppendsQueueWhatTheClientSaid) {
  const Outcome done{true, ""};
  const DateTime before = plant.database.Now();
  EXPECT_EQ(component.Append({1, 2, 3, 1, 109}, "", 0), done);
  EXPECT_EQ(component.Append({1, 2, 3, 1, 0}, "", 2), done);
  EXPECT_EQ(component.Append({-1, 2, 3, 2, 104}, " Zoë 日本 #1/2/2026# with (NOLOCK) ", 0), done);
  EXPECT_EQ(component.Append({1, 2, 3, 1, -1}, "x", 0), done);
  EXPECT_EQ(component.Append({1, 2, 3, 1, -1}, "", 0), done) << "one refresh a machine";
  EXPECT_EQ(component.Append({1, 2, 3, 2, -1}, "", 0), done);
  EXPECT_EQ(component.Append({1001, 1002, 1003, 1002, 1105}, "007", 1, kxdata7::NumberKind::kDnc), done);
  EXPECT_EQ(component.Append({1, 1002, 77, 1001, 77}, "", 1, kxdata7::NumberKind::kDnc), done)
      << "an unknown command asks for a refresh";
  EXPECT_EQ(component.Append({1001, 1002, 1003, 77, 1109}, "", 1, kxdata7::NumberKind::kDnc), done);
  EXPECT_EQ(plant.Query(kQueue),
            "1|2|3|1|109|0|-;1|2|3|1|0|2|-;-1|2|3|2|104|0| Zoë 日本 #1/2/2026# with (NOLOCK) ;1|2|3|1|-|-|-;"
            "1|2|3|2|-|-|-;1|2|3|2|105|1|007;1|2|3|-1|109|1|-");
  EXPECT_EQ(plant.Query(Concat("select count(*) from T_SFC_MDC_LOG where TIME_STAMP not between '",
                               before.ToText(), "' and '", plant.database.Now().ToText(),
                               "' or length(substr(TIME_STAMP, 1)) != 19")),
            "0");
  LONG count = 0;
  EXPECT_EQ(component->GetMDCLogCount(&count), S_OK);
  EXPECT_EQ(count, 7);
  EXPECT_TRUE(component.IsConnected());
}

// A text comes back as it was, through the queue and through the records, or nothing of it is stored.
TEST_P(PlantTest, TextsAreStoredWholeOrNotAtAll) {
  std::u16string long_text;
  while (long_text.size() < 4000) long_text += u"Größe ✓ 日本 \U0001F527 ";
  long_text.resize(3998);
  long_text += u"ü!";
  const struct {
    std::u16string given;
    std::optional<std::u16string> stored;  // none: refused
  } cases[] = {
      {u"007", u"007"},
      {u" blanks and\ttabs\r\nlines ", u" blanks and\ttabs\r\nlines "},
      {u"\\\"?{x}$1:a%_--/*;#`", u"\\\"?{x}$1:a%_--/*;#`"},
      {u"Zoë Ñandú Ωμέγα 日本語 \U0001F527\U0010FFFD", u"Zoë Ñandú Ωμέγα 日本語 \U0001F527\U0010FFFD"},
      {long_text, long_text},
      {u"a\xD83D", u"a\xFFFD"},
      {u"\xDD27-\xD83D-", u"\xFFFD-\xFFFD-"},
      {u"\xDD27\xD83D", u"\xFFFD\xFFFD"},
      {u"O''Neill", u"O'Neill"},
      {u"''''", u"''"},
      {u"O'Neill", std::nullopt},
      {u"'", std::nullopt},
      {std::u16string(u"cut\0off", 7), std::nullopt},
      {std::u16string(1, u'\0'), std::nullopt},
  };
  plant.Save();
  for (const auto& text : cases) {
    SCOPED_TRACE(kxdata7::ToUtf8(text.given));
    plant.Restore();
    const kxdata7::Bstr given(kxdata7::OleString(text.given.begin(), text.given.end()));
    for (const auto& [command, time_code] : {std::pair(120, 2), std::pair(105, 0)}) {
      kxdata7::Bstr error;
      VARIANT_BOOL done = VARIANT_FALSE;
      EXPECT_EQ(
          component->AppendItemToMDCLog(1, 2, 3, 1, command, given.get(), time_code, error.inout(), &done),
          S_OK);
      EXPECT_EQ(done == VARIANT_TRUE, text.stored.has_value());
    }
    if (!text.stored) {
      EXPECT_EQ(plant.Query(kQueue), "");
      continue;
    }
    const std::string stored = kxdata7::ToUtf8(*text.stored);
    EXPECT_EQ(plant.Query("select PARAM1 from T_SFC_MDC_LOG"), Concat(stored, ";", stored));
    // A stored apostrophe is one more text that no statement can carry.
    if (stored.find('\'') != std::string::npos) continue;
    plant.Execute("update T_SFC_MDC_LOG set TIME_STAMP = '2026-01-12 08:00:00'");
    plant.ProcessAll();
    EXPECT_EQ(plant.Query("select PARAM1 from T_SFC_EVENT"), Concat(stored, ";", stored));
    EXPECT_EQ(plant.Query("select JOB_NUMBER from T_SFC_MACHINE_DATA where MACHINE_DATA_ID > 3"), stored);
  }
}

// What no attempt can mend ends at once: a text that is never a statement, and a link that is lost, wherever
// in the append that shows.
TEST_P(PlantTest, AppendsThatNoAttemptHelpsEndAtOnce) {
  for (const std::string_view text : {"O'Neill", "'", "'''", "x'); delete from T_SFC_MACHINE_DATA; --"})
    EXPECT_EQ(component.Append({1, 2, 3, 1, 104}, text, 0), (Outcome{false, ""}));
  EXPECT_EQ(component.Append({1, 2, 3, 1, 104}, std::string_view("a\0b", 3), 0), (Outcome{false, ""}));
  for (int call = 2; call <= 4; ++call) {
    SCOPED_TRACE(call);
    plant.LoseLinkAtNth(call);
    const Outcome outcome = component.Append({1, 2, 3, 1, 104}, "anna", 0);
    EXPECT_FALSE(outcome.done);
    if (call == 4 && plant.database.kind() == DatabaseKind::kPostgres) {
      // Whether the commit was done is the server's secret.
      EXPECT_NE(outcome.error.find("unknown"), std::string::npos) << outcome.error;
    } else {
      EXPECT_EQ(outcome.error, FormatResourceMessage(message::kAppendNoTransaction));
    }
    plant.host.watch.Heal();
    plant.Connect();
  }
  EXPECT_EQ(plant.host.paused.count(), 0);
  EXPECT_EQ(plant.Query(kQueue), "");
}

TEST_P(PlantTest, AppendsTryTwentyTimes) {
  plant.host.watch.FailAll(EngineCall::kCommit, ErrorCategory::kBusy);
  EXPECT_EQ(component.Append({1, 2, 3, 1, 104}, "anna", 0), (Outcome{false, ""}));
  EXPECT_EQ(plant.host.watch.begins, 20);
  EXPECT_GE(plant.host.paused, std::chrono::milliseconds(19 * 2900));
  EXPECT_EQ(plant.Query(kQueue), "");

  // Each of the twenty attempts tries twelve times to begin.
  plant.host.watch.begins = 0;
  plant.host.watch.FailAll(EngineCall::kBegin, ErrorCategory::kBusy);
  EXPECT_EQ(component.Append({1, 2, 3, 1, 104}, "anna", 0),
            (Outcome{false, FormatResourceMessage(message::kAppendNoTransaction)}));
  EXPECT_EQ(plant.host.watch.begins, 20 * 12);

  plant.host.watch.FailNth(5, ErrorCategory::kBusy);
  EXPECT_EQ(component.Append({1, 2, 3, 1, 104}, "anna", 0), (Outcome{true, ""}));
  EXPECT_EQ(plant.Query(kQueue), "1|2|3|1|104|0|anna");
}

TEST_P(PlantTest, EventsAreWorkedOffInTheirOrder) {
  EXPECT_EQ(component.Next(), (Outcome{false, ""}));
  const std::string untouched = plant.Snapshot();
  // None of these has a handler; all but the last two have no command any more or never had one.
  plant.QueueRow(Moment("08:00"), 1, 109, 2, "");
  plant.QueueRow(Moment("08:00"), 1, 104, -1, "");
  plant.QueueRow(Moment("08:00"), 1, 120, 3, "");
  plant.QueueRow(Moment("08:00"), 1, 999, 7, "");
  for (int i = 0; i < 4; ++i) EXPECT_EQ(component.Next(), (Outcome{true, ""}));
  EXPECT_EQ(plant.Snapshot(), untouched);
  // The key decides, not the time; a command that is gone is the site's own.
  plant.Execute("delete from T_SFC_COMMAND where COMMAND_ID = 120");
  plant.Run("09:00 door start late; 08:00 door end");
  EXPECT_EQ(plant.Query("select substr(START_TIME, 12), substr(STOP_TIME, 12), PARAM1 from T_SFC_EVENT"),
            "09:00:00|08:00:00|late");
  // A row that fails holds the others up.
  plant.Queue("09:00 job start O'Neill; 09:01 door both");
  const std::string before = plant.Snapshot();
  for (int i = 0; i < 2; ++i) {
    const Outcome outcome = component.Next();
    EXPECT_FALSE(outcome.done);
    EXPECT_NE(outcome.error, "");
    EXPECT_EQ(plant.Snapshot(), before);
  }
  plant.Execute("delete from T_SFC_MDC_LOG where PARAM1 like 'O%'");
  plant.ProcessAll();
}

// What an event has learnt of master data ends with it.
TEST_P(PlantTest, MasterDataChangesBetweenEvents) {
  plant.Queue("08:00 job start J9; 08:10 door both 2; 08:20 job start J9; 08:30 door both 2");
  const auto next = [&] { EXPECT_EQ(component.Next(), (Outcome{true, ""})); };
  next();
  next();
  plant.Execute("insert into T_SFC_JOB values (9, 'J9')");
  next();
  plant.Execute("update T_SFC_COMMAND set COMMAND_TYPE_CODE = 13 where COMMAND_ID = 113 or COMMAND_ID = 120");
  next();
  EXPECT_EQ(plant.Query("select JOB_ID, JOB_NUMBER, GOOD_COUNT from T_SFC_MACHINE_DATA where MACHINE_ID = 1 "
                        "order by MACHINE_DATA_ID"),
            "-|-|0;-|J9|0;9|-|0;9|-|2");
}

struct CycleCase {
  const char* script;
  const char* totals;  // finished, unfinished, cycle minutes, setup, teardown, idle hours; starts; status
};

TEST_P(PlantTest, Cycles) {
  constexpr const char* kTotals =
      "select FINISHED_CYCLES, UNFINISHED_CYCLES, CYCLE_TIME, SETUP_TIME, TEARDOWN_TIME, IDLE_TIME, "
      "substr(CYCLE_START_TIME, 12, 5), substr(SETUP_START_TIME, 12, 5), substr(IDLE_START_TIME, 12, 5), "
      "m.STATUS_CODE, substr(STATUS_DATE, 12, 5) from T_SFC_MACHINE_DATA d join T_SFC_MACHINE m on "
      "m.MACHINE_DATA_ID = d.MACHINE_DATA_ID where m.MACHINE_ID = 1";
  const CycleCase cases[] = {
      {"08:00 cycle end", "0|0|0|0|0|0|-|-|-|0|06:00"},
      {"08:00 cycle start", "0|0|0|0|0|0|08:00|-|-|2|08:00"},
      {"08:00 cycle start; 08:01:30 cycle end", "1|0|1.5|0|0|0|-|-|08:01|0|08:01"},
      {"08:00 cycle start; 08:03 cycle start; 08:05 cycle end", "1|1|5|0|0|0|-|-|08:05|0|08:05"},
      {"08:00 cycle start; 08:06 cycle end; 08:36 cycle start", "1|0|6|0|0|0.5|08:36|-|-|2|08:36"},
      {"08:00 cycle start; 07:59 cycle end", "1|0|-1|0|0|0|-|-|07:59|0|07:59"},
      {"08:00 part start P1; 08:10 setup start; 08:40 cycle start", "0|0|0|0.5|0|0|08:40|-|-|2|08:40"},
      {"08:00 part start P1; 08:10 teardown start; 08:40 cycle start", "0|0|0|0|0.5|0|08:40|-|-|2|08:40"},
      {"08:00 part start P1; 08:10 down start D2; 08:40 cycle start", "0|0|0|0|0|0|08:40|-|-|2|08:40"},
  };
  plant.Save();
  for (const CycleCase& test : cases) {
    plant.Restore();
    plant.Run(test.script);
    EXPECT_EQ(plant.Query(kTotals), test.totals) << test.script;
    EXPECT_EQ(plant.Breaches(), "") << test.script;
  }
  EXPECT_EQ(plant.Query("select substr(STOP_TIME, 12), DURATION from T_SFC_DT_PER_MACHINE_DATA"),
            "08:40:00|0.5");
}

TEST_P(PlantTest, CycleLock) {
  const CycleCase cases[] = {
      {"08:10 setup start", "update T_SFC_OPTION set BOOL_VAL = 1 where OPTION_CODE = 4"},
      {"08:10 teardown start", "update T_SFC_OPTION set BOOL_VAL = 1 where OPTION_CODE = 5"},
      {"08:10 down start D0", nullptr},
      {"08:10 down start D2", "update T_SFC_DOWNTIME_CODE set CYCLE_STATUS_LOCK = 1"},
      // A user downtime beside the machine's does not make the lock ambiguous.
      {"08:10 userdown start D2; 08:11 down start D0", nullptr},
  };
  plant.Run("08:00 part start P1");
  plant.Save();
  for (const auto& [script, lock] : cases) {
    for (const bool locked : {true, false}) {
      plant.Restore();
      if (!locked) plant.Execute("update T_SFC_DOWNTIME_CODE set CYCLE_STATUS_LOCK = NULL");
      if (locked && lock != nullptr) plant.Execute(lock);
      plant.Run(script);
      const std::string before = plant.Snapshot();
      plant.Run("08:20 cycle start; 08:30 cycle end");
      EXPECT_EQ(plant.Snapshot() == before, locked) << script;
    }
  }
}

constexpr const char* kChain =
    "select substr(START_TIME, 9, 8), substr(STOP_TIME, 9, 8), SHIFT_ID, substr(SHIFT_END, 9, 8), "
    "substr(CHART_DATE, 9, 2), STATUS_CODE from T_SFC_MACHINE_DATA where MACHINE_ID = 1 order by "
    "MACHINE_DATA_ID";

TEST_P(PlantTest, ShiftsExpire) {
  plant.Run("14:00 refresh");
  EXPECT_EQ(plant.Query(kChain), "12 06:00|-|1|12 14:00|12|0")
      << "a shift that ends at the moment is not over";
  plant.Run("Tue 06:30 refresh");
  EXPECT_EQ(
      plant.Query(kChain),
      "12 06:00|12 14:00|1|12 14:00|12|2;12 14:00|12 22:00|2|12 22:00|12|2;12 22:00|13 06:00|3|13 06:00|12|2;"
      "13 06:00|-|1|13 14:00|13|0");
  // By the record's place: a server's counters keep gaps.
  EXPECT_EQ(plant.Query("select (select count(*) from T_SFC_MACHINE_DATA d where d.MACHINE_DATA_ID <= "
                        "m.MACHINE_DATA_ID) from T_SFC_MACHINE m order by MACHINE_ID"),
            "6;2;3");
}

}  // namespace
}  // namespace kx::test
