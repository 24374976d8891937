// Machines that are listened to: from adapters on loopback through the spool to the plant, whatever ends or
// is away meanwhile.
#include <iostream>

#include "inputs/recorded_input.h"
#include "plant/grants.h"
#include "tests/support/collecting.h"
#include "tests/support/long_run.h"
#include "tests/support/postgres_server.h"

namespace kx::tool {
namespace {

// A day of a machine in `parts` cycles of a minute each, beginning at 06:00.
std::string Cycles(int parts, int first = 1) {
  std::string lines;
  for (int i = first; i < first + parts; ++i) {
    const auto line = [&](int second, const std::string& values) {
      Append(lines, DateTime(2026, 1, 12, 6).AddSeconds((i - 1) * 60 + second).Format("yyyy-MM-ddThh:mm:ss"),
             "Z|", values, "\n");
    };
    line(0, "execution|ACTIVE");
    line(30, Concat("execution|READY|partcount|", i));
  }
  return lines;
}
constexpr const char* kOpening =
    "2026-01-12T05:59:00Z|avail|AVAILABLE|execution|READY|program|A|partcount|0\n";

// What Cycles and the opening line become.
std::string Expected(std::int32_t machine_id, int parts) {
  std::string text = Concat(machine_id, " 05:59:00 part start A\n");
  for (int i = 0; i < parts; ++i) {
    const auto at = [&](int second) {
      return Concat(machine_id, " ",
                    DateTime(2026, 1, 12, 6).AddSeconds(i * 60 + second).ToText().substr(11));
    };
    Append(text, at(0), " cycle start\n", at(30), " cycle end\n", at(30), " good 1\n");
  }
  return text;
}

// Sends so many parts by each adapter, beginning with number `first`; in the long run a tenth of them every
// second, for five minutes. Returns the number of the last one.
int SendParts(std::initializer_list<Adapter*> adapters, int first, int parts) {
  const int rounds = test::IsLongRun() ? 300 : 1;
  const int of_a_round = test::IsLongRun() ? parts / 10 : parts;
  for (int round = 0; round < rounds; ++round, first += of_a_round) {
    for (Adapter* const adapter : adapters) adapter->Send(Cycles(of_a_round, first));
    if (test::IsLongRun()) std::this_thread::sleep_for(std::chrono::seconds(1));
  }
  std::cout << (first - 1) * 3 << " events of each machine\n";
  return first - 1;
}

TEST_F(CollectTest, WhatComesInWhileThePlantIsAwayArrivesUnderItsOwnTimeAndInOrder) {
  Create();
  Adapter one([] { return kOpening; }), two([] { return kOpening; });
  SetSource(1, one.address());
  SetSource(2, two.address());
  int parts = 0;
  std::string said;
  {
    Running collector(Options());
    ASSERT_TRUE(Waits(2));
    Plant holder(options_);
    holder.db.Begin();
    parts = SendParts({&one, &two}, 1, 500);
    Spool spool(SpoolFile());
    ASSERT_TRUE(Until([&] { return spool.CountEvents() == 6 * parts; }));
    ASSERT_TRUE(
        Until([&] { return collector.Status().ends_with("the plant is out of reach: database is locked"); }));
    holder.db.Rollback();
    ASSERT_TRUE(Waits(6 * parts + 2));
    collector.Stop();
    said = collector.Said();
  }
  EXPECT_NE(said.find("the plant is out of reach, and is tried again"), std::string::npos) << said;
  EXPECT_NE(said.find("Reaches the plant again"), std::string::npos) << said;
  EXPECT_NE(said.find("2 of 2 sources"), std::string::npos) << said;
  std::string of_one, of_two;
  std::istringstream lines(Queue());
  for (std::string line; std::getline(lines, line);) (line[0] == '1' ? of_one : of_two) += line + "\n";
  EXPECT_EQ(of_one, Expected(1, parts));
  EXPECT_EQ(of_two, Expected(2, parts));
}

TEST_F(CollectTest, AServerThatStopsUnderLoadGetsEverythingAfterwards) {
  test::PostgresServer server;
  const std::string database = server.CreateDatabase();
  options_.plant = server.ConnectionString(database);
  Create();
  Adapter adapter([] { return kOpening; });
  SetSource(1, adapter.address());
  {
    // By an account with the rights of these programs.
    Plant owner(options_);
    owner.Run("create role hall login");
    for (std::string statement : Grants(owner, 0, "hall", true)) {
      statement.pop_back();
      owner.Run(statement);
    }
  }
  options_.plant = server.ConnectionString(database, "hall");
  constexpr int kPartsBefore = 200;
  int parts = 0;
  {
    Running collector(Options());
    ASSERT_TRUE(Waits(1));
    adapter.Send(Cycles(kPartsBefore));
    ASSERT_TRUE(Until([&] { return Number("select count(*) from T_SFC_MDC_LOG") > 1; }));
    server.Kill();
    parts = SendParts({&adapter}, kPartsBefore + 1, 200);
    Spool spool(SpoolFile());
    ASSERT_TRUE(Until([&] { return spool.CountEvents() >= 3 * (parts - kPartsBefore); }));
    ASSERT_TRUE(
        Until([&] { return collector.Status().find("the plant is out of reach: ") != std::string::npos; }));
    server.Start();
    ASSERT_TRUE(Waits(3 * parts + 1));
  }
  EXPECT_EQ(Queue(), Expected(1, parts));
}

// A collector may start while the plant is away, when it knows the machines; and a cycle that ended while it
// was down ends at the first sign of that, once.
TEST_F(CollectTest, ACollectorGoesOnFromWhatItsSpoolKnows) {
  Create();
  std::string opening = kOpening;
  Adapter adapter([&] { return opening; });
  SetSource(1, adapter.address());
  {
    Running collector(Options());
    ASSERT_TRUE(Waits(1));
    adapter.Send("2026-01-12T06:00:00Z|execution|ACTIVE\n");
    ASSERT_TRUE(Waits(2));
  }
  adapter.Do(
      [&] { opening = "2026-01-12T06:10:00Z|avail|AVAILABLE|execution|READY|program|A|partcount|3\n"; });
  fs::rename(folder_.path() / "plant.db", folder_.path() / "away.db");
  {
    Running collector(Options());
    ASSERT_TRUE(Until([&] { return adapter.connections == 2; }));
    Spool spool(SpoolFile());
    ASSERT_TRUE(Until([&] { return spool.CountEvents() == 2; }));
    fs::rename(folder_.path() / "away.db", folder_.path() / "plant.db");
    ASSERT_TRUE(Waits(4));
    adapter.Disconnect();
    ASSERT_TRUE(Until([&] { return adapter.connections == 3; }));
    adapter.Send("2026-01-12T06:11:00Z|execution|ACTIVE\n");
    ASSERT_TRUE(Waits(5));
  }
  EXPECT_EQ(Queue(),
            "1 05:59:00 part start A\n1 06:00:00 cycle start\n1 06:10:00 cycle end\n1 06:10:00 good 3\n"
            "1 06:11:00 cycle start\n");
}

TEST_F(CollectTest, ASpoolThatIsFullIsSaidAndTheMachinesAreHeardAgainWhenThereIsRoom) {
  Create();
  std::atomic<int> count = 0;
  Adapter adapter([&] {
    return Concat("2026-01-12T06:00:00Z|avail|AVAILABLE|execution|READY|program|A|partcount|", count.load(),
                  "\n");
  });
  SetSource(1, adapter.address(), "part_limit=30000\n");
  CollectOptions options = Options();
  options.limits.bytes = 300'000;
  std::string said;
  {
    Running collector(options);
    ASSERT_TRUE(Waits(1));
    Plant holder(options_);
    holder.db.Begin();
    // Slowly enough that what is not heard meanwhile is within the limit.
    adapter.SendEach(milliseconds(10), [&] {
      std::string lines;
      for (int i = 0; i < 10; ++i) Append(lines, "2026-01-12T06:00:00Z|partcount|", ++count, "\n");
      return lines;
    });
    ASSERT_TRUE(Until([&] { return !adapter.IsHeard(); }));
    holder.db.Rollback();
    ASSERT_TRUE(Until([&] { return adapter.connections >= 2; }));
    adapter.SendNoMore();
    // No part is lost: the counter tells what was not heard.
    ASSERT_TRUE(Until([&] {
      return Number("select sum(cast(PARAM1 as integer)) from T_SFC_MDC_LOG where PARAM1 <> 'A'") == count;
    })) << count;
    collector.Stop();
    said = collector.Said();
  }
  EXPECT_NE(said.find("the spool is full, with "), std::string::npos) << said;
  EXPECT_NE(said.find("The spool has room again"), std::string::npos) << said;
}

// One machine's trouble is its own.
TEST_F(CollectTest, AWrongSourceTouchesItselfAloneAndSourcesAreReadAnew) {
  Create();
  Adapter adapter([] { return kOpening; });
  SetSource(1, adapter.address());
  SetSource(2, "nowhere");
  SetSource(3, adapter.address(), "part_limit=many\n");
  SetSource(77, adapter.address());
  std::string said;
  {
    Running collector(Options());
    EXPECT_THROW(Collector(Options(), std::cout, std::cerr), ToolError);  // the spool is in use
    CollectOptions other = Options();
    other.spool = folder_.path() / "other";
    Running second(other);
    second.Stop();
    EXPECT_NE(second.Said().find("the plant's machines are being listened to by process"), std::string::npos);
    ASSERT_TRUE(Waits(1));
    adapter.Send("2026-01-12T06:00:00Z|program|it's\n2026-01-12T06:00:01Z|program|B\xFF\n");
    ASSERT_TRUE(Waits(2));
    SetSource(2, adapter.address());
    collector.Reload();
    ASSERT_TRUE(Waits(3));
    collector.Stop();
    said = collector.Said();
  }
  EXPECT_EQ(Queue(),
            "1 05:59:00 part start A\n1 06:00:01 part start B\xEF\xBF\xBD\n2 05:59:00 part start A\n");
  for (const char* text :
       {"machine 2 (Lathe 2) is not heard, from nowhere: ",
        "machine 3 is not listened to: part_limit is a number",
        "machine 77 is not listened to: there is no machine",
        "part start \"it's\" at 2026-01-12 06:00:00 is refused", "2 of 2 sources", "1 refused"})
    EXPECT_NE(said.find(text), std::string::npos) << text << "\n" << said;
}

TEST_F(CollectTest, AClockThatCannotBeRightIsNotBelieved) {
  Create();
  Adapter adapter;
  SetSource(1, adapter.address());
  std::string said;
  {
    Running collector(Options());
    ASSERT_TRUE(Until([&] { return adapter.connections == 1; }));
    const Moment now = Now();
    const auto at = [&](Moment moment) { return RecordedSection::Head(1, moment).substr(20) + "|"; };
    adapter.Send("1970-01-01T00:00:07Z|execution|READY|partcount|0\n1970-01-01T00:00:08Z|partcount|1\n" +
                 at(now + std::chrono::hours(1)) + "partcount|2\n" + at(now - std::chrono::seconds(5)) +
                 "partcount|3\n");
    ASSERT_TRUE(Waits(3));
    collector.Stop();
    said = collector.Said();
  }
  EXPECT_EQ(said.find("the time of arrival is taken instead"),
            said.rfind("the time of arrival is taken instead"));
  EXPECT_NE(said.find("s slow, at 1970-01-01 00:00:08: the time of arrival is taken instead"),
            std::string::npos)
      << said;
  Plant plant(options_);
  const std::int64_t off =
      SecondsBetween(plant.Run("select min(TIME_STAMP) from T_SFC_MDC_LOG").at(0, 0).ToDateTime(),
                     PlantTime(std::time(nullptr)));
  EXPECT_LT(off, 70);
  EXPECT_EQ(
      Number(
          "select max(strftime('%s', TIME_STAMP)) - min(strftime('%s', TIME_STAMP)) < 60 from T_SFC_MDC_LOG"),
      1);
}

TEST_F(CollectTest, AnOlderCopyOfTheSpoolIsNoticedAndNothingComesTwice) {
  Create();
  std::atomic<int> parts = 0;
  Adapter adapter([&] {
    return parts == 0 ? kOpening
                      : Concat("2026-01-12T06:00:00Z|avail|AVAILABLE|execution|READY|program|A|partcount|",
                               parts.load(), "\n");
  });
  SetSource(1, adapter.address());
  const auto make_a_part = [&] {
    const int connections = adapter.connections;
    Running collector(Options());
    EXPECT_TRUE(Until([&] { return adapter.connections > connections; }));
    adapter.Send(Cycles(1, ++parts));
    EXPECT_TRUE(Waits(1 + 3 * parts));
    collector.Stop();
    return collector.Said();
  };
  make_a_part();
  fs::copy_file(SpoolFile(), folder_.path() / "backup.db");
  EXPECT_EQ(make_a_part().find("copy"), std::string::npos);
  fs::copy_file(folder_.path() / "backup.db", SpoolFile(), fs::copy_options::overwrite_existing);
  EXPECT_NE(make_a_part().find("the spool is an older copy"), std::string::npos);
  fs::remove_all(folder_.path() / "spool");
  EXPECT_NE(make_a_part().find("the spool is new, but the plant has taken events"), std::string::npos);
  EXPECT_EQ(Queue(), Expected(1, parts));
}

}  // namespace
}  // namespace kx::tool
