// The processor that stays, in a time of its own: what it says, when it tries again, what it sets aside.
#include <gtest/gtest.h>

#include <sstream>

#include "database/text.h"
#include "plant/create.h"
#include "plant/follower.h"
#include "plant/queue.h"
#include "tests/support/temporary_folder.h"

namespace kx::tool {
namespace {

using std::chrono::minutes;
using std::chrono::seconds;

class FollowerTest : public ::testing::Test {
 protected:
  FollowerTest() {
    options_.plant = (folder_.path() / "plant.db").string();
    options_.library = KXDATA7_LIBRARY;
    CreateDemoPlant(options_, PlantTime(std::time(nullptr)).Date());
    plant_.emplace(options_);
  }

  // Queues a count; one of 70,000 always fails.
  void Queue(int count) {
    QueueEvent(*plant_, plant_->FindMachine(1), ParseEventName("good"), "1", PlantTime(std::time(nullptr)));
    plant_->Run(
        "update T_SFC_MDC_LOG set PARAM1 = ? where MDC_LOG_ID = (select max(MDC_LOG_ID) from T_SFC_MDC_LOG)",
        {std::to_string(count)});
  }

  // Lets the processor run for so long, by a clock that only its pauses move.
  void Run(minutes length, std::optional<minutes> set_aside_after = {}) {
    FollowOptions follow;
    follow.set_aside_after = set_aside_after;
    const auto begin = FollowOptions::Clock::time_point(std::chrono::hours(1));
    auto time = begin;
    follow.now = [&] { return time; };
    follow.rest = [&](const StopSignal&, std::chrono::milliseconds limit) {
      if (limit >= seconds(1)) pauses_.push_back(std::chrono::duration_cast<seconds>(limit).count());
      time += limit;
      if (time - begin >= length) StopSignal::Request();
    };
    errors_.str("");
    Follower([&] { return options_; }, follow, output_, errors_).Run();
  }

  int Said(std::string_view text) const {
    const std::string all = errors_.str();
    int count = 0;
    for (auto at = all.find(text); at != std::string::npos; at = all.find(text, at + 1)) ++count;
    return count;
  }

  std::int32_t Number(std::string_view sql) { return plant_->Run(sql).at(0, 0).ToInt32Or(0); }

  const TemporaryFolder folder_;
  PlantOptions options_;
  std::optional<Plant> plant_;
  std::vector<std::int64_t> pauses_;
  std::ostringstream output_, errors_;
};

TEST_F(FollowerTest, SaysAnErrorAgainAfterTenMinutesAndTriesWithGrowingPauses) {
  for (const int count : {1, 70'000, 2}) Queue(count);
  Run(minutes(25));
  EXPECT_EQ(Said("Overflow"), 3) << errors_.str();
  ASSERT_GE(pauses_.size(), 8U);
  pauses_.resize(8);
  EXPECT_EQ(pauses_, (std::vector<std::int64_t>{1, 2, 4, 8, 16, 30, 30, 30}));
  EXPECT_EQ(Number("select sum(GOOD_COUNT) from T_SFC_MACHINE_DATA"), 1);
  EXPECT_EQ(ReadQueuedEvent(*plant_)->param, "70000") << "kept, without the switch";
}

TEST_F(FollowerTest, SetsAnEventAsideThatFailsTooLong) {
  for (const int count : {1, 70'000, 2}) Queue(count);
  Run(minutes(4), minutes(5));
  EXPECT_EQ(Said("Set aside"), 0) << errors_.str();
  Run(minutes(6), minutes(5));
  EXPECT_EQ(Said("Set aside row 2 (good, machine 1, "), 1) << errors_.str();
  EXPECT_EQ(Number("select sum(GOOD_COUNT) from T_SFC_MACHINE_DATA"), 3);
  const auto aside = ReadAside(*plant_);
  ASSERT_EQ(aside.size(), 1U);
  EXPECT_EQ(aside[0].event.param + ": " + aside[0].error, "70000: Overflow");
  EXPECT_EQ(Number("select count(*) from T_SFC_MDC_LOG"), 0);
}

// The next event of its machine closes the shift as well.
TEST_F(FollowerTest, SetsARefreshAsideAfterAMinute) {
  plant_->Run("insert into T_SFC_MDC_LOG (MACHINE_ID, TIME_STAMP) values (99, ?)",
              {PlantTime(std::time(nullptr))});
  Queue(1);
  Run(minutes(2));
  EXPECT_EQ(Said("Set aside row 1 (refresh, machine 99, "), 1) << errors_.str();
  EXPECT_EQ(Number("select sum(GOOD_COUNT) from T_SFC_MACHINE_DATA"), 1);
}

// No other row is worked in before it, and it is not worked in twice.
TEST_F(FollowerTest, NeverSetsAnEventAsideThatIsInTheRecords) {
  for (const int count : {1, 2}) Queue(count);
  plant_->Run("create trigger KEEP before delete on T_SFC_MDC_LOG begin select raise(abort, 'kept'); end");
  Run(minutes(12), minutes(1));
  EXPECT_EQ(Said("was applied, but its row could not be deleted (kept)"), 2) << errors_.str();
  EXPECT_EQ(Said("Set aside"), 0) << errors_.str();
  EXPECT_EQ(Number("select sum(GOOD_COUNT) from T_SFC_MACHINE_DATA"), 1);
  EXPECT_EQ(CountBehind(*plant_, 1), 1);
}

// What keeps it from the plant is said once, and again when it is something else.
TEST_F(FollowerTest, TriesWithGrowingPausesToReachThePlantAgain) {
  bool away = false;
  FollowOptions follow;
  auto time = FollowOptions::Clock::time_point(std::chrono::hours(1));
  follow.now = [&] { return time; };
  follow.rest = [&](const StopSignal&, std::chrono::milliseconds limit) {
    if (limit >= seconds(1)) pauses_.push_back(std::chrono::duration_cast<seconds>(limit).count());
    time += limit;
    if (!away && pauses_.empty()) {
      away = true;
      plant_->Run("alter table T_SFC_MDC_LOG rename to AWAY");
    } else if (away && pauses_.size() == 7) {
      away = false;
      plant_->Run("alter table AWAY rename to T_SFC_MDC_LOG");
    } else if (pauses_.size() == 7) {
      StopSignal::Request();
    }
  };
  Follower(
      [&] {
        if (away) throw ToolError("nobody answers");
        return options_;
      },
      follow, output_, errors_)
      .Run();
  EXPECT_EQ(pauses_, (std::vector<std::int64_t>{1, 2, 4, 8, 16, 30, 30}));
  EXPECT_EQ(Said("the plant is out of reach, and is tried again: no such table"), 1) << errors_.str();
  EXPECT_EQ(Said("the plant is still out of reach: nobody answers"), 1) << errors_.str();
  EXPECT_NE(output_.str().find("Reaches the plant again, after 91 s."), std::string::npos) << output_.str();
}

}  // namespace
}  // namespace kx::tool
