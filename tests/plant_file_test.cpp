// A plant from one file: what is refused and where, what apply changes on both databases, and that what show
// prints changes nothing, whatever is in the plant.
#include <gtest/gtest.h>

#include <algorithm>

#include "database/text.h"
#include "plant/apply.h"
#include "plant/create.h"
#include "plant/plant_file.h"
#include "tests/support/faulty_vfs.h"
#include "tests/support/long_run.h"
#include "tests/support/plant_database.h"
#include "tests/support/temporary_folder.h"

namespace kx::tool {
namespace {

constexpr DateTime kNow(2026, 1, 12, 9);

constexpr const char* kHall = R"(
name = "Hall 3"
departments = [{ number = 10, name = "Turning" }, { number = 20, name = "Milling" }]
locations = ["Hall 1"]
groups = [{ number = 1, name = "All" }]
operations = ["10", "20"]

[shifts.Early]
mon-fri = "06:00-14:00"
sat = "06:00-12:00"
[shifts.Night]
sun-thu = "22:00-06:00"

[defaults.machine]
location = "Hall 1"
part_limit = 20

[[machines]]
department = "Turning"
each = [
  { number = 101, name = "Lathe 1", adapter = "10.0.1.21:7878", keys = { execution = "exec" } },
  { number = 102, name = "Lathe's twin", shifts = ["Early"], times = "plant" },
]

[operators]
"Zoë" = "Night"
"Anna" = ""
[parts]
"A \"1\"" = 1
B = {}
[jobs]
J = ["B", "A \"1\"", "B"]
[downtimes.machine]
01 = "Tool"
[downtimes.user]
01 = { name = "Break" }
[scrap]
default = "0"
0 = "None"
17 = "Bad"
[commands]
Coolant = 100
[options]
setup_ignores_cycles = true
)";

std::string Text(const std::vector<Problem>& problems) {
  std::string text;
  for (const Problem& problem : problems)
    Append(text, problem.at.line, ":", problem.at.column, " ", problem.text, "\n");
  return text;
}

PlantDescription Parse(const std::string& text) {
  std::vector<Problem> problems;
  PlantDescription description = ParsePlantFile(text, kNow, problems);
  EXPECT_EQ(Text(problems), "") << text;
  return description;
}

std::string Replaced(std::string text, const std::string& what, const std::string& by) {
  const std::size_t at = text.find(what);
  EXPECT_NE(at, std::string::npos) << what;
  return text.replace(at, what.size(), by);
}

TEST(PlantFileTest, EveryProblemIsSaidAtItsPlace) {
  struct Case {
    const char* what;
    const char* by;
    const char* problem;  // the beginning of the only one
  };
  const std::vector<Case> cases = {
      {"number = 20", "number = 10", "3:51 the department \"Milling\" has the number 10 of \"Turning\""},
      {"locations = [\"Hall 1\"]", "locations = [\"Hall 1\", \"\"]", "4:24 a location has no name"},
      {"\"10\", \"20\"", "\"10\", \"10\"", "6:21 the operation \"10\" is there twice"},
      {"mon-fri = \"06:00-14:00\"", "mon-fri = \"06:00-25:00\"", "9:11 mon-fri must be a text like"},
      {"sat = ", "fri = ", "10:1 the shift Early has fri twice"},
      {"22:00-06:00", "22:00-06:01", "12:1 the shift \"Night\" on mon overlaps \"Early\""},
      {"sun-thu = \"22:00-06:00\"", "", "11:9 the shift \"Night\" has no day"},
      {"part_limit = 20", "part_limits = 20", "16:1 a machine has no field part_limits"},
      {"department = \"Turning\"", "department = \"Drilling\"",
       "21:3 the machine \"Lathe 1\" names \"Drilling\""},
      {"[\"Early\"]", "[]", "22:3 the machine \"Lathe's twin\" has no shift"},
      {"times = \"plant\"", "start = 2099-01-01", "22:70 start must be a date"},
      {"10.0.1.21:7878", "http://x", "21:3 the machine \"Lathe 1\" has the adapter"},
      {"\"Anna\"", "\"O'Hara\"", "27:1 the operator \"O'Hara\" has an apostrophe"},
      {"B = {}", "B = {}\nB = 2", "31:"},
      {"[downtimes.user]", "[downtimes.both]", "36:1 the downtime code \"01\" is there twice"},
      {"default = \"0\"", "default = \"1\"", "38:11 there is no scrap code \"1\""},
      {"Coolant = 100", "Coolant = \"x\"", "42:11 number must be a whole number"},
      {"= true\n", "= 1\n", "44:24 setup_ignores_cycles must be true or false"},
      {"= true\n", "= yes\n", "44:"},
  };
  std::vector<Problem> problems;
  for (const Case& each : cases) {
    problems.clear();
    ParsePlantFile(Replaced(kHall, each.what, each.by), kNow, problems);
    const std::string text = Text(problems);
    EXPECT_TRUE(text.starts_with(each.problem)) << text << "instead of " << each.problem;
    const auto of_same_thing = [&](const Problem& problem) { return problem.at.line == problems[0].at.line; };
    EXPECT_TRUE(std::ranges::all_of(problems, of_same_thing) || problems.size() == 2) << text;
  }
  // Many at once, beside lines that are no TOML: what might stand in those is not missed.
  std::string file = Replaced(kHall, "name = \"Turning\"", "name = Turning");
  file = Replaced(file, "sat = ", "sit = ");
  file = Replaced(file, "\"Anna\"", "\"\"");
  problems.clear();
  ParsePlantFile(file, kNow, problems);
  ASSERT_EQ(problems.size(), 3U) << Text(problems);
  EXPECT_EQ(problems[0].at.line, 3U);
  EXPECT_EQ(problems[1].at, (Position{10, 1}));
  EXPECT_EQ(problems[2].at, (Position{27, 1}));
}

class ApplyTest : public ::testing::TestWithParam<test::DatabaseKind> {
 protected:
  ApplyTest() {
    if (GetParam() == test::DatabaseKind::kPostgres) {
      auto& server = test::TestServer();
      options_.plant = server.ConnectionString(server.CreateDatabase());
    } else {
      options_.plant = (folder_.path() / "plant.db").string();
    }
    CreatePlant(options_, nullptr, kNow);
  }

