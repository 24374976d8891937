// A month of a plant with twenty machines, at full speed by one object.

#include <gtest/gtest.h>
#include <malloc.h>
#include <sqlite3.h>

#include <filesystem>
#include <iostream>

#include "database/text.h"
#include "tests/support/long_run.h"
#include "tests/support/plant.h"
#include "tests/support/random_walk.h"

namespace kx::test {
namespace {

constexpr int kMachines = 20;
constexpr int kDays = 30;

// What the component holds, without SQLite's page cache, which has a limit of its own.
std::int64_t OwnMemory() { return static_cast<std::int64_t>(mallinfo2().uordblks) - sqlite3_memory_used(); }

auto OpenFiles() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                       std::filesystem::directory_iterator());
}

TEST(MonthTest, InvariantsHoldAndNothingGrows) {
  // In the long run 100,000 events, half a minute apart; otherwise one of ten.
  const int events = IsLongRun() ? 100'000 : 10'000;
  Plant plant(0, DatabaseKind::kSqlite);
  plant.AddMachines(kMachines);
  // On average an event comes after 1,400 s, divided by the pace.
  const int pace = events * 1400 / (kDays * 86'400);
  const std::vector<Step> month = RandomWalk(30, events, kMachines, pace);
  constexpr std::size_t kParts = 10;
  std::int64_t memory = 0;
  std::ptrdiff_t files = 0;
  for (std::size_t part = 0; part < kParts; ++part) {
    plant.db.Begin();
    for (std::size_t i = part * month.size() / kParts; i < (part + 1) * month.size() / kParts; ++i) {
      const Step& step = month[i];
      plant.QueueRow(step.time.ToText(), step.machine, step.command, step.time_code, step.param);
    }
    plant.db.Commit();
    while (plant.component.Next().done) continue;
    ASSERT_EQ(plant.Query("select count(*) from T_SFC_MDC_LOG"), "0");
    ASSERT_EQ(plant.Breaches(), "");
    ExpectReportedCounts(plant);
    // Until then every statement has been cached.
    if (part == kParts / 2) {
      memory = OwnMemory();
      files = OpenFiles();
    }
  }
  EXPECT_EQ(OpenFiles(), files);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
  EXPECT_LT(OwnMemory() - memory, 16 * 1024);
#endif
  std::cout << events << " events of " << kMachines << " machines until " << month.back().time.ToText()
            << ": " << plant.Query("select count(*) from T_SFC_MACHINE_DATA") << " records, memory grew by "
            << OwnMemory() - memory << " bytes in the second half\n";
}

}  // namespace
}  // namespace kx::test
