#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <fstream>
#include <sstream>

#include "benchmarks/child_process.h"
#include "benchmarks/client_calls.h"
#include "benchmarks/measures.h"
#include "benchmarks/replay.h"
#include "database/text.h"

namespace kx::bench {
namespace {

// Messages that this process has sent to a port: each starts a round trip.
std::uint64_t MessagesTo(int port) {
  std::uint64_t messages = 0;
  for (int socket = 3; socket < 64; ++socket) {
    sockaddr_in peer{};
    socklen_t size = sizeof peer;
    if (getpeername(socket, reinterpret_cast<sockaddr*>(&peer), &size) != 0) continue;
    if (peer.sin_family != AF_INET || ntohs(peer.sin_port) != port) continue;
    tcp_info info{};
    size = sizeof info;
    if (getsockopt(socket, IPPROTO_TCP, TCP_INFO, &info, &size) == 0) messages += info.tcpi_data_segs_out;
  }
  return messages;
}

floor_program::Parameter ParameterOf(const Value& value) {
  if (const auto* number = std::get_if<std::int64_t>(&value.data())) return *number;
  if (const auto* real = std::get_if<double>(&value.data())) return *real;
  if (const auto* text = std::get_if<std::string>(&value.data())) return *text;
  if (const auto* time = std::get_if<DateTime>(&value.data())) return floor_program::Moment{time->ToText()};
  return {};
}

// Works events in on a plant of its own and records the statements that the component sends for them.
class Recorder {
 public:
  // `returns_keys`: the engine adds a RETURNING to an INSERT whose key is asked for.
  Recorder(const std::string& connection, bool returns_keys)
      : returns_keys_(returns_keys), component_(WithWatchedEngines(watch_, connection)) {}

  floor_program::Event Record(std::size_t kind) {
    floor_program::Event event;
    watch_.before = [&](test::EngineCall call, std::string_view sql) {
      event.steps.push_back(Seen(call, sql));
    };
    kind == kAppend ? component_.TimeAppend() : component_.TimeNext();
    watch_.before = nullptr;
    return event;
  }

 private:
  static ConnectedComponent WithWatchedEngines(test::EngineWatch& watch, const std::string& connection) {
    const Host before = ProcessHost();
    ProcessHost().open_engine = test::WatchedOpener(watch);
    ConnectedComponent component(connection);
    ProcessHost() = before;
    return component;
  }

  floor_program::Step Seen(test::EngineCall call, std::string_view sql) const {
    using floor_program::Action;
    switch (call) {
      case test::EngineCall::kBegin: return {Action::kBegin, {}, {}};
      case test::EngineCall::kCommit: return {Action::kCommit, {}, {}};
      case test::EngineCall::kRollback: return {Action::kRollback, {}, {}};
      case test::EngineCall::kStatement: break;
    }
    floor_program::Step step{watch_.deferred ? Action::kDeferred : Action::kStatement, std::string(sql), {}};
    for (const Value& value : watch_.parameters) step.parameters.push_back(ParameterOf(value));
    if (!watch_.key_column.empty() && returns_keys_) Append(step.sql, " RETURNING ", watch_.key_column);
    return step;
  }

  test::EngineWatch watch_;
  bool returns_keys_;
  ConnectedComponent component_;
};

// A client of the component and its floor, each a program of its own on a copy of one plant, batch by batch.
class Comparison {
 public:
  Comparison(const Ground& ground, MasterPlant& master)
      : ground_(ground),
        master_(master),
        recorded_(master.MakeCopy()),
        measured_(master.MakeCopy()),
        replayed_(master.MakeCopy()),
        recorder_(recorded_.connection, ground.server != nullptr),
        component_({KXDATA7_BENCHMARK_CLIENT, KXDATA7_LIBRARY, measured_.connection, "serve"}),
        floor_(replayed_.floor_command) {}

  void RunBatch(const std::vector<std::size_t>& kinds);
  void Tell(Report& report, double goal) const;
  // All three plants must have come to the same rows.
  void CheckRows() const;

 private:
  struct Result {
    std::vector<double> component_times;  // in µs, an event each
    std::vector<double> floor_times;
    std::size_t calls = 0;
    std::uint64_t messages = 0;
  };

  void Run(ChildProcess& program, const std::string& task, const std::vector<std::size_t>& kinds,
           std::vector<double> Result::*times);
  std::string RecordBatch(const std::vector<std::size_t>& kinds);

