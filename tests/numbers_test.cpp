// The numbers of reports, against sums that the database itself makes over the rows that the component wrote.
#include <gtest/gtest.h>

#include <sstream>

#include "database/text.h"
#include "tests/support/plant.h"
#include "tests/support/random_walk.h"
#include "views/report.h"
#include "views/timeline.h"

namespace kx::test {
namespace {

using tool::By;

constexpr DateTime kMonday(2026, 1, 12);

// A plant of the component with what looks at it.
struct Viewed : Plant {
  Viewed() : Plant(0) {}

  tool::Scope Of(DateTime first, DateTime last, DateTime now, std::optional<std::int32_t> shift = {}) {
    return {tool::MakeRange(calendar, first, last, shift), {}, now};
  }
  std::string Sums(By by, const tool::Scope& scope) {
    tool::Grouping groups(by, calendar, tool::ReadMachines(view));
    tool::ForEachRecord(view, scope, [&](const tool::RecordRow& record) { groups.Add(record); });
    std::string text;
    for (const tool::Group& group : groups.Groups()) {
      const tool::Sums& s = group.sums;
      Append(text, text.empty() ? "" : ";",
             by == By::kMachine ? std::to_string(group.machine_id) : group.name);
      for (const std::int64_t sum : {s.cycle, s.setup, s.teardown, s.downtime, s.idle, s.finished,
                                     s.unfinished, s.good, s.scrapped, std::int64_t{s.running}})
        Append(text, "|", sum);
    }
    return text;
  }
  // The rows of the report as JSON, in the same form.
  std::string JsonSums(const tool::Scope& scope) {
    std::ostringstream json;
    tool::PrintReport({view, calendar, "", scope}, "machine", tool::Format::kJson, json);
    std::string text;
    std::istringstream lines(json.str());
    for (std::string line; std::getline(lines, line);) {
      if (!line.starts_with("  {")) continue;
      for (const char* name : {"machine", "cycle_s", "setup_s", "teardown_s", "downtime_s", "idle_s",
                               "cycles", "cut_short", "good", "scrapped", "running"}) {
        const std::string key = Concat("\"", name, "\": ");
        const std::size_t at = line.find(key) + key.size();
        Append(text,
               name != std::string_view("machine") ? "|"
               : text.empty()                      ? ""
                                                   : ";",
               line.substr(at, line.find_first_of(",}", at) - at));
      }
    }
    return text;
  }
  // The same by SQL: `key` names the groups, `condition` chooses the records `d`.
  std::string SqlSums(const std::string& key, const std::string& condition) {
    return Query(
        Concat("select ", key,
               ", sum(round(CYCLE_TIME * 60)), sum(round(SETUP_TIME * 3600)), "
               "sum(round(TEARDOWN_TIME * 3600)), sum(coalesce((select sum(round(DURATION * 3600)) from "
               "T_SFC_DT_PER_MACHINE_DATA t where t.MACHINE_DATA_ID = d.MACHINE_DATA_ID), 0)), "
               "sum(round(IDLE_TIME * 3600)), sum(FINISHED_CYCLES), sum(UNFINISHED_CYCLES), sum(GOOD_COUNT), "
               "sum(SCRAPPED_COUNT), max(case when STOP_TIME is null then 1 else 0 end) from "
               "T_SFC_MACHINE_DATA d where ",
               condition, " group by ", key, " order by ", key));
  }

