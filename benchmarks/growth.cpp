#include <array>
#include <chrono>
#include <numeric>

#include "benchmarks/client_calls.h"
#include "benchmarks/measures.h"
#include "database/text.h"

namespace kx::bench {
namespace {

constexpr int kBatches = 20;
constexpr int kRoundsPerBatch = 10;
constexpr std::array kOneMachine = {1};

// A plant of the usual size and one that has grown, worked off in turns.
class Pair {
 public:
  Pair(const Ground& ground, const Fill& small, const Fill& large)
      : masters_{MasterPlant(ground, small), MasterPlant(ground, large)},
        connections_{masters_[0].MakeCopy().connection, masters_[1].MakeCopy().connection},
        components_{ConnectedComponent(connections_[0]), ConnectedComponent(connections_[1])} {}

  ConnectedComponent& large() { return components_[1]; }
  const std::string& large_connection() const { return connections_[1]; }

  // Calls in turn, so many each, and compares the times of a call that `call` makes on both.
  template <class Call>
  void Compare(Report& report, std::string measure, double goal, int calls, Call call) {
    const auto kinds = [](int) { return std::size_t{0}; };
    CompareByKind(report, std::move(measure), goal, calls, kinds, call);
  }

  // Each event type of the round counts alike.
  void CompareProcessing(Report& report, std::string measure, double goal) {
    const auto kind_of = [](int call) { return static_cast<std::size_t>(call) % kRoundSize; };
    CompareByKind(report, std::move(measure), goal, kRoundsPerBatch * static_cast<int>(kRoundSize), kind_of,
                  [](ConnectedComponent& component) { return component.TimeNext(); });
  }

 private:
  template <class KindOf, class Call>
  void CompareByKind(Report& report, std::string measure, double goal, int calls, KindOf kind_of, Call call) {
    std::array<std::array<std::vector<double>, kRoundSize>, 2> times;
    for (std::size_t batch = 0; batch < kBatches; ++batch) {
      for (const std::size_t plant : {batch % 2, 1 - batch % 2}) {
        for (int i = 0; i < calls; ++i) {
          times[plant][kind_of(i)].push_back(static_cast<double>(call(components_[plant])) / 1000);
        }
      }
    }
    const auto average = [](const auto& by_kind) {
      double sum = 0;
      int kinds = 0;
      for (const auto& kind : by_kind) {
        sum += Median(kind);
        if (!kind.empty()) ++kinds;
      }
      return sum / kinds;
    };
    const double small = average(times[0]);
    const double large = average(times[1]);
    report.Add(std::move(measure), Concat("at most ", Digits(goal, 1)),
               Concat(Digits(large / small, 2), " (", Digits(large, 1), " µs; ", Digits(small, 1), " µs)"),
               large <= goal * small);
  }

  std::array<MasterPlant, 2> masters_;
  std::array<std::string, 2> connections_;
  std::array<ConnectedComponent, 2> components_;
};

Fill Rounds(
    std::span<const int> machines, const Fill& more = [](test::Plant&) {}) {
  return [machines, more](test::Plant& plant) {
    more(plant);
    QueueRounds(plant, kBatches * kRoundsPerBatch, machines);
  };
}

void MeasureQueue(Report& report, const Ground& memory, Effort effort) {
  const int rows = effort.Choose(1'000'000, 100'000);
  const auto queue = [](int count) {
    return [count](test::Plant& plant) {
      QueueRounds(plant, kBatches * kRoundsPerBatch, kOneMachine);
      QueueCycles(plant, count);
    };
  };
  TellProgress("a long queue");
  Pair pair(memory, queue(1000), queue(rows));
  const std::string against = Concat(", ", rows, " queued rows against 1000");
  pair.CompareProcessing(report, Concat("processing", against), 1.1);
  pair.Compare(report, Concat("append", against), 1.1, 100,
               [](ConnectedComponent& component) { return component.TimeAppend(); });
  pair.Compare(report, Concat("count", against), 1.1, 1, [](ConnectedComponent& component) {
    LONG count = 0;
    return component.TimeCount(count);
  });
  // SQLite keeps no count of rows: nothing but walking them tells it.
  std::vector<double> own, by_component;
  Connection db;
  db.Open(pair.large_connection());
  for (int i = 0; i < kBatches; ++i) {
    const auto begin = std::chrono::steady_clock::now();
    db.ExecuteDirect("select count(*) from T_SFC_MDC_LOG");
    const std::chrono::duration<double, std::milli> time = std::chrono::steady_clock::now() - begin;
    own.push_back(time.count());
    LONG count = 0;
    by_component.push_back(static_cast<double>(pair.large().TimeCount(count)) / 1e6);
  }
  const double ratio = Median(by_component) / Median(own);
  report.Add(Concat("count of ", rows, " rows against the engine's own"), "at most 1.1",
             Concat(Digits(ratio, 2), " (", Digits(Median(by_component), 1), " ms; ", Digits(Median(own), 1),
                    " ms)"),
             ratio <= 1.1);
}

}  // namespace

void MeasureGrowth(Report& report, const Ground& memory, Effort effort) {
  MeasureQueue(report, memory, effort);
  {
    TellProgress("a long past");
    const int records = effort.Choose(1'000'000, 100'000);
    constexpr int kEventsOfEach = 10;
    Pair(memory, Rounds(kOneMachine),
         Rounds(kOneMachine, [&](test::Plant& plant) { AddPast(plant, records, kEventsOfEach); }))
        .CompareProcessing(report,
                           Concat("processing, ", records, " past records, ", kEventsOfEach * records,
                                  " past events, ", records, " past downtimes against none"),
                           1.1);
  }
  {
    TellProgress("many machines and shifts");
    std::vector<int> machines(500);
    std::iota(machines.begin(), machines.end(), 10);
    Pair(memory, Rounds(kOneMachine), Rounds(machines, [](test::Plant& plant) { AddMachines(plant, 500); }))
        .CompareProcessing(report, "processing, 500 machines against 1", 1.1);
  }
  Pair(memory, Rounds(kOneMachine), Rounds(kOneMachine, [](test::Plant& plant) { AddShifts(plant, 47); }))
      .CompareProcessing(report, "processing, 50 shifts against 3", 3);
}

}  // namespace kx::bench
