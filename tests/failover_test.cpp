// A plant on two servers: one fails under producers and a processor, the other takes over.

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <iostream>
#include <map>
#include <random>
#include <thread>

#include "database/text.h"
#include "tests/support/long_run.h"
#include "tests/support/plant.h"

namespace kx::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr int kProducers = 4;
constexpr int kEventsBefore = 20;  // of each producer, before the server may fail
constexpr int kEventsAfter = 20;   // of each producer, once it is connected again

// What the processes tell each other.
struct Progress {
  std::atomic<int> ready{0};             // producers that have queued kEventsBefore events
  std::atomic<int> done{0};              // producers that have queued kEventsAfter events after the failure
  std::atomic<int> processor_failed{0};  // calls that failed when the server did
};

enum class Fate { kQueued, kNotQueued, kUnknown };
struct Report {
  Fate fate;
  char event[32];
  char error[200];
};

void Reconnect(Component& client, const std::string& plant) {
  const auto give_up = steady_clock::now() + std::chrono::seconds(60);
  while (!client.Connect(plant, kxdata7::Dialect{0}).done) {
    if (steady_clock::now() > give_up) _exit(3);
    std::this_thread::sleep_for(milliseconds(20));
  }
}

// Queues events of different names, each once whatever becomes of it, until it has gone on after the failure.
[[noreturn]] void Produce(const std::string& plant, const std::string& name, int pipe, Progress& progress) {
  Component client;
  Reconnect(client, plant);
  int after = -1;  // events queued since the failure
  for (int i = 1; after < kEventsAfter; ++i) {
    Report report{};
    const std::string event = Concat(name, "-", i);
    const Outcome outcome = client.Append({1, 2, 3, 1 + i % 3, 120}, event, 2);
    const bool unknown = outcome.error.find("unknown") != std::string::npos;
    report.fate = outcome.done ? Fate::kQueued : unknown ? Fate::kUnknown : Fate::kNotQueued;
    event.copy(report.event, sizeof report.event - 1);
    outcome.error.copy(report.error, sizeof report.error - 1);
    if (write(pipe, &report, sizeof report) != sizeof report) _exit(2);
    if (outcome.done) {
      if (i == kEventsBefore) ++progress.ready;
      if (after >= 0) ++after;
    } else {
      Reconnect(client, plant);
      after = 0;
    }
  }
  ++progress.done;
  _exit(0);
}

// Works the queue off until the producers are done.
[[noreturn]] void Process(const std::string& plant, Progress& progress) {
  Component client;
  Reconnect(client, plant);
  for (;;) {
    const bool last = progress.done == kProducers;
    const Outcome outcome = client.Next();
    if (outcome.done) continue;
    if (!client.IsConnected()) {
      ++progress.processor_failed;
      Reconnect(client, plant);
    } else if (!outcome.error.empty()) {
      std::cerr << outcome.error << '\n';
      _exit(2);
    } else if (last) {
      _exit(0);
    } else {
      std::this_thread::sleep_for(milliseconds(1));
    }
  }
}

template <class Work>
pid_t Fork(Work work) {
  const pid_t child = fork();
  if (child == 0) work();
  return child;
}

class FailoverTest : public testing::Test {
 protected:
  // Starts everybody, lets the server fail at some moment and the standby take over. Returns what the
  // producers told.
  std::vector<Report> Round(const std::string& name, milliseconds moment) {
    TestServer().AddStandby();
    const std::string both = plant_.connection_string();
    auto* const progress =
        new (mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))
            Progress;
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    std::vector<pid_t> children = {Fork([&] { Process(both, *progress); })};
    for (int i = 1; i <= kProducers; ++i)
      children.push_back(Fork([&] { Produce(both, Concat(name, "-", i), ends[1], *progress); }));
    close(ends[1]);
    std::vector<Report> reports;
    std::jthread reader([&] {
      for (Report report; read(ends[0], &report, sizeof report) == sizeof report;) reports.push_back(report);
    });

    while (progress->ready < kProducers) std::this_thread::sleep_for(milliseconds(1));
    std::this_thread::sleep_for(moment);
    TestServer().Kill();
    const auto failed = steady_clock::now();
    TestServer().PromoteStandby();
    for (const pid_t child : children) {
      int status = 0;
      waitpid(child, &status, 0);
      EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    }
    reader.join();
    close(ends[0]);
    EXPECT_GE(progress->processor_failed, 1);
    munmap(progress, sizeof(Progress));
    seconds_ += std::chrono::duration<double>(steady_clock::now() - failed).count();
    plant_.database.OpenLink();
    return reports;
  }

  // Holds what was told against what the server has; `events` are those applied, by how often.
  void Check(const std::vector<Report>& reports, std::map<std::string, int> events) {
    int twice = 0;
    for (const Report& report : reports) {
      const int times = events[report.event];
      events.erase(report.event);
      twice += std::max(0, times - 1);
      if (report.fate == Fate::kQueued) {
        ++queued_;
        EXPECT_GE(times, 1) << report.event << " is lost";
      } else if (report.fate == Fate::kNotQueued) {
        EXPECT_EQ(times, 0) << report.event << " was said not to be queued: " << report.error;
      } else {
        ++unknown_;
        EXPECT_NE(std::string_view(report.error).find("the outcome of the commit is unknown"),
                  std::string_view::npos)
            << report.error;
        unknown_queued_ += times > 0 ? 1 : 0;
      }
    }
    EXPECT_LE(twice, 1);
    twice_ += twice;
    EXPECT_TRUE(events.empty()) << events.begin()->first << " was never reported";
  }

  Plant plant_{0, DatabaseKind::kPostgres};
  int queued_ = 0, unknown_ = 0, unknown_queued_ = 0, twice_ = 0;
  double seconds_ = 0;
};

TEST_F(FailoverTest, TheStandbyTakesOver) {
  std::mt19937 random(7);
  const int rounds = IsLongRun() ? 20 : 1;
  for (int round = 1; round <= rounds; ++round) {
    SCOPED_TRACE(round);
    const auto reports = Round(std::to_string(round), milliseconds(random() % 300));
    EXPECT_EQ(plant_.Query("select count(*) from T_SFC_MDC_LOG"), "0");
    EXPECT_EQ(plant_.Breaches(), "");
    std::map<std::string, int> events;
    std::istringstream names(plant_.Query("select PARAM1 from T_SFC_EVENT"));
    for (std::string name; std::getline(names, name, ';');) ++events[name];
    Check(reports, std::move(events));
    plant_.Execute("delete from T_SFC_EVENT");
  }
  std::cout << rounds << " servers failed: " << queued_ << " events acknowledged, none lost; " << unknown_
            << " of unknown outcome, " << unknown_queued_ << " of them queued; " << twice_
            << " applied twice; all at work again " << seconds_ / rounds
            << " s after the failure on average\n";
}

}  // namespace
}  // namespace kx::test
