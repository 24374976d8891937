// Producers and a processor as processes of their own, killed at random moments.

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <iostream>
#include <random>
#include <set>
#include <thread>

#include "database/text.h"
#include "tests/support/long_run.h"
#include "tests/support/plant.h"

namespace kx::test {
namespace {

constexpr int kProducers = 3;
constexpr int kKillsPerPlant = 100;

struct Event {
  int command;
  int time_code;
  const char* param;  // null: a text of its own, by which the event is found again
};
constexpr Event kEvents[] = {
    {104, 0, nullptr}, {105, 0, nullptr}, {106, 0, nullptr}, {107, 0, nullptr}, {120, 2, nullptr},
    {108, 0, ""},      {108, 1, ""},      {109, 0, ""},      {109, 1, ""},      {110, 0, ""},
    {110, 1, ""},      {111, 0, "D2"},    {111, 1, ""},      {112, 0, "D1"},    {112, 1, ""},
    {113, 0, "1"},     {114, 0, "1.17"},  {105, 1, ""},      {-1, 0, ""},
};

// What a process tells its parent: an event that was queued for certain, or a failure.
struct Report {
  bool queued;
  char text[63];
};

void Tell(int pipe, bool queued, const std::string& text) {
  Report report{queued, {}};
  text.copy(report.text, sizeof report.text - 1);
  if (write(pipe, &report, sizeof report) != sizeof report) _exit(2);
}

// The clock of SQLite in this process and its children: Monday 07:00 when it is set, and then a shift in half
// a second.
void RunClockFast() {
  setenv("TZ", "UTC", 1);
  static const auto start = std::chrono::steady_clock::now();
  static sqlite3_vfs vfs = *sqlite3_vfs_find(nullptr);
  vfs.zName = "fast clock";
  vfs.xCurrentTimeInt64 = [](sqlite3_vfs*, sqlite3_int64* julian_milliseconds) {
    constexpr sqlite3_int64 kMonday = 212'634'961'200'000;  // 2026-01-12 07:00
    constexpr sqlite3_int64 kSpeed = 60'000;
    const auto passed = std::chrono::steady_clock::now() - start;
    *julian_milliseconds =
        kMonday + kSpeed * std::chrono::duration_cast<std::chrono::milliseconds>(passed).count();
    return SQLITE_OK;
  };
  sqlite3_vfs_register(&vfs, 1);
}

[[noreturn]] void Produce(const std::string& plant, int database_type, const std::string& name, int pipe) {
  std::mt19937 random(std::random_device{}());
  Component client;
  if (!client.Connect(plant, kxdata7::Dialect{database_type}).done) _exit(2);
  for (int i = 0;; ++i) {
    const Event& event = kEvents[random() % std::size(kEvents)];
    const std::string param = event.param != nullptr ? event.param : Concat(name, "-", i);
    const Outcome outcome =
        client.Append({1, 2, 3, 1 + static_cast<int>(random() % 3), event.command}, param, event.time_code);
    if (!outcome.done) Tell(pipe, false, "append: " + outcome.error);
    if (outcome.done && event.param == nullptr) Tell(pipe, true, param);
  }
}

[[noreturn]] void Process(const std::string& plant, int database_type, int pipe) {
  Component client;
  if (!client.Connect(plant, kxdata7::Dialect{database_type}).done) _exit(2);
  for (;;) {
    const Outcome outcome = client.Next();
    if (!outcome.error.empty()) Tell(pipe, false, "next: " + outcome.error);
    if (!outcome.done) std::this_thread::sleep_for(std::chrono::microseconds(200));
  }
}

// Starts them all, lets them work for a while and kills them. Returns what they told.
std::vector<Report> RunAndKill(const std::string& plant, int database_type, const std::string& name,
                               std::chrono::microseconds while_working) {
  int ends[2];
  EXPECT_EQ(pipe(ends), 0);
  std::vector<pid_t> children;
  for (int i = 0; i <= kProducers; ++i) {
    const pid_t child = fork();
    if (child == 0) {
      close(ends[0]);
      if (i == 0) Process(plant, database_type, ends[1]);
      Produce(plant, database_type, Concat(name, "-", i), ends[1]);
    }
    children.push_back(child);
  }
  close(ends[1]);
  std::this_thread::sleep_for(while_working);
  for (const pid_t child : children) kill(child, SIGKILL);
  for (const pid_t child : children) {
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status)) << "a process ended by itself: " << status;
  }
  std::vector<Report> reports;
  for (Report report; read(ends[0], &report, sizeof report) == sizeof report;) reports.push_back(report);
  close(ends[0]);
  return reports;
}

