// Several objects in several threads, one object in several threads. Meant for the thread sanitizer.

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "database/text.h"
#include "tests/support/plant.h"

namespace kx::test {
namespace {

constexpr int kThreads = 8;
constexpr int kRounds = 25;
constexpr int kDoor = 120;

// A plant for clients with the real clock, pause and engines: a plant's own host serves one thread alone.
struct SharedPlant {
  SharedPlant() { ProcessHost() = real_host; }
  std::string connection_string() const { return plant.connection_string() + ";Busy Timeout=10000"; }

  const Host real_host = ProcessHost();
  Plant plant{2, DatabaseKind::kSqlite};
};

template <class Work>
void InThreads(Work work) {
  std::vector<std::jthread> threads;
  for (int i = 0; i < kThreads; ++i) threads.emplace_back(work, i);
}

void AppendRounds(Component& client, int who) {
  for (int round = 0; round < kRounds; ++round) {
    const Outcome outcome = client.Append({1, 2, 3, 1 + who % 3, kDoor}, Concat("t", who), 2);
    ASSERT_EQ(outcome, (Outcome{true, ""}));
  }
}

std::string DoorsByClient(Plant& plant) {
  return plant.Query("select PARAM1, count(*) from T_SFC_EVENT group by PARAM1 order by PARAM1");
}

// Clients come and go while they append; one more takes every event off.
TEST(ThreadTest, ObjectsOnOnePlant) {
  SharedPlant plant;
  std::atomic<int> appending = kThreads;
  std::jthread processor([&] {
    Component client;
    ASSERT_TRUE(client.Connect(plant.connection_string(), kxdata7::Dialect{2}).done);
    bool last = false;
    for (;;) {
      const Outcome outcome = client.Next();
      ASSERT_EQ(outcome.error, "");
      if (outcome.done) continue;
      if (last) break;
      last = appending == 0;
      std::this_thread::yield();
    }
  });
  InThreads([&](int who) {
    Component client;
    EXPECT_TRUE(client.Connect(plant.connection_string(), kxdata7::Dialect{who % 3}).done);
    AppendRounds(client, who);
    --appending;
  });
  processor.join();
  std::string expected;
  for (int who = 0; who < kThreads; ++who) Append(expected, who == 0 ? "" : ";", "t", who, "|", kRounds);
  EXPECT_EQ(DoorsByClient(plant.plant), expected);
  EXPECT_EQ(plant.plant.Breaches(), "");
}

TEST(ThreadTest, ObjectsOnPlantsOfTheirOwn) {
  std::array<SharedPlant, kThreads> plants;
  InThreads([&](int who) {
    SharedPlant& plant = plants[static_cast<std::size_t>(who)];
    Component client;
    EXPECT_TRUE(client.Connect(plant.connection_string(), kxdata7::Dialect{who % 3}).done);
    AppendRounds(client, who);
    for (int round = 0; round < kRounds; ++round) EXPECT_EQ(client.Next(), (Outcome{true, ""}));
  });
  for (int who = 0; who < kThreads; ++who) {
    EXPECT_EQ(DoorsByClient(plants[static_cast<std::size_t>(who)].plant), Concat("t", who, "|", kRounds));
  }
}

// The object goes round the threads; each hands it on under a lock.
TEST(ThreadTest, OneObjectFromThreadToThread) {
  SharedPlant plant;
  Component client;
  ASSERT_TRUE(client.Connect(plant.connection_string(), kxdata7::Dialect{2}).done);
  std::mutex mutex;
  std::condition_variable handed_on;
  int turn = 0;
  InThreads([&](int who) {
    for (int round = 0; round < kRounds; ++round) {
      std::unique_lock lock(mutex);
      handed_on.wait(lock, [&] { return turn % kThreads == who; });
      EXPECT_EQ(client.Append({1, 2, 3, 1, kDoor}, Concat("t", who), 2), (Outcome{true, ""}));
      EXPECT_EQ(client.Next(), (Outcome{true, ""}));
      ++turn;
      handed_on.notify_all();
    }
  });
  EXPECT_EQ(plant.plant.Query("select count(*) from T_SFC_EVENT"), std::to_string(kThreads * kRounds));
}

// Nobody hands over anything: a call is either carried out whole or refused and leaves no trace.
TEST(ThreadTest, CallsIntoOneObjectAtOnce) {
  SharedPlant plant;
  Component client;
  ASSERT_TRUE(client.Connect(plant.connection_string(), kxdata7::Dialect{2}).done);
  std::atomic<int> appended = 0;
  std::atomic<int> refused = 0;
  // Another session keeps the first append waiting until a call has been refused.
  plant.plant.db.Begin();
  std::jthread let_go([&] {
    while (refused == 0) std::this_thread::yield();
    plant.plant.db.Rollback();
  });
  InThreads([&](int who) {
    for (int round = 0; round < kRounds; ++round) {
      const kxdata7::Bstr param = kxdata7::Bstr::FromUtf8(Concat("t", who));
      kxdata7::Bstr error(OLESTR("mine"));
      VARIANT_BOOL done = VARIANT_FALSE;
      LONG count = -1;
      const bool counts = round % 2 == 0;
      const HRESULT result =
          counts ? client->GetMDCLogCount(&count)
                 : client->AppendItemToMDCLog(1, 2, 3, 1, kDoor, param.get(), 2, error.inout(), &done);
      if (result == S_OK) {
        EXPECT_EQ(TakeThreadError(), "");
        if (!counts) {
          EXPECT_EQ(done, VARIANT_TRUE) << error.ToUtf8();
          ++appended;
        }
        continue;
      }
      EXPECT_EQ(result, RPC_E_SERVERCALL_RETRYLATER);
      EXPECT_EQ(TakeThreadError(), "The object is working for another call.");
      EXPECT_EQ(error.ToUtf8(), "mine");
      EXPECT_EQ(done, VARIANT_FALSE);
      ++refused;
      std::this_thread::yield();
    }
  });
  let_go.join();
  EXPECT_EQ(plant.plant.Query("select count(*) from T_SFC_MDC_LOG"), std::to_string(appended));
  LONG count = -1;
  EXPECT_EQ(client->GetMDCLogCount(&count), S_OK);
  EXPECT_EQ(count, appended);
}

}  // namespace
}  // namespace kx::test