  const Ground& ground_;
  const MasterPlant& master_;
  MasterPlant::Copy recorded_, measured_, replayed_;
  Recorder recorder_;
  ChildProcess component_;
  ChildProcess floor_;
  std::array<Result, std::size(kEventTypes)> results_;
  int batches_ = 0;
};

std::string Comparison::RecordBatch(const std::vector<std::size_t>& kinds) {
  std::string file = (master_.folder() / "events").string();
  std::ofstream out(file, std::ios::binary);
  for (const std::size_t kind : kinds) {
    const std::uint64_t before = ground_.server == nullptr ? 0 : MessagesTo(ground_.server->port());
    const floor_program::Event event = recorder_.Record(kind);
    Write(out, event);
    if (ground_.server != nullptr) results_[kind].messages += MessagesTo(ground_.server->port()) - before;
    results_[kind].calls += event.steps.size();
  }
  return file;
}

// Gives a program its task and takes the events' times down.
void Comparison::Run(ChildProcess& program, const std::string& task, const std::vector<std::size_t>& kinds,
                     std::vector<double> Result::*times) {
  program.WriteLine(task);
  std::istringstream answer(program.ReadLine());
  for (const std::size_t kind : kinds) {
    double time = 0;
    answer >> time;
    (results_[kind].*times).push_back(time / 1000);
  }
}

// Each goes first in every other batch.
void Comparison::RunBatch(const std::vector<std::size_t>& kinds) {
  const std::string file = RecordBatch(kinds);
  const std::string calls = Concat(kinds.front() == kAppend ? "append " : "process ", kinds.size());
  const bool floor_first = ++batches_ % 2 == 0;
  if (floor_first) Run(floor_, file, kinds, &Result::floor_times);
  Run(component_, calls, kinds, &Result::component_times);
  if (!floor_first) Run(floor_, file, kinds, &Result::floor_times);
}

void Comparison::CheckRows() const {
  const std::string rows = DumpOf(measured_.connection);
  if (rows != DumpOf(recorded_.connection) || rows != DumpOf(replayed_.connection)) {
    throw std::runtime_error("the floor did not change the rows that the component changed");
  }
}

void Comparison::Tell(Report& report, double goal) const {
  for (std::size_t kind = 0; kind < results_.size(); ++kind) {
    const Result& result = results_[kind];
    const double component_time = Median(result.component_times);
    const double floor_time = Median(result.floor_times);
    const double ratio = floor_time / component_time;
    std::string reached = Concat(Digits(ratio, 2), " (", Digits(component_time, 1), " µs; floor ",
                                 Digits(floor_time, 1), " µs)");
    if (ground_.server != nullptr) {
      const auto average = [&](auto sum) {
        return Digits(static_cast<double>(sum) / static_cast<double>(result.floor_times.size()), 0);
      };
      Append(reached, ", ", average(result.calls), " calls in ", average(result.messages), " round trips");
    }
    report.Add(Concat(kEventTypes[kind].name, ", ", ground_.name), Concat("at least ", Digits(goal, 2)),
               reached, ratio >= goal);
  }
}

}  // namespace

void MeasureAgainstFloor(Report& report, const Ground& ground, double goal, int batches,
                         int rounds_per_batch) {
  TellProgress(Concat("every event against its floor, ", ground.name));
  constexpr std::array kMachines = {1};
  MasterPlant master(ground,
                     [&](test::Plant& plant) { QueueRounds(plant, batches * rounds_per_batch, kMachines); });
  Comparison comparison(ground, master);
  std::vector<std::size_t> round_kinds;
  for (int i = 0; i < rounds_per_batch; ++i) {
    for (std::size_t kind = 0; kind < kRoundSize; ++kind) round_kinds.push_back(kind);
  }
  // Appends are short: a batch of few would measure how a process wakes up.
  const std::vector<std::size_t> append_kinds(static_cast<std::size_t>(20 * rounds_per_batch), kAppend);
  for (int batch = 0; batch < batches; ++batch) comparison.RunBatch(round_kinds);
  for (int batch = 0; batch < batches; ++batch) comparison.RunBatch(append_kinds);
  comparison.CheckRows();
  comparison.Tell(report, goal);
}

}  // namespace kx::bench
