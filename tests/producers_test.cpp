// Many programs queue events while one works them off.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdio>

#include "component/text.h"
#include "tests/support/long_run.h"
#include "tests/support/plant.h"

namespace kx::test {
namespace {

using std::chrono::steady_clock;

constexpr int kProducers = 8;

// On a server, and under a sanitizer, fewer outside the long run.
int EventsOfEach() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  constexpr int few = 250;
#else
  const int few = TestedDatabase() == DatabaseKind::kSqlite ? 2500 : 800;
#endif
  return IsLongRun() ? 2500 : few;
}

struct Report {
  int failed = 0;
  double seconds = 0;
  double slowest_call = 0;  // seconds
};

// A process of its own, on the real clock: it waits for a connection string and does `work` on it. It is
// started before this process opens a database, whose locks a fork would muddle.
class Client {
 public:
  template <class Work>
  explicit Client(Work work) {
    EXPECT_EQ(pipe(to_child_.data()), 0);
    EXPECT_EQ(pipe(from_child_.data()), 0);
    process_ = fork();
    if (process_ != 0) return;
    std::array<char, 512> connection_string{};
    if (read(to_child_[0], connection_string.data(), connection_string.size() - 1) <= 0) _exit(1);
    Component component;
    Report report;
    if (!component.Connect(connection_string.data(), 0).done) _exit(1);
    const auto begin = steady_clock::now();
    work(component, report);
    report.seconds = std::chrono::duration<double>(steady_clock::now() - begin).count();
    _exit(write(from_child_[1], &report, sizeof report) == sizeof report ? 0 : 1);
  }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  void Start(const std::string& connection_string) const {
    EXPECT_EQ(write(to_child_[1], connection_string.data(), connection_string.size()),
              static_cast<ssize_t>(connection_string.size()));
  }
  Report Wait() const {
    Report report;
    close(from_child_[1]);
    EXPECT_EQ(read(from_child_[0], &report, sizeof report), static_cast<ssize_t>(sizeof report));
    int status = 0;
    EXPECT_EQ(waitpid(process_, &status, 0), process_);
    for (const int end : {to_child_[0], to_child_[1], from_child_[0]}) close(end);
    return report;
  }

 private:
  std::array<int, 2> to_child_{}, from_child_{};
  pid_t process_ = 0;
};

template <class Call>
bool Timed(Report& report, Call call) {
  const auto begin = steady_clock::now();
  const bool done = call();
  const double seconds = std::chrono::duration<double>(steady_clock::now() - begin).count();
  report.slowest_call = std::max(report.slowest_call, seconds);
  return done;
}

TEST(ProducersTest, EveryEventIsAppliedOnceInItsProducersOrder) {
  const int events_each = EventsOfEach();
  std::array<std::unique_ptr<Client>, kProducers> producers;
  for (int number = 0; number < kProducers; ++number) {
    producers[static_cast<std::size_t>(number)] =
        std::make_unique<Client>([number, events_each](Component& component, Report& report) {
          for (int i = 0; i < events_each; ++i) {
            const auto append = [&] {
              return component.Append(1, 2, 3, 1 + number % 3, 120, Concat(number, " ", i), 2) ==
                     Outcome{true, ""};
            };
            if (!Timed(report, append)) ++report.failed;
          }
        });
  }
  const Client processor([events_each](Component& component, Report& report) {
    bool waiting = false;  // an event, for certain: nobody else takes one off
    for (int left = kProducers * events_each; left > 0;) {
      Outcome outcome;
      const bool done = Timed(report, [&] { return (outcome = component.Next()).done; });
      if (!done && (waiting || !outcome.error.empty())) ++report.failed;
      if (done) --left;
      LONG count = 0;
      waiting = !done && component->GetMDCLogCount(&count) == S_OK && count > 0;
    }
  });

  Plant plant(0);
  // The order in which SQLite took the events in; a server's keys may be given out in another order than
  // kept.
  const bool one_writer = plant.database.kind() == DatabaseKind::kSqlite;
  if (one_writer) {
    plant.Execute("create table ARRIVALS (PARAM1 text)");
    plant.Execute(
        "create trigger ARRIVAL after insert on T_SFC_MDC_LOG begin "
        "insert into ARRIVALS values (new.PARAM1); end");
  }
  processor.Start(plant.connection_string());
  for (const auto& producer : producers) producer->Start(plant.connection_string());
  Report appends;
  for (const auto& producer : producers) {
    const Report report = producer->Wait();
    appends.failed += report.failed;
    appends.seconds = std::max(appends.seconds, report.seconds);
    appends.slowest_call = std::max(appends.slowest_call, report.slowest_call);
  }
  const Report processed = processor.Wait();
  EXPECT_EQ(appends.failed, 0);
  EXPECT_EQ(processed.failed, 0);
  std::printf(
      "%d events from %d producers: appended in %.1f s, slowest append %.3f s; applied in %.1f s, slowest "
      "%.3f s\n",
      kProducers * events_each, kProducers, appends.seconds, appends.slowest_call, processed.seconds,
      processed.slowest_call);

  EXPECT_EQ(plant.Query("select count(*) from T_SFC_MDC_LOG"), "0");
  const std::string applied = plant.Query("select PARAM1 from T_SFC_EVENT order by EVENT_ID");
  if (one_writer) {
    EXPECT_EQ(applied == plant.Query("select PARAM1 from ARRIVALS order by rowid"), true);
  }
  std::array<int, kProducers> next{};
  std::istringstream events(applied);
  int number = 0, index = 0;
  for (std::string event; std::getline(events, event, ';');) {
    ASSERT_EQ(std::sscanf(event.c_str(), "%d %d", &number, &index), 2);
    ASSERT_EQ(index, next.at(static_cast<std::size_t>(number))++) << "of producer " << number;
  }
  for (const int count : next) EXPECT_EQ(count, events_each);
}

}  // namespace
}  // namespace kx::test