class CrashTest : public testing::TestWithParam<int> {};

// No process may have the plant open when another is forked: SQLite's locks do not survive that.
TEST_P(CrashTest, NothingIsLost) {
  RunClockFast();
  std::mt19937 random(static_cast<unsigned>(GetParam()));
  Plant plant(GetParam() % 3, DatabaseKind::kSqlite);
  const std::string connection = plant.connection_string() + ";Synchronous=Full;Busy Timeout=5000";
  std::set<std::string> queued;
  int twice = 0;
  for (int kills = 1; kills <= kKillsPerPlant; ++kills) {
    SCOPED_TRACE(kills);
    plant.component.Connect("Provider=SQLite;Data Source=:memory:", kxdata7::Dialect{0});
    plant.db.Close();
    const auto while_working = std::chrono::microseconds(1000 + random() % 30'000);
    for (const Report& report :
         RunAndKill(connection, GetParam() % 3, std::to_string(kills), while_working)) {
      ASSERT_TRUE(report.queued) << report.text;
      queued.insert(report.text);
    }
    plant.db.Open(plant.connection_string());
    ASSERT_EQ(plant.Query("PRAGMA integrity_check"), "ok");
    ASSERT_EQ(plant.Breaches(), "");
    // Every event that was acknowledged waits or is applied.
    std::set<std::string> found;
    std::istringstream params(plant.Query(
        "select PARAM1 || char(10) from (select PARAM1 from T_SFC_MDC_LOG union select PARAM1 from "
        "T_SFC_EVENT) where PARAM1 like '%-%'"));
    for (std::string param; std::getline(params, param);) found.insert(param.substr(param.starts_with(';')));
    for (const std::string& param : queued) ASSERT_TRUE(found.contains(param)) << param;
    // A kill makes at most one event be applied twice: those with two rows, and those that will get them.
    const int before = twice;
    twice = static_cast<int>(plant.Number(
        "select (select count(*) - count(distinct PARAM1) from T_SFC_EVENT where PARAM1 like '%-%') + "
        "(select "
        "count(*) from T_SFC_MDC_LOG where PARAM1 in (select PARAM1 from T_SFC_EVENT where PARAM1 like "
        "'%-%'))"));
    ASSERT_LE(twice - before, 1);
    // An event's rows and the counts are written together or not at all.
    ASSERT_EQ(plant.Query("select sum(GOOD_COUNT), sum(SCRAPPED_COUNT) from T_SFC_MACHINE_DATA"),
              plant.Query("select (select count(*) from T_SFC_EVENT where COMMAND_ID = 113), (select "
                          "coalesce(sum(QTY), 0) from T_SFC_SCRAP_PER_MACHINE_DATA)"));
  }
  ASSERT_TRUE(plant.component.Connect(connection, kxdata7::Dialect{GetParam() % 3}).done);
  plant.ProcessAll();
  EXPECT_EQ(plant.Breaches(), "");
  std::cout << kKillsPerPlant << " kills, " << queued.size() << " events of known outcome, " << twice
            << " applied twice\n";
}

INSTANTIATE_TEST_SUITE_P(Plants, CrashTest, testing::Range(0, IsLongRun() ? 20 : 1));

}  // namespace
}  // namespace kx::test
