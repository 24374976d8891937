// Events that wait for the plant, in the collector's own file.
#include <gtest/gtest.h>

#include "database/text.h"
#include "inputs/spool.h"
#include "plant/events.h"
#include "tests/support/temporary_folder.h"

namespace kx::tool {
namespace {

SpoolBatch BatchOf(int first, int events, const std::string& state) {
  SpoolBatch batch;
  for (int i = first; i < first + events; ++i)
    batch.events.push_back({1, {DateTime(2026, 1, 12), event::kPartStart, std::to_string(i)}});
  batch.states[1] = state;
  return batch;
}

std::string Params(const WaitingBatch& batch) {
  std::string text;
  for (const SpooledEvent& event : batch.events) Append(text, event.event.param, " ");
  const auto state = batch.states.find(1);
  return state == batch.states.end() ? text : text + state->second;
}

TEST(SpoolTest, GivesWholeBatchesWithTheStatesBehindThem) {
  TemporaryFolder folder;
  Spool spool(folder.path() / "spool.db");
  EXPECT_TRUE(spool.is_new());
  spool.Put(BatchOf(1, 2, "a=1\n"), 0);
  spool.Put(BatchOf(3, 0, "a=2\n"), 0);
  spool.Put(BatchOf(3, 2, "a=3\n"), 0);
  spool.Put(BatchOf(5, 0, "a=4\n"), 0);
  EXPECT_EQ(spool.CountEvents(), 4);
  const WaitingBatch first = spool.Next(1);
  EXPECT_EQ(Params(first), "1 2 a=1\n");
  EXPECT_EQ(Params(spool.Next(3)), "1 2 3 4 a=3\n");
  spool.Forget(first.number);

  // Another link to the same file, as after a restart.
  Spool again(folder.path() / "spool.db");
  EXPECT_FALSE(again.is_new());
  EXPECT_EQ(again.Name(), spool.Name());
  const WaitingBatch rest = again.Next(100);
  EXPECT_EQ(Params(rest), "3 4 a=4\n");
  EXPECT_EQ(rest.behind, first.number);
  EXPECT_EQ(again.State(1, true)->at("a"), "4");
  again.Forget(rest.number);
  EXPECT_EQ(again.Next(100).number, 0);
  EXPECT_EQ(again.State(1, true), std::nullopt);
  EXPECT_EQ(again.State(1, false)->at("a"), "4");
}

TEST(SpoolTest, HasLimitsInBytesAndDays) {
  TemporaryFolder folder;
  Spool spool(folder.path() / "spool.db", {2, 200'000});
  constexpr std::int64_t kDay = 86'400;
  spool.Put(BatchOf(1, 1, ""), 10 * kDay);
  EXPECT_FALSE(spool.IsFull(12 * kDay - 1));
  EXPECT_TRUE(spool.IsFull(12 * kDay));
  EXPECT_TRUE(spool.IsFull(12 * kDay - 1));  // not before a tenth is free
  spool.Forget(spool.Next(1).number);
  EXPECT_FALSE(spool.IsFull(12 * kDay));
  int events = 1;
  for (; !spool.IsFull(12 * kDay) && events < 10'000; events += 100)
    spool.Put(BatchOf(events, 100, ""), 12 * kDay);
  EXPECT_LT(events, 10'000);
  EXPECT_GT(events, 1'000);
  spool.Forget(spool.Next(10'000).number);
  EXPECT_FALSE(spool.IsFull(12 * kDay));
}

}  // namespace
}  // namespace kx::tool
