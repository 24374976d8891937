// The tool as an operator runs it: its executable, on plants in a temporary folder, through the component.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <filesystem>
#include <fstream>

#include "inputs/recorded_input.h"
#include "plant/locked_file.h"
#include "tests/support/tool_fixture.h"

namespace kx::tool {
namespace {

namespace fs = std::filesystem;

INSTANTIATE_TEST_SUITE_P(Plants, EveryPlantTest, ::testing::Values("sqlite", "postgresql"),
                         [](const auto& each) { return std::string(each.param); });

TEST_F(ToolTest, CreatesAPlantInAFileOfAnyName) {
  Do("create \"it's a \\\"plant\\\";x.db\"");
  EXPECT_TRUE(fs::exists(folder_ / "it's a \"plant\";x.db"));
  EXPECT_EQ(DoCsv("status \"it's a \\\"plant\\\";x.db\"").size(), 0U);
}

TEST_P(EveryPlantTest, CreatesAPlantAndCompletesAnExistingOne) {
  Do("create " + plant_ + " --demo --start 2026-01-12");
  const auto machines = DoCsv("status " + plant_);
  ASSERT_GE(machines.size(), 4U);
  for (const CsvRow& machine : machines) {
    EXPECT_EQ(machine.at("status"), "idle");
    EXPECT_EQ(machine.at("since"), "2026-01-12 00:00:00");
  }
  const std::string records = Do("records " + plant_);

  Query("delete from T_SFC_OPTION where OPTION_CODE = 5");
  Query("drop table T_SFC_MACHINE_SHIFT");
  Do("create " + plant_);
  EXPECT_EQ(Do("records " + plant_), records);
  EXPECT_EQ(Query("select count(*) from T_SFC_MACHINE_SHIFT").ToInt32(), 0);
  EXPECT_EQ(Query("select count(*) from T_SFC_OPTION").ToInt32(), 3);
  ExpectError("create " + plant_ + " --demo", "in use");
  EXPECT_EQ(Do("records " + plant_), records);

  UseNewPlant();
  Do("create " + plant_);
  EXPECT_EQ(DoCsv("status " + plant_).size(), 0U);
  EXPECT_EQ(Query("select count(*) from T_SFC_OPTION where BOOL_VAL = 0").ToInt32(), 3);
  Query("update T_SFC_OPTION set BOOL_VAL = 1 where OPTION_CODE = 4");
  Do("create " + plant_);
  EXPECT_EQ(Query("select sum(BOOL_VAL) from T_SFC_OPTION").ToInt32(), 1);
}

TEST_P(EveryPlantTest, AddsAMachineWithItsFirstRecord) {
  Do("create " + plant_ + " --demo");
  Do("machine add " + plant_ +
     " --name 'Säge 1' --number 301 --dept 20 --location 2 --group 20 --dnc "
     "--start '2026-01-12 05:30'");
  const auto records = DoCsv("records " + plant_ + " --dnc --machine 301");
  ASSERT_EQ(records.size(), 1U);
  EXPECT_EQ(records[0].at("start"), "2026-01-12 05:30:00");
  EXPECT_EQ(records[0].at("chart_date"), "2026-01-12");
  EXPECT_EQ(records[0].at("shift"), "");
  EXPECT_EQ(records[0].at("status"), "open");
  EXPECT_EQ(DoCsv("records " + plant_ + " --day 2026-01-12").size(), 1U);
  ExpectError("machine add " + plant_ + " --name X --dept 20 --dnc --group 21",
              "no group with the DNC number 21");
  ExpectError("machine add " + plant_ + " --name X --number 101", "has the number 101 of");
  ExpectError("machine add " + plant_ + " --name ' '", "has no name");
  ExpectError("machine add " + plant_ + " --name X --start 2099-01-01", "future");
  EXPECT_EQ(DoCsv("status " + plant_).size(), 5U);
}

TEST_P(EveryPlantTest, ShowsTheCalendar) {
  Do("create " + plant_ + " --demo --start 2026-01-12");
  Query("insert into T_SFC_MACHINE_SHIFT (MACHINE_ID, SHIFT_ID) values (1, 2)");
  const std::string week = Do("calendar " + plant_ + " --week 2026-01-14");
  for (const char* line :
       {"Lathe 2, Mill 1, Mill 2\n", "Mon 2026-01-12 00:00  Mon 2026-01-12 06:00  -      Mon 2026-01-12\n",
        "Fri 2026-01-16 14:00  Fri 2026-01-16 22:00  Late   Fri 2026-01-16\n"
        "Fri 2026-01-16 22:00  Sat 2026-01-17 06:00  Night  Fri 2026-01-16\n"
        "Sat 2026-01-17 06:00  Sun 2026-01-18 00:00  -      Sat 2026-01-17\n"
        "Sun 2026-01-18 00:00  Mon 2026-01-19 00:00  -      Sun 2026-01-18\n"})
    EXPECT_NE(week.find(line), std::string::npos) << line << "in\n" << week;
  const std::string one = Do("calendar " + plant_ + " --dnc --machine 101 --week 2026-01-18");
  EXPECT_EQ(one.find("Night"), std::string::npos) << one;
  EXPECT_NE(one.find("Tue 2026-01-13 14:00  Tue 2026-01-13 22:00  Late"), std::string::npos) << one;
}

TEST_P(EveryPlantTest, QueuesEventsAndWorksThemOff) {
  Do("create " + plant_ + " --demo");
  EXPECT_EQ(Do("process " + plant_), "Nothing waits.\n");
  Do("append " + plant_ + " --machine 1 --event 'part start' --param 'Größe 7' --unchecked");
  Do("append " + plant_ + " --dnc --machine 101 --event 'cycle start'");
  Do("append " + plant_ + " --dnc --machine 102 --event 'custom 100 start' --dept 20 --dialect sqlserver");
  Do("append " + plant_ + " --machine 2 --event refresh");
  Do("append " + plant_ + " --machine 2 --event refresh");
  const auto queue = DoCsv("queue " + plant_);
  ASSERT_EQ(queue.size(), 4U);
  EXPECT_EQ(queue[0].at("event"), "part start");
  EXPECT_EQ(queue[0].at("param"), "Größe 7");
  EXPECT_EQ(queue[1].at("event"), "cycle start");
  EXPECT_EQ(queue[1].at("machine"), "1");
  EXPECT_EQ(queue[2].at("event"), "custom 12 start");
  EXPECT_EQ(queue[3].at("event"), "refresh");
  EXPECT_EQ(
      Query("select DEPT_ID * 100 + LOCATION_ID from T_SFC_MDC_LOG where MACHINE_ID = 2 and COMMAND_ID > 0")
          .ToInt32(),
      201);

  const std::string first = Do("process " + plant_);
  EXPECT_TRUE(first.starts_with("Applied row 1 (part start, machine 1, ")) << first;
  EXPECT_EQ(DoCsv("queue " + plant_).size(), 3U);
  const std::string rest = Do("process " + plant_ + " --all --dialect access");
  EXPECT_TRUE(rest.starts_with("Applied 3 of 3 events in ")) << rest;
  EXPECT_EQ(Lines(Do("queue " + plant_)).size(), 1U);

  const auto status = DoCsv("status " + plant_);
  EXPECT_EQ(status.at(0).at("status"), "in cycle");
  EXPECT_EQ(status.at(0).at("part"), "Größe 7");
  EXPECT_EQ(Query("select count(*) from T_SFC_MACHINE_EVENT where COMMAND_ID = 12").ToInt32(), 1);
}

TEST_F(ToolTest, RefusesWhatCannotBeDone) {
  Do("create plant.db --demo");
  Write("text.db", "This is no database, only a text that is long enough to be taken for one. Really. Yes.");
  const std::string append = "append plant.db --machine 1 --event ";
  ExpectError("append plant.db --machine 9 --event good", "no machine with the id 9");
  ExpectError("append plant.db --machine 9 --event good --dnc", "no machine with the DNC number 9");
  ExpectError(append + "'cycle begin'", "no event \"cycle begin\"");
  ExpectError(append + "'custom 99'", "no command with the id 99");
  ExpectError(append + "good --dept 99", "no dept with the id 99");
  ExpectError(append + "'part start' --param \"P'1\"", "apostrophe");
  ExpectError(append + "'part start' --param \"$(printf 'P\\377')\"", "UTF-8");
  ExpectError(append + "good --param 40000", "40000");
  ExpectError(append + "'job start' --param j-1001", "there is no job \"j-1001\"; did you mean \"J-1001\"?");
  ExpectError(append + "scrap --param 2.99", "there is no scrap code \"99\"");
  Query("create trigger FULL before insert on T_SFC_MDC_LOG begin select raise(abort, 'no more'); end");
  ExpectError(append + "good", "no more");
  Query("drop trigger FULL");
  ExpectError(append + "good --library nowhere/libKXData7.so", "nowhere/libKXData7.so");
  ExpectError(append + "good --dialect mysql", "mysql");
  ExpectError("import plant.db nowhere.csv", "nowhere.csv");
  ExpectError("import plant.db text.db --machine 1", "text.db");
  ExpectError("queue nowhere.db", "nowhere.db");
  ExpectError("process .", "cannot open");
  ExpectError("status text.db", "text.db");
  ExpectError("explain plant.db 7", "row 7");
  ExpectError("records plant.db --day yesterday", "yesterday");
  ExpectError("records plant.db --machine 9", "no machine");
  ExpectError("", "no command");
  ExpectError("stauts plant.db", "did you mean \"status\"?");
  ExpectError(append + "'cycle strat'", "did you mean \"cycle start\"?");
  ExpectError("append plant.db --machine 'late 1' --event good", "did you mean \"Lathe 1\"?");
  ExpectError("status postgresql://db/plant", "URL");
  ExpectError("status .", "folder");
  ExpectError("records plant.db --csv >/dev/full", "could not be written");
  EXPECT_FALSE(fs::exists(folder_ / "nowhere.db"));
  EXPECT_EQ(DoCsv("queue plant.db").size(), 0U);

  Write("ahead.csv",
        "time,event,machine\n" + Query("select datetime('now', '+2 days')").ToText() + ",good,1\n");
  EXPECT_NE(Run("import plant.db ahead.csv").errors.find("--allow-future"), std::string::npos);
  Do("import plant.db ahead.csv --future-limit 49");
  Query("delete from T_SFC_MDC_LOG");

  // The component's own rule asks for none of that.
  Do("append plant.db --machine 9 --event 'custom 99' --unchecked");
  Do(append + "'job start' --param j-1001 --unchecked");
  EXPECT_EQ(DoCsv("queue plant.db").size(), 2U);

  const Result secret = Run("status 'Driver={No Such Driver};Server=x;Uid=u;Pwd=geheim'");
  EXPECT_GT(secret.status, 0);
  EXPECT_EQ((secret.output + secret.errors).find("geheim"), std::string::npos) << secret.errors;
}

TEST_F(ToolTest, TakesThePlantFromAFileForItsOwnerOrFromTheEnvironment) {
  Do("create plant.db --demo");
  Write("hall.conf", "# The hall\nKXDATA7_PLANT=\"plant.db\"\nKXDATA7_DIALECT=sqlserver\n");
  ExpectError("status --plant-file hall.conf", "chmod 600");
  fs::permissions(folder_ / "hall.conf", fs::perms::owner_read | fs::perms::owner_write);
  Do("--plant-file hall.conf append --machine 'LATHE 1' --event Good");
  EXPECT_EQ(DoCsv("queue --plant-file=hall.conf").size(), 1U);
  ExpectError("status --plant-file nowhere.conf", "nowhere.conf");
  ExpectError("queue", "PLANT");

  environment_ += " KXDATA7_PLANT=plant.db";
  EXPECT_EQ(DoCsv("queue").size(), 1U);
  Do("queue set-aside 1");
  Do("create other.db");
  EXPECT_EQ(DoCsv("status other.db").size(), 0U);
}

TEST_F(ToolTest, ListingsLeaveAFileThatIsNoPlantAsItWas) {
  ASSERT_EQ(std::system(("sqlite3 '" + (folder_ / "foreign.db").string() + "' 'create table X (Y)'").c_str()),
            0);
  const std::string before = ReadFile(folder_ / "foreign.db");
  for (const char* listing : {"status", "queue", "records"})
    ExpectError(std::string(listing) + " foreign.db", "this is no plant");
  EXPECT_EQ(ReadFile(folder_ / "foreign.db"), before);
  EXPECT_FALSE(fs::exists(folder_ / "foreign.db-wal"));
}

TEST_F(ToolTest, SaysThatAFileIsDamaged) {
  Do("create plant.db --demo");
  fs::resize_file(folder_ / "plant.db", 20'000);
  for (const char* command :
       {"status", "records", "queue", "process", "explain", "report", "append --machine 1 --event good"})
    ExpectError(std::string(command) + " plant.db", "put its last backup in its place");
  EXPECT_NE(Run("doctor plant.db").output.find("malformed"), std::string::npos);
}

TEST_F(ToolTest, RegistersTheComponentForToolsElsewhere) {
  environment_ += " KXDATA7_CLASSES='" + (folder_ / "classes").string() + "'";
  const fs::path beside_library = tool_;
  const fs::path elsewhere = folder_ / "kxdata7";
  fs::copy_file(tool_, elsewhere);
  Do("create plant.db --demo");
  const std::string append = "append plant.db --machine 1 --event refresh";
  tool_ = elsewhere;
  ExpectError(append, "not registered");
  tool_ = beside_library;
  Do("register");
  tool_ = elsewhere;
  Do(append);
  Do("register --remove");
  ExpectError(append, "not registered");
  EXPECT_EQ(DoCsv("queue plant.db").size(), 1U);
}

TEST_P(EveryPlantTest, ImportReportsBadLinesAndQueuesTheOthers) {
  Do("create " + plant_ + " --demo --start 2026-01-12");
  Write("day.csv",
        "time,event,param,machine\n"
        "2026-01-12 06:00:00,part start,\"A, \"\"B\"\"\",1\n"
        "2026-01-12 06:00:01,part start,it's,1\n"
        "2026-01-12 06:00:02,cycle start,,99\n"
        "2026-01-12 06:00:03,custom 12,,2\n"
        "2026-01-12 06:00:04,custom 99,,2\n"
        "noon,cycle end,,1\n"
        "2026-01-12 06:00:05,good,70000,1\n"
        "2026-01-12 06:00:06,refresh,,1\n"
        "2026-01-12 06:00:07,cycle end\n"
        "2099-01-12 06:00:07,good,1,1\n"
        "2026-01-11 23:59:59,good,1,1\n" +
            std::string("2026-01-12 06:00:08,part start,A\0B,1\n", 37));
  const Result result = Run("import " + plant_ + " day.csv");
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.output, "Queued 3 events from day.csv, refused 9 lines.\n");
  const auto errors = Lines(result.errors);
  ASSERT_EQ(errors.size(), 9U) << result.errors;
  const std::vector<int> expected = {3, 4, 6, 7, 8, 10, 11, 12, 13};
  for (std::size_t i = 0; i < errors.size(); ++i)
    EXPECT_TRUE(errors[i].starts_with("day.csv:" + std::to_string(expected[i]) + ": ")) << errors[i];
  EXPECT_EQ(Do("queue " + plant_ + " --csv"),
            "row,time,machine,event,param\n"
            "1,2026-01-12 06:00:00,1,part start,\"A, \"\"B\"\"\"\n"
            "2,2026-01-12 06:00:03,2,custom 12,\n"
            "3,2026-01-12 06:00:06,1,refresh,\n");
  ExpectError("import " + plant_ + " day.csv", "--allow-again");
  ExpectError("import " + plant_ + " day.csv --machine 99", "no machine with the id 99");
  EXPECT_EQ(DoCsv("queue " + plant_).size(), 3U);
}

TEST_P(EveryPlantTest, StopsAtAnEventThatFails) {
  Do("create " + plant_ + " --demo --start 2026-01-12");
  Write("day.csv",
        "time,event,param\n"
        "2026-01-12 06:10:00,good,1\n"
        "2026-01-12 06:20:00,good,2\n"
        "2026-01-12 06:30:00,good,3\n");
  Do("import " + plant_ + " day.csv --machine 3");
  Query("update T_SFC_MDC_LOG set PARAM1 = '70000' where MDC_LOG_ID = 2");
  const Result failed = Run("process " + plant_ + " --all");
  EXPECT_EQ(failed.status, 1);
  EXPECT_TRUE(failed.output.starts_with("Applied 1 of 3 events")) << failed.output;
  EXPECT_EQ(failed.errors, "kxdata7: row 2 (good, machine 3, 2026-01-12 06:20:00): Overflow\n");
  ExpectError("process " + plant_, "row 2 (good, machine 3, 2026-01-12 06:20:00): Overflow");
  EXPECT_EQ(DoCsv("queue " + plant_).size(), 2U);

  // An event that cannot be taken off the queue would be applied again and again.
  Query("update T_SFC_MDC_LOG set PARAM1 = '2' where MDC_LOG_ID = 2");
  OnDelete("select raise(abort, 'kept')", "raise exception 'kept'");
  ExpectError("process " + plant_ + " --all",
              "row 2 (good, machine 3, 2026-01-12 06:20:00) was applied, but");
  EXPECT_EQ(Query("select sum(GOOD_COUNT) from T_SFC_MACHINE_DATA").ToInt32(), 3);
}

TEST_P(EveryPlantTest, ShowsTheHeadAndSetsEventsAside) {
  Do("create " + plant_ + " --demo --start 2026-01-12");
  EXPECT_EQ(Do("queue " + plant_ + " --head"), "Nothing waits.\n");
  Write("day.csv",
        "time,event,param\n"
        "2026-01-12 06:10:00,good,1\n"
        "2026-01-12 06:20:00,good,2\n"
        "2026-01-12 06:30:00,refresh,\n");
  Do("import " + plant_ + " day.csv --machine 3");
  Query("update T_SFC_MDC_LOG set PARAM1 = '70000' where MDC_LOG_ID = 1");
  const std::string queue = Do("queue " + plant_);
  const std::string first = "row 1 (good, machine 3, 2026-01-12 06:10:00)";
  EXPECT_EQ(
      Do("queue " + plant_ + " --head"),
      "First:  " + first + ", \"70000\"\nSince:  2026-01-12 06:10:00\nBehind: 2\nError:  " +
          (embedded() ? "Overflow\n"
                      : "\"kxdata7 process\" shows it; only an SQLite plant can be copied for a trial\n"));

  const auto set_aside = [&](int row) { return "queue set-aside " + plant_ + " " + std::to_string(row); };
  const auto put_back = [&](int row) { return "queue put-back " + plant_ + " " + std::to_string(row); };
  ExpectError(set_aside(9), "row 9 does not wait");
  ExpectError(put_back(1), "row 1 is not set aside");
  EXPECT_EQ(Do(set_aside(1)), "Set aside " + first + (embedded() ? ": Overflow.\n" : ".\n"));
  EXPECT_EQ(Do(set_aside(3) + " --reason \"it's late\""),
            "Set aside row 3 (refresh, machine 3, 2026-01-12 06:30:00): it's late.\n");
  ExpectError(set_aside(1), "row 1 does not wait");
  for (const char* listing : {"queue ", "status "})
    EXPECT_EQ(Lines(Do(listing + plant_)).back(),
              "2 events are set aside; \"kxdata7 queue --aside\" lists them.");
  const auto aside = DoCsv("queue " + plant_ + " --aside");
  ASSERT_EQ(aside.size(), 2U);
  EXPECT_EQ(aside[0].at("event"), "good");
  EXPECT_EQ(aside[0].at("param"), "70000");
  EXPECT_EQ(aside[0].at("error"), embedded() ? "Overflow" : "");
  EXPECT_TRUE(DateTime::Parse(aside[0].at("set_aside"))) << aside[0].at("set_aside");
  EXPECT_EQ(aside[1].at("event"), "refresh");
  EXPECT_EQ(aside[1].at("error"), "it's late");
  EXPECT_EQ(DoCsv("queue " + plant_).size(), 1U);

  EXPECT_EQ(Do(put_back(3)), "Put back row 3.\n");
  EXPECT_EQ(Do(put_back(1)), "Put back row 1.\n");
  ExpectError(put_back(1), "row 1 is not set aside");
  EXPECT_EQ(Do("queue " + plant_), queue);

  // What goes on without the event, and the event's own turn later.
  Do(set_aside(1));
  EXPECT_TRUE(Do("process " + plant_ + " --all").starts_with("Applied 2 of 2 events"));
  Query("update T_SFC_MDC_LOG_ASIDE set PARAM1 = '4'");
  Do(put_back(1));
  Do("process " + plant_);
  EXPECT_EQ(Query("select sum(GOOD_COUNT) from T_SFC_MACHINE_DATA").ToInt32(), 6);
}

TEST_P(EveryPlantTest, MovesAnEventWholeOrNotAtAll) {
  Do("create " + plant_ + " --demo");
  for (int row = 0; row < 2; ++row) Do("append " + plant_ + " --machine 1 --event good");
  // Somebody else is faster by the time the row is to be deleted.
  OnDelete("select raise(ignore)", "return null");
  ExpectError("queue set-aside " + plant_ + " 1", "row 1 does not wait any more");
  NoMoreOnDelete();
  EXPECT_EQ(Lines(Do("queue " + plant_)).size(), 3U);
  EXPECT_EQ(Query("select count(*) from T_SFC_MDC_LOG_ASIDE").ToInt32(), 0);

  // A row that goes while others are processed is no failure.
  OnDelete("delete from T_SFC_MDC_LOG where MDC_LOG_ID = old.MDC_LOG_ID + 1",
           "delete from T_SFC_MDC_LOG where MDC_LOG_ID = old.MDC_LOG_ID + 1");
  EXPECT_TRUE(Do("process " + plant_ + " --all").starts_with("Applied 1 of 2 events"));
  NoMoreOnDelete();

  // A plant that is older than the table.
  Do("append " + plant_ + " --machine 1 --event good");
  Query("drop table T_SFC_MDC_LOG_ASIDE");
  EXPECT_EQ(Lines(Do("queue " + plant_)).size(), 2U);
  for (const char* command : {"queue set-aside ", "queue put-back "})
    ExpectError(command + plant_ + " 3", "create");
  Do("create " + plant_);
  Do("queue set-aside " + plant_ + " 3");
}

TEST_P(EveryPlantTest, LeadsAPlantThroughItsLife) {
  Do("create " + plant_ + " --demo --start 2026-01-12");
  Do("import " + plant_ + " '" KXDATA7_SOURCE_DIR "/samples/day-2026-01-12.csv' --dnc");
  Do("process " + plant_ + " --all");
  Query("update T_SFC_SETTING set SETTING_VALUE = '1' where SETTING_NAME = 'schema_version'");
  ExpectError("purge " + plant_ + " --before 2026-01-13", "\"kxdata7 upgrade\" brings it there");
  EXPECT_EQ(Do("upgrade " + plant_), "schema version 2\nThe plant is up to date.\n");
  EXPECT_TRUE(Do("copy " + plant_ + " copy.db").starts_with("Copied and compared: 272 rows"));
  const std::string records = Do("records " + plant_ + " --csv");
  EXPECT_EQ(Do("records copy.db --csv"), records);
  ExpectError("copy copy.db " + plant_, "not empty");
  if (embedded()) {
    EXPECT_EQ(Do("backup plant.db saved.db"),
              "Backed up and verified: 4 machines, 45 records, 0 events that wait.\n");
    EXPECT_EQ(Do("records saved.db --csv"), records);
    ExpectError("backup plant.db saved.db", "exists");
    ExpectError("grants plant.db clerk", "file");
  } else {
    ExpectError("backup " + plant_ + " saved.db", "pg_dump");
    EXPECT_NE(
        Do("grants " + plant_ + " clerk").find("GRANT SELECT, INSERT, UPDATE ON T_SFC_EVENT TO \"clerk\";\n"),
        std::string::npos);
  }
  const std::string would = Do("purge " + plant_ + " --before 2026-01-13 --dry-run");
  EXPECT_EQ(Do("records " + plant_ + " --csv"), records);
  EXPECT_EQ("Would delete" + Do("purge " + plant_ + " --before 2026-01-13").substr(7), would);
  EXPECT_EQ(Query("select count(*) from T_SFC_MACHINE_DATA").ToInt32(), 9);
  Query("update T_SFC_SETTING set SETTING_VALUE = '3' where SETTING_NAME = 'schema_version'");
  ExpectError("status " + plant_, "use a newer tool");
}

TEST_F(ToolTest, ExplainsAnEventByATrialThatLeavesThePlantAlone) {
  Do("create plant.db --demo --start 2026-01-12");
  EXPECT_EQ(Do("explain plant.db"), "Nothing waits.\n");
  Write("day.csv",
        "time,event,param\n"
        "2026-01-12 06:10:00,part start,P 1\n"
        "2026-01-12 06:20:00,cycle start\n"
        "2026-01-12 06:21:30,cycle end\n"
        "2026-01-12 06:22:00,setup end\n"
        "2026-01-12 06:23:00,good,1\n");
  Do("import plant.db day.csv --machine 1");
  Query("update T_SFC_MDC_LOG set PARAM1 = '70000' where MDC_LOG_ID = 5");
  const std::string before = Do("status plant.db") + Do("records plant.db") + Do("queue plant.db");

  const std::string start = Do("explain plant.db");
  EXPECT_NE(start.find("Handler: DoPartStart\nMachine: 1 (Lathe 1), idle since 2026-01-12 00:00:00"),
            std::string::npos)
      << start;
  EXPECT_NE(start.find("PART_NUMBER: P 1\n"), std::string::npos) << start;
  EXPECT_NE(start.find("The row leaves the queue.\n"), std::string::npos) << start;

  const std::string end = Do("explain plant.db 3");
  EXPECT_NE(end.find("Handler: DoCycleEnd\nMachine: 1 (Lathe 1), in cycle since 2026-01-12 06:20:00"),
            std::string::npos)
      << end;
  EXPECT_NE(end.find("  CYCLE_TIME: 0 -> 1.5\n"), std::string::npos) << end;
  EXPECT_NE(end.find("  STATUS_CODE: 2 -> 0\n"), std::string::npos) << end;
  EXPECT_NE(end.find("T_SFC_MACHINE_EVENT"), std::string::npos) << end;

  EXPECT_NE(Do("explain plant.db 4").find("No record changes.\nThe row leaves the queue.\n"),
            std::string::npos);
  EXPECT_NE(Do("explain plant.db 5").find("The row stays in the queue: Overflow\n"), std::string::npos);
  EXPECT_EQ(Do("status plant.db") + Do("records plant.db") + Do("queue plant.db"), before);
}

// Whatever the database and the dialect, the shipped day gives the same records, and its counts are those
// that were reported.
// Copies of the plant are for nobody else, and none stays behind.
TEST_F(ToolTest, TrialsLeaveNoCopyBehind) {
  const fs::path temporary = folder_ / "tmp";
  const fs::path held = temporary / "kxdata7-trial-held", left = temporary / "kxdata7-trial-left";
  for (const fs::path& folder : {held, left}) {
    fs::create_directories(folder);
    std::ofstream(folder / "in-use") << "";
    std::ofstream(folder / "copy.db") << "a plant";
  }
  const LockedFile lock(held / "in-use");
  environment_ += " TMPDIR='" + temporary.string() + "'";
  Do("create plant.db --demo --start 2026-01-12");
  Do(std::string("import plant.db '") + KXDATA7_SOURCE_DIR + "/samples/day-2026-01-12.csv' --dnc");
  Do("queue plant.db --head");
  EXPECT_FALSE(fs::exists(left)) << "of a program that was killed";
  EXPECT_TRUE(fs::exists(held / "copy.db")) << "of one that runs";

  // The last row's trial works all others in before.
  const std::string last = Query("select max(MDC_LOG_ID) from T_SFC_MDC_LOG").ToText();
  Write("run", "'" + tool_.string() + "' explain plant.db " + last +
                   " & until ls tmp/*/before.db 2>&1; do :; done; stat -c %a tmp/kxdata7-trial-[0-9]*\n"
                   "kill -$1 $!; wait $!\nexit $?\n");
  for (const char* signal : {"TERM", "HUP"}) {
    const int status = std::system(
        ("cd '" + folder_.string() + "' && " + environment_ + " bash run " + signal + " >output 2>errors")
            .c_str());
    EXPECT_NE(WEXITSTATUS(status), 0) << ReadFile(folder_ / "errors");
    EXPECT_NE(ReadFile(folder_ / "output").find("\n700\n"), std::string::npos)
        << ReadFile(folder_ / "output");
    EXPECT_EQ(std::distance(fs::directory_iterator(temporary), {}), 1) << signal;
  }
}

TEST_P(EveryPlantTest, WorksTheSampleDayInEveryDialect) {
  const std::string samples = KXDATA7_SOURCE_DIR "/samples/";
  const auto work_day = [&](const std::string& plant, const std::string& dialect) {
    Do("create " + plant + " --demo --start 2026-01-12");
    Do("import " + plant + " '" + samples + "day-2026-01-12.csv' --dnc");
    Do("import " + plant + " '" + samples + "mill2-2026-01-12.shdr' --dnc --machine 104 --map times=plant");
    Do("process " + plant + " --all --dialect " + dialect);
    return Do("records " + plant + " --csv");
  };
  const std::string records = work_day("first.db", "oracle");
  for (const char* dialect : {"oracle", "access", "sqlserver"}) {
    UseNewPlant();
    EXPECT_EQ(work_day(plant_, dialect), records) << dialect;
  }

  std::ifstream csv(samples + "day-2026-01-12.csv");
  std::ifstream shdr(samples + "mill2-2026-01-12.shdr");
  std::map<std::int32_t, int> reported;
  const Recording day = ReadCsv(csv);
  const Recording mill = ReadShdr(shdr);
  for (const Recording* recording : {&day, &mill}) {
    for (const RecordedEvent& event : recording->events) {
      if (event.event == event::kGoodCount)
        reported[event.machine.value_or(104)] += event.param.empty() ? 1 : std::stoi(event.param);
    }
  }
  ASSERT_EQ(reported.size(), 4U);
  for (const auto& [machine, good] : reported) {
    int counted = 0;
    int open = 0;
    std::string last_stop = "2026-01-12 00:00:00";
    for (const CsvRow& record : DoCsv("records " + plant_ + " --dnc --machine " + std::to_string(machine))) {
      counted += std::stoi(record.at("good"));
      open += record.at("stop").empty() ? 1 : 0;
      EXPECT_EQ(record.at("start"), last_stop);
      last_stop = record.at("stop");
    }
    EXPECT_EQ(counted, good) << machine;
    EXPECT_EQ(open, 1) << machine;
  }
}

}  // namespace
}  // namespace kx::tool
