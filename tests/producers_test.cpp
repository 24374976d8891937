// Many programs queue events while one works them off.

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <utility>
#include <vector>

#include "database/text.h"
#include "tests/support/long_run.h"
#include "tests/support/plant.h"

namespace kx::test {
namespace {

using std::chrono::steady_clock;

constexpr int kProducers = 8;

// On a server, under a sanitizer, and on Windows, where locks go through Wine's server, fewer outside the
// long run.
int EventsOfEach() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || defined(_WIN32)
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

template <class Call>
bool Timed(Report& report, Call call) {
  const auto begin = steady_clock::now();
  const bool done = call();
  const double seconds = std::chrono::duration<double>(steady_clock::now() - begin).count();
  report.slowest_call = std::max(report.slowest_call, seconds);
  return done;
}

// Queues the events of one producer.
Report Produce(Component& component, int number) {
  Report report;
  for (int i = 0, events = EventsOfEach(); i < events; ++i) {
    const auto append = [&] {
      return component.Append({1, 2, 3, 1 + number % 3, 120}, Concat(number, " ", i), 2) == Outcome{true, ""};
    };
    if (!Timed(report, append)) ++report.failed;
  }
  return report;
}

// Works the events of all producers off.
Report ProcessAll(Component& component) {
  Report report;
  bool waiting = false;  // an event, for certain: nobody else takes one off
  for (int left = kProducers * EventsOfEach(); left > 0;) {
    Outcome outcome;
    const bool done = Timed(report, [&] { return (outcome = component.Next()).done; });
    if (!done && (waiting || !outcome.error.empty())) ++report.failed;
    if (done) --left;
    LONG count = 0;
    waiting = !done && component->GetMDCLogCount(&count) == S_OK && count > 0;
  }
  return report;
}

constexpr int kProcessor = kProducers;  // as the number of a client

// Tells a client's process where the plant is.
constexpr const char* kPlantVariable = "KXDATA7_TEST_PLANT";

// The work of a client's process, on the real clock: it connects, works and prints its report.
int RunClient(int number) {
  Component component;
  if (!component.Connect(std::getenv(kPlantVariable), kxdata7::Dialect{TestedTypes().front()}).done) return 1;
  const auto begin = steady_clock::now();
  const Report report = number == kProcessor ? ProcessAll(component) : Produce(component, number);
  const double seconds = std::chrono::duration<double>(steady_clock::now() - begin).count();
  return std::printf("%d %f %f\n", report.failed, seconds, report.slowest_call) > 0 ? 0 : 1;
}

std::string program;  // this one

// A client in a process of its own.
class Client {
 public:
  explicit Client(int number) : output_(popen(Concat("\"", program, "\" ", number).c_str(), "r")) {
    EXPECT_NE(output_, nullptr);
  }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;
  ~Client() {
    if (output_ != nullptr) pclose(output_);
  }

  Report Wait() {
    Report report{1, 0, 0};
    EXPECT_EQ(std::fscanf(output_, "%d %lf %lf", &report.failed, &report.seconds, &report.slowest_call), 3);
    EXPECT_EQ(pclose(std::exchange(output_, nullptr)), 0);
    return report;
  }

 private:
  FILE* output_;
};

TEST(ProducersTest, EveryEventIsAppliedOnceInItsProducersOrder) {
  const int events_each = EventsOfEach();
  Plant plant(TestedTypes().front());
  // The order in which SQLite took the events in; a server's keys may be given out in another order than
  // kept.
  const bool one_writer = plant.database.kind() == DatabaseKind::kSqlite;
  if (one_writer) {
    plant.Execute("create table ARRIVALS (PARAM1 text)");
    plant.Execute(
        "create trigger ARRIVAL after insert on T_SFC_MDC_LOG begin "
        "insert into ARRIVALS values (new.PARAM1); end");
  }
  static std::string variable = Concat(kPlantVariable, "=", plant.connection_string());
  putenv(variable.data());
  Client processor(kProcessor);
  std::vector<std::unique_ptr<Client>> producers;
  for (int number = 0; number < kProducers; ++number) producers.push_back(std::make_unique<Client>(number));
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

int Main(int argc, char** argv) {
  program = std::filesystem::absolute(argv[0]).string();
  if (argc == 2 && argv[1][0] != '-') return RunClient(std::atoi(argv[1]));
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}

}  // namespace kx::test

int main(int argc, char** argv) { return kx::test::Main(argc, argv); }
