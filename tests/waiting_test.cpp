// What a client sees while another session holds SQLite's lock: its hook runs before each short sleep.

#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <utility>

#include "tests/support/plant.h"

namespace kx::test {
namespace {

using std::chrono::milliseconds;

int hook_runs = 0;

// Another session holds the lock for three seconds of a clock that sleeping alone moves.
TEST(WaitingTest, HookRunsBeforeEverySleep) {
  constexpr milliseconds kHeld{3000};
  constexpr milliseconds kLongestSleep{10};
  Plant plant(2, DatabaseKind::kSqlite);
  FakeHost& host = plant.host;
  host.watch.clock = [&] { return std::chrono::steady_clock::time_point(host.paused); };
  plant.Connect();
  milliseconds release_at{};
  ProcessHost().sleep = [&](milliseconds time) {
    EXPECT_LE(time, kLongestSleep);
    EXPECT_GE(std::exchange(hook_runs, 0), 1);
    host.paused += time;
    if (host.paused >= release_at) plant.db.Rollback();
  };
  // What it throws harms nothing, least of all the engine beneath it.
  SetYieldHook([] {
    ++hook_runs;
    throw std::runtime_error("the hook's own");
  });

  Component& component = plant.component;
  const Outcome done{true, ""};
  const auto append_by_number = [&] {
    return component.Append({1001, 1002, 1003, 1001, 1109}, "", 0, kxdata7::NumberKind::kDnc) == done;
  };
  LONG count = 0;
  kxdata7::Variant hint;
  const struct {
    const char* name;
    bool writes;
    std::function<bool()> call;
  } methods[] = {
      {"IsConnected", false, [&] { return component.IsConnected(); }},
      {"ConnectToDatabase", false,
       [&] { return component.Connect(plant.connection_string(), kxdata7::Dialect{2}) == done; }},
      {"AppendItemToMDCLog", true,
       [&] {
         return component.Append({1, 2, 3, 1, 105}, "J2", 0) == done;
       }},
      {"AppendItemToMDCLogDNC", true, append_by_number},
      {"DoNextItemFromMDCLog", true, [&] { return component.Next() == done; }},
      {"GetMDCLogCount", false, [&] { return component->GetMDCLogCount(&count) == S_OK; }},
      {"CompleteMachineDataRecord", true, [&] { return component->CompleteMachineDataRecord(1) == S_OK; }},
      {"GetNoLock", false, [&] { return component->GetNoLock(&hint) == S_OK; }},
  };
  for (const auto& method : methods) {
    SCOPED_TRACE(method.name);
    const milliseconds start = host.paused;
    release_at = start + kHeld;
    plant.db.Begin();
    EXPECT_TRUE(method.call());
    EXPECT_EQ(host.paused >= release_at, method.writes);
    plant.db.Rollback();
  }
  SetYieldHook(nullptr);
}

}  // namespace
}  // namespace kx::test
