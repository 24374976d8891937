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
  report.Add("eight producers and one processor against one producer alone, events a second", "at least 0.7",
             Concat(Digits(ratio, 2), " (", Digits(appends.number / duration, 0), " appended and ",
                    Digits(processed.number / duration, 0), " processed; ", Digits(alone / duration, 0), ")"),
             ratio >= 0.7);
  report.Note("the slowest append of the eight, the slowest event of the processor",
              Concat(Digits(appends.slowest_ms, 0), " ms, ", Digits(processed.slowest_ms, 0), " ms"));
}

}  // namespace kx::bench