  // Brings the plant to a file and returns what changed.
  std::vector<std::string> Apply(const std::string& file, bool prune = false) {
    Plant plant(options_);
    plant.db.Begin();
    const Applied applied = ApplyDescription(plant, Parse(file), kNow, prune);
    EXPECT_EQ(Text(applied.problems), "");
    plant.db.Commit();
    stays_ = applied.stays;
    return applied.changes;
  }

  std::string Show() {
    Plant plant(options_);
    return WritePlantFile(DescribePlant(plant));
  }

  void ExpectShownIsAsItIs() {
    const std::string shown = Show();
    EXPECT_EQ(Apply(shown), std::vector<std::string>()) << shown;
    EXPECT_EQ(Show(), shown);
  }

  std::string Query(const std::string& sql) {
    Plant plant(options_);
    std::string text;
    for (const Value& value : plant.Run(sql).values) Append(text, value.ToTextOr("-"), "|");
    return text;
  }

  TemporaryFolder folder_;
  PlantOptions options_;
  std::vector<std::string> stays_;
};
INSTANTIATE_TEST_SUITE_P(Plants, ApplyTest,
                         ::testing::Values(test::DatabaseKind::kSqlite, test::DatabaseKind::kPostgres),
                         [](const auto& each) {
                           return std::string(each.param == test::DatabaseKind::kSqlite ? "sqlite"
                                                                                        : "postgresql");
                         });

TEST_P(ApplyTest, ThePlantBecomesWhatTheFileSays) {
  Apply(kHall);
  EXPECT_EQ(
      Query(
          "select p.PART_NUMBER from T_SFC_PART_PER_JOB b, T_SFC_PART p where p.PART_ID = b.PART_ID order by "
          "ORDINAL"),
      "B|A \"1\"|B|");
  EXPECT_EQ(Query("select START_TIME, STOP_TIME, IS_SWING from T_SFC_INTERVAL order by INTERVAL_ID"),
            "1970-01-01 06:00:00|1970-01-01 14:00:00|0|1970-01-01 06:00:00|1970-01-01 12:00:00|0|"
            "1970-01-01 22:00:00|1970-01-02 06:00:00|1|");
  EXPECT_EQ(
      Query("select SUN_INTERVAL_ID, MON_INTERVAL_ID, FRI_INTERVAL_ID from T_SFC_SHIFT where SHIFT_ID = 2"),
      "3|3|-|");
  EXPECT_EQ(Query("select SOURCE_KIND, SOURCE_ADDRESS, SOURCE_MAPPING from T_SFC_SOURCE order by MACHINE_ID"),
            "adapter|10.0.1.21:7878|execution=exec\npart_limit=20\n|-|-|part_limit=20\ntimes=plant\n|");
  EXPECT_EQ(
      Query("select m.MACHINE_NAME, d.DEPT_ID, d.GROUP_ID, d.START_TIME from T_SFC_MACHINE m, "
            "T_SFC_MACHINE_DATA "
            "d where d.MACHINE_DATA_ID = m.MACHINE_DATA_ID and d.STOP_TIME is null order by m.MACHINE_ID"),
      "Lathe 1|1|-1|2026-01-12 09:00:00|Lathe's twin|1|-1|2026-01-12 09:00:00|");
  EXPECT_EQ(Query("select OPTION_CODE from T_SFC_OPTION where BOOL_VAL = 1"), "4|");
  EXPECT_EQ(Apply(kHall), std::vector<std::string>());
  ExpectShownIsAsItIs();
  Plant plant(options_);
  EXPECT_TRUE(MissingForEvents(DescribePlant(plant)).empty());
  EXPECT_TRUE(CheckPlant(plant).empty());
}

TEST_P(ApplyTest, ChangesKeepTheRows) {
  Apply(kHall);
  std::string file = Replaced(kHall, "name = \"Turning\"", "name = \"Lathes\", was = \"Turning\"");
  file = Replaced(file, "department = \"Turning\"", "department = \"Lathes\"");
  file = Replaced(file, "[shifts.Night]", "[shifts.Dark]\nwas = \"Night\"");
  file = Replaced(file, "\"Zoë\" = \"Night\"", "\"Zoë\" = \"Dark\"");
  file = Replaced(file, "sat = \"06:00-12:00\"", "sat = \"07:00-12:00\"");
  file = Replaced(file, "shifts = [\"Early\"], ", "");
  EXPECT_EQ(Apply(file), (std::vector<std::string>{
                             "renamed the department \"Turning\" to \"Lathes\"",
                             "changed the shift \"Early\": sat from \"06:00-12:00\" to \"07:00-12:00\"",
                             "renamed the shift \"Night\" to \"Dark\"",
                             "changed the machine \"Lathe's twin\": shifts from [Early] to all"}));
  EXPECT_EQ(Query("select DEPT_ID, DEPT_NAME from T_SFC_DEPT order by DEPT_ID"), "1|Lathes|2|Milling|");
  EXPECT_EQ(Apply(file), std::vector<std::string>());

  // What a file no longer names stays; pruned, what something refers to.
  Query("insert into T_SFC_MDC_LOG (MACHINE_ID, PARAM1) values (1, 'B')");
  const std::string small = "[shifts.Early]\nmon-fri = \"06:00-14:00\"\n[[machines]]\nname = \"Lathe 1\"\n";
  Apply(small);
  EXPECT_EQ(std::ranges::count(stays_, "the part \"B\""), 1);
  EXPECT_EQ(stays_.size(), 18U);
  Apply(small, true);
  EXPECT_EQ(stays_, (std::vector<std::string>{"the part \"B\": 1 row of T_SFC_MDC_LOG"}));
  EXPECT_EQ(Query("select count(*) from T_SFC_MACHINE_DATA"), "1|");
  EXPECT_EQ(Query("select count(*) from T_SFC_INTERVAL"), "1|");
  EXPECT_EQ(Query("select count(*) from T_SFC_COMMAND"), "11|");
}

TEST_P(ApplyTest, WhatDoesNotGoWithThePlantIsRefusedWhole) {
  Apply(kHall);
  const std::string before = Show();
  std::string file = Replaced(kHall, "\"Lathe 1\"", "\"Lathe 9\"");
  file = Replaced(file, "Coolant = 100", "Coolant = 100\nLog = { number = 55, type = 4 }");
  Plant plant(options_);
  plant.db.Begin();
  const Applied applied = ApplyDescription(plant, Parse(file), kNow, false);
  plant.db.Rollback();
  ASSERT_EQ(applied.problems.size(), 2U) << Text(applied.problems);
  EXPECT_NE(applied.problems[0].text.find("was = \"Logon\""), std::string::npos) << Text(applied.problems);
  EXPECT_NE(applied.problems[1].text.find("was = \"Lathe 1\""), std::string::npos) << Text(applied.problems);
  EXPECT_EQ(Show(), before);
}

// What others wrote, as no file could say it.
TEST_P(ApplyTest, ForeignPlantsAreShown) {
  Apply(kHall);
  for (const char* sql : {
           "insert into T_SFC_DEPT (VELKARIS_ID, DEPT_NAME) values (10, 'Turning'), (10, 'Ten'), (NULL, "
           "NULL)",
           "insert into T_SFC_PART (PART_NUMBER, PART_TYPE_ID) values ('O''Neil', NULL)",
           "insert into T_SFC_PART_PER_JOB (JOB_ID, PART_ID, ORDINAL) values (1, 3, 9)",
           "insert into T_SFC_INTERVAL (START_TIME, STOP_TIME, IS_SWING) values ('1999-01-01 06:00:00', "
           "'1999-01-01 07:00:00', 0), ('1970-01-01 12:00:00', '1970-01-01 15:00:00', 0)",
           "insert into T_SFC_SHIFT (SHIFT_NAME, MON_INTERVAL_ID, TUE_INTERVAL_ID) values ('Odd', 4, 5), "
           "('Idle', NULL, NULL), (NULL, 1, 1)",
           "insert into T_SFC_USER (USER_NAME, SHIFT_ID) values ('Bo', 4), ('Cy', 77)",
           "insert into T_SFC_MACHINE (VELKARIS_ID, MACHINE_NAME) values (101, 'No record')",
           "insert into T_SFC_MACHINE_SHIFT (MACHINE_ID, SHIFT_ID) values (1, 4), (1, 77)",
           "insert into T_SFC_DOWNTIME_CODE (DOWNTIME_CODE_NUMBER, DOWNTIME_TYPE_CODE) values ('9', 7)",
           "insert into T_SFC_COMMAND (COMMAND_NAME, COMMAND_TYPE_CODE) values ('Also a logon', 4), ('Mine', "
           "-3)",
           "update T_SFC_SCRAP_CODE set SCRAP_CODE_TYPE_CODE = 1",
           "delete from T_SFC_OPTION where OPTION_CODE = 5",
       })
    Query(sql);
  const std::string shown = Show();
  for (const char* part : {"# Left as it is: the part \"O'Neil\"", "overlaps = true", "keep = [\"mon\"]",
                           "keep = [\"parts\"]", "keep = [\"number\"]", "Missing before events go through"})
    EXPECT_NE(shown.find(part), std::string::npos) << part << " in\n" << shown;
  ExpectShownIsAsItIs();
}

// A process that is killed while it applies a file leaves what stood there before, or all of it.
TEST(ApplyInterruptedTest, ThePlantIsWhole) {
  test::FaultyVfs disk;
  for (int n = 1;; n += test::Stride(7)) {
    ASSERT_LT(n, 5000);
    const TemporaryFolder folder;
    PlantOptions options;
    options.plant = (folder.path() / "plant.db").string();
    CreatePlant(options, nullptr, kNow);
    const auto show = [&] {
      Plant plant(options);
      return WritePlantFile(DescribePlant(plant));
    };
    const std::string untouched = show();
    bool done = false;
    try {
      Plant plant(options);
      disk.FailNth(n, true);
      plant.db.Begin();
      ApplyDescription(plant, Parse(kHall), kNow, false);
      plant.db.Commit();
      done = true;
    } catch (const DatabaseError&) {
    }
    const bool failed = disk.failed();
    disk.Heal();
    const std::string after = show();
    EXPECT_TRUE((!done && after == untouched) || after.find("Lathe's twin") != std::string::npos) << n;
    if (!failed) break;
  }
}

}  // namespace
}  // namespace kx::tool
