#include <array>
#include <memory>
#include <sstream>

#include "benchmarks/child_process.h"
#include "benchmarks/measures.h"
#include "database/text.h"

namespace kx::bench {
namespace {

std::vector<std::string> ClientCommand(const std::string& connection, std::vector<std::string> task) {
  std::vector<std::string> command = {KXDATA7_BENCHMARK_CLIENT, KXDATA7_LIBRARY, connection};
  command.insert(command.end(), task.begin(), task.end());
  return command;
}

struct Calls {
  double number = 0;
  double slowest_ms = 0;
};

Calls AnswerOf(ChildProcess& client) {
  Calls calls;
  std::istringstream(client.ReadLine()) >> calls.number >> calls.slowest_ms;
  return calls;
}

}  // namespace

void MeasureMemory(Report& report, const Ground& memory, Effort effort) {
  const int events = effort.Choose(1'000'000, 100'000);
  TellProgress("a client's memory");
  MasterPlant master(memory, [&](test::Plant& plant) { QueueCycles(plant, events); });
  ChildProcess client(ClientCommand(master.MakeCopy().connection, {"work"}));
  double first = 0, last = 0, most = 0;
  int done = 0;
  std::istringstream(client.ReadLine()) >> first >> last >> most >> done;
  if (done != events) throw std::runtime_error("not every event was worked in");
  report.Add(Concat("memory of a client after ", events, " events against after the first 50000"), "flat",
             Concat(Digits(last - first, 0), " KiB more"), last - first < 100);
  report.Add("memory of a client with the component, at most", "under 20 MB",
             Concat(Digits(most / 1024, 1), " MiB"), most * 1024 < 20e6);
}

void MeasureRollOver(Report& report, const Ground& memory, Effort effort) {
  TellProgress("many shifts in one event");
  std::array<int, 2> shifts{1'000, effort.Choose(10'000, 3'000)};
  std::array<double, 2> times{}, most{};  // µs a shift, KiB
  for (std::size_t i = 0; i < shifts.size(); ++i) {
    MasterPlant master(memory, [&](test::Plant& plant) {
      PrepareForRounds(plant);
      QueueRollOver(plant, shifts[i]);
    });
    std::vector<double> tries;
    for (int n = 0; n < 3; ++n) {
      ChildProcess client(ClientCommand(master.MakeCopy().connection, {"serve"}));
      client.WriteLine("process 1");
      tries.push_back(std::stod(client.ReadLine()) / 1000 / shifts[i]);
    }
    times[i] = Median(tries);
    ChildProcess client(ClientCommand(master.MakeCopy().connection, {"work"}));
    double first = 0, last = 0;
    std::istringstream(client.ReadLine()) >> first >> last >> most[i];
  }
  report.Add(
      Concat("a shift of a roll-over, ", shifts[1], " in one event against ", shifts[0]), "at most 1.1",
      Concat(Digits(times[1] / times[0], 2), " (", Digits(times[1], 1), " µs; ", Digits(times[0], 1), " µs)"),
      times[1] <= 1.1 * times[0]);
  // SQLite keeps changed pages until its cache is full, and then writes them.
  report.Add("memory of a client for it, at most", "flat but for SQLite's cache of 2000 KiB",
             Concat(Digits(most[1] - most[0], 0), " KiB more"), most[1] - most[0] < 2100);
}

void MeasureProducers(Report& report, const Ground& disk, Effort effort) {
  TellProgress("several producers at once");
  const std::string seconds = std::to_string(effort.Choose(10, 3));
  MasterPlant master(disk, [](test::Plant& plant) { QueueCycles(plant, 100'000); });
  const double alone = [&] {
    ChildProcess producer(ClientCommand(master.MakeCopy().connection, {"append", seconds}));
    return AnswerOf(producer).number;
  }();

  const std::string connection = master.MakeCopy().connection;
  std::vector<std::unique_ptr<ChildProcess>> clients;
  clients.reserve(8);
  for (int i = 0; i < 8; ++i) {
    clients.push_back(std::make_unique<ChildProcess>(ClientCommand(connection, {"append", seconds})));
  }
  ChildProcess processor(ClientCommand(connection, {"process", seconds}));
  Calls appends;
  for (const auto& client : clients) {
    const Calls calls = AnswerOf(*client);
    appends.number += calls.number;
    appends.slowest_ms = std::max(appends.slowest_ms, calls.slowest_ms);
  }
  const Calls processed = AnswerOf(processor);
  const double duration = std::stod(seconds);
  const double ratio = (appends.number + processed.number) / alone;
  report.Add("eight producers and one processor against one producer alone, events a second", "at least 0.9",
             Concat(Digits(ratio, 2), " (", Digits(appends.number / duration, 0), " appended and ",
                    Digits(processed.number / duration, 0), " processed; ", Digits(alone / duration, 0), ")"),
             ratio >= 0.9);
  report.Add("what the processor among them works in, events a second", "at least 1000",
             Digits(processed.number / duration, 0), processed.number >= 1000 * duration);
  report.Add("the slowest append of the eight, the slowest event of the processor", "under 50 ms",
             Concat(Digits(appends.slowest_ms, 0), " ms, ", Digits(processed.slowest_ms, 0), " ms"),
             std::max(appends.slowest_ms, processed.slowest_ms) < 50);
}

}  // namespace kx::bench