  tool::Plant view{tool::PlantOptions{.plant = connection_string(), .library = {}}};
  tool::Calendar calendar{view};
};

TEST(NumbersTest, EveryGroupingEqualsTheSumsOfTheDatabase) {
  Viewed plant;
  // A month of twenty machines, on a server some days.
  const bool is_month = plant.database.kind() == DatabaseKind::kSqlite;
  plant.AddMachines(20);
  const std::vector<Step> walk = RandomWalk(7, is_month ? 2'200 : 300, 20);
  for (const Step& step : walk)
    plant.QueueRow(step.time.ToText(), step.machine, step.command, step.time_code, step.param);
  plant.ProcessAll();
  const DateTime last = walk.back().time;
  const std::string all =
      Concat("CHART_DATE >= '", kMonday.ToText(), "' and CHART_DATE <= '", last.ToText(), "'");
  const std::string name =
      "coalesce((select USER_NAME from T_SFC_USER u where u.USER_ID = d.USER_ID), nullif(USER_NAME, ''), "
      "'~')";
  const tool::Scope scope = plant.Of(kMonday, last, last);
  EXPECT_GT(DaysBetween(kMonday, last), is_month ? 28 : 1);
  EXPECT_EQ(plant.Sums(By::kMachine, scope), plant.SqlSums("MACHINE_ID", all));
  EXPECT_EQ(plant.JsonSums(scope), plant.SqlSums("MACHINE_ID", all));
  const auto without_names = [](std::string text) { return text.substr(text.find('|')); };
  EXPECT_EQ(
      without_names(plant.Sums(By::kMachine, plant.Of(kMonday.AddDays(1), kMonday.AddDays(1), last, 3))),
      without_names(plant.SqlSums("MACHINE_ID", "CHART_DATE = '2026-01-13 00:00:00' and SHIFT_ID = 3")));
  // Groups come in another order, but the sums over a name are the same.
  for (const auto& [by, key] :
       {std::pair(By::kOperator, name),
        std::pair(By::kJob, std::string("coalesce((select JOB_NUMBER from T_SFC_JOB j where "
                                        "j.JOB_ID = d.JOB_ID), nullif(JOB_NUMBER, ''), '~')"))}) {
    std::set<std::string> groups, expected;
    std::istringstream ours(plant.Sums(by, scope) + ";"), theirs(plant.SqlSums(key, all) + ";");
    for (std::string group; std::getline(ours, group, ';');)
      groups.insert(group.starts_with('|') ? "~" + group : group);
    for (std::string group; std::getline(theirs, group, ';');) expected.insert(group);
    EXPECT_EQ(groups, expected);
  }

  tool::Sums total;
  tool::ForEachRecord(plant.view, scope, [&](const tool::RecordRow& record) { total += record.sums; });
  std::int64_t downtime = 0, scrap = 0;
  for (const tool::ReasonSum& sum :
       tool::SumByReason(tool::MergeStops(tool::ReadDowntimes(plant.view, scope))))
    downtime += sum.amount;
  for (const tool::ReasonSum& sum : tool::SumByReason(tool::ReadScrap(plant.view, scope)))
    scrap += sum.amount;
  EXPECT_EQ(downtime, total.downtime);
  EXPECT_EQ(scrap, total.scrapped);
}

TEST(NumbersTest, AShiftOfOneMachineWithEveryState) {
  Viewed plant;
  plant.Run(
      "06:10 logon start anna; 06:10 job start J1; 06:10 part start P1; 06:10 setup start; 06:40 setup end; "
      "06:45 cycle start; 07:15 cycle end; 07:15 good 2; 07:20 scrap 1.55; 07:30 down start D2; "
      "08:00 logon start bert; 08:30 down end; 09:00 userdown start D1; 09:10 userdown end; "
      "09:20 userdown start; 09:50 userdown end; 10:00 down start nobody; 10:05 cycle start; "
      "13:30 cycle end; 13:50 down start D2");
  const tool::Scope scope = plant.Of(kMonday, kMonday, DateTime(2026, 1, 12, 13, 59), 1);
  const std::vector<tool::DowntimeRow> stops = tool::MergeStops(tool::ReadDowntimes(plant.view, scope));
  std::string text;
  for (const tool::ReasonSum& sum : tool::SumByReason(stops))
    Append(text, sum.reason.Text(), sum.by_operator ? ", operator " : " ", sum.amount, "+", sum.running,
           " in ", sum.stops, "; ");
  // The stop that the logon cut is one; the open one counts until now.
  EXPECT_EQ(text,
            "Lunch 3600+540 in 2; No reason given, operator 1800+0 in 1; Meeting, operator 600+0 in 1; "
            "Unknown code nobody 300+0 in 1; ");

  std::vector<tool::RecordRow> records;
  tool::Sums sums;
  tool::ForEachRecord(plant.view, scope, [&](const tool::RecordRow& record) {
    if (record.machine_id != 1) return;
    records.push_back(record);
    sums += record.sums;
  });
  EXPECT_EQ(sums.covered, 7 * 3600 + 59 * 60);
  // The first record's idle time has no start, idle does not begin again when an operator's downtime ends,
  // and the open downtime is not booked yet.
  EXPECT_EQ(sums.NotBooked(), 10 * 60 + (10 + 10) * 60 + 9 * 60);
  EXPECT_EQ(sums.Quality(), 100.0 * 2 / 3);

  auto timelines = tool::ReadTimelines(plant.view, scope, tool::ReadMachines(plant.view), records, stops,
                                       tool::ReadScrap(plant.view, scope));
  std::map<tool::State, std::int64_t> seconds;
  DateTime at = scope.range.from;
  for (const tool::Segment& segment : timelines[1].segments) {
    seconds[segment.state] += SecondsBetween(segment.start, segment.stop);
    if (segment.state == tool::State::kDown) continue;
    EXPECT_GE(segment.start, at);
    at = segment.stop;
  }
  EXPECT_EQ(seconds[tool::State::kCycle], sums.cycle);
  EXPECT_EQ(seconds[tool::State::kSetup], sums.setup);
  EXPECT_EQ(seconds[tool::State::kDown], sums.downtime + 540);
  EXPECT_EQ(seconds[tool::State::kNoData], 0);
  EXPECT_EQ(seconds[tool::State::kIdle], sums.idle + sums.NotBooked() - 540);
  ASSERT_EQ(timelines[1].good.size(), 1u);
  EXPECT_EQ(timelines[1].good[0].parts, 2);
  EXPECT_EQ(timelines[1].scrap.size(), 1u);
  EXPECT_TRUE(timelines[1].open);
}

TEST(NumbersTest, RangesFollowTheShiftsOfTheCalendar) {
  Viewed plant;
  const auto named = [&](const char* name, DateTime now) {
    const tool::Range range = tool::NamedRange(plant.calendar, name, now).value();
    return Concat(range.Title(), " ", range.from.ToText().substr(5, 11), " ",
                  range.to.ToText().substr(5, 11));
  };
  const DateTime night(2026, 1, 14, 2);  // of Tuesday's night shift
  EXPECT_TRUE(named("shift", night).ends_with(", Tuesday 13 January 2026 01-13 22:00 01-14 06:00"));
  EXPECT_TRUE(named("last", night).ends_with(", Tuesday 13 January 2026 01-13 14:00 01-13 22:00"));
  // A day reaches from the end of the night before to that of its own night shift.
  EXPECT_EQ(named("today", night), "Tuesday 13 January 2026 01-13 06:00 01-14 06:00");
  EXPECT_EQ(named("yesterday", night), "Monday 12 January 2026 01-12 00:00 01-13 06:00");
  EXPECT_EQ(named("week", night), "Monday 12 January 2026 – Sunday 18 January 2026 01-12 00:00 01-19 00:00");
  const DateTime sunday(2026, 1, 18, 12);
  EXPECT_EQ(named("shift", sunday), "Sunday 18 January 2026 01-18 00:00 01-19 00:00");
  EXPECT_TRUE(named("last", sunday).ends_with(", Friday 16 January 2026 01-16 22:00 01-17 06:00"));
  const auto before = tool::RangeBefore(plant.calendar, *tool::NamedRange(plant.calendar, "last", night));
  EXPECT_EQ(before->from, DateTime(2026, 1, 13, 6));
  EXPECT_THROW(tool::MakeRange(plant.calendar, kMonday, kMonday.AddDays(-1)), tool::ToolError);
  EXPECT_THROW(tool::MakeRange(plant.calendar, kMonday, kMonday.AddDays(5000)), tool::ToolError);
}

}  // namespace
}  // namespace kx::test
