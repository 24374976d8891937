// The collector as the process that it is: killed, with many machines, beside other commands.
#include <iostream>
#include <random>

#include "tests/support/collecting.h"
#include "tests/support/long_run.h"

namespace kx::tool {
namespace {

// A machine that counts, by its programs or its parts, and the first and the last count of each connection.
struct CountingMachine {
  std::string Value() const { return Concat(name, count, "\n"); }
  std::string Open() {
    sessions.push_back({count, count});
    return Concat("|avail|AVAILABLE|execution|READY|", Value());
  }
  std::string Step() {
    sessions.back().second = ++count;
    return Concat("|execution|ACTIVE\n|execution|READY\n|", Value());
  }

  const char* name;  // "program|P"
  int count = 0;
  std::vector<std::pair<int, int>> sessions;
};

constexpr const char* kParts = "select sum(cast(PARAM1 as integer)) from T_SFC_MDC_LOG where MACHINE_ID = 2";

// What each connection brought, up to the last program that was taken. Returns how many were told behind it.
std::size_t CheckPrograms(const std::vector<int>& programs, const CountingMachine& machine) {
  EXPECT_EQ(std::ranges::adjacent_find(programs, std::greater_equal<>()), programs.end());
  std::size_t missing = 0;
  for (const auto& [first, last] : machine.sessions) {
    const auto begin = std::ranges::upper_bound(programs, first);
    // The last one may be of the next connection's opening.
    const auto end = std::ranges::lower_bound(programs, last);
    if (begin < end) {
      EXPECT_EQ(*(end - 1) - first, end - begin) << "from " << first;
    }
    if (begin < end) missing += static_cast<std::size_t>(last - 1 - *(end - 1));
  }
  return missing;
}

// Of the programs each once, in order, and in each connection those up to the last that was taken; of the
// cycles a start, an end, a start; of the parts all, since the counter tells them.
TEST_F(CollectTest, ACollectorThatIsKilledLosesNothingItTookAndTellsNothingTwice) {
  const int kills = test::IsLongRun() ? 500 : 15;
  Create();
  CountingMachine programs{"program|P", 0, {}}, parts{"partcount|", 0, {}};
  Adapter first([&] { return programs.Open(); }), second([&] { return parts.Open(); });
  SetSource(1, first.address());
  SetSource(2, second.address(), "part_limit=32767\n");
  {
    // From what counting begins.
    Running collector(Options());
    ASSERT_TRUE(Until([&] { return collector.Status().starts_with("2 of 2 sources, 2 lines"); }));
  }
  first.SendEach(milliseconds(5), [&] { return programs.Step(); });
  second.SendEach(milliseconds(5), [&] { return parts.Step(); });
  const std::vector<std::string> collect = {"collect", ToText(folder_.path() / "plant.db"), "--spool",
                                            ToText(folder_.path() / "spool")};
  std::mt19937 random(5);
  const auto connect = [&] { return Until([&] { return first.connections > 0 && second.connections > 0; }); };
  for (int i = 0; i < kills; ++i) {
    first.connections = second.connections = 0;
    Process process(collect);
    ASSERT_TRUE(connect());
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 300'000));
    ASSERT_TRUE(WIFSIGNALED(process.End(SIGKILL)));
  }
  first.connections = second.connections = 0;
  Process last(collect);
  ASSERT_TRUE(connect());
  first.SendNoMore();
  second.SendNoMore();
  Plant plant(options_);
  EXPECT_TRUE(Until([&] { return plant.Run(kParts).at(0, 0).ToInt32Or(0) >= parts.count; }));
  EXPECT_EQ(last.End(SIGTERM), 0);
  EXPECT_EQ(plant.Run(kParts).at(0, 0).ToInt32Or(0), parts.count);

  std::vector<int> told;
  std::map<int, bool> runs;
  for (const QueuedEvent& event : ReadQueue(plant)) {
    if (event.param.starts_with("P")) told.push_back(std::stoi(event.param.substr(1)));
    if (event.Name() != "cycle start" && event.Name() != "cycle end") continue;
    EXPECT_EQ(event.Name() == "cycle end", runs[event.machine_id]) << event.row;
    runs[event.machine_id] = event.Name() == "cycle start";
  }
  const std::size_t missing = CheckPrograms(told, programs);
  std::cout << kills << " kills, " << told.size() << " programs of " << programs.count << " taken, "
            << missing << " told after the last that was taken; " << parts.count << " parts\n";
}

// A recording would change what is known of a machine under the collector's feet.
TEST_F(CollectTest, AMachineIsNotImportedWhileItIsListenedTo) {
  Create();
  Adapter adapter([] { return "2026-01-12T05:59:00Z|avail|AVAILABLE|execution|READY|program|A\n"; });
  SetSource(1, adapter.address());
  bool as_file = true;
  const auto import = [&](const std::string& minute, const char* machine, const char* option) {
    const fs::path file = folder_.path() / "recorded.shdr";
    std::ofstream(file) << "2026-01-12T06:" << minute << ":00Z|execution|ACTIVE\n";
    return Tool({"import", as_file ? ToText(file) : "-", "--machine", machine, option}, file);
  };
  const auto state = [&] {
    Plant plant(options_);
    return LoadState(plant, StateName(1));
  };
  std::optional<Running> collector(Options());
  ASSERT_TRUE(Waits(1));
  const NamedValues known = state();
  for (const bool each : {true, false}) {
    as_file = each;
    const std::string refused = import("00", "1", "--allow-future");
    EXPECT_NE(refused.find("machine 1 (Lathe 1) is listened to"), std::string::npos) << refused;
    EXPECT_NE(refused.find("by process"), std::string::npos) << refused;
    EXPECT_TRUE(refused.ends_with("-> 1\n")) << refused;
    EXPECT_TRUE(import(each ? "01" : "02", "2", "--allow-future").ends_with("-> 0\n"));  // nobody hears it
    EXPECT_TRUE(import(each ? "03" : "04", "1", "--allow-old").ends_with("-> 0\n"));     // uses no state
  }
  EXPECT_EQ(state(), known);
  collector.reset();
  EXPECT_TRUE(import("05", "1", "--allow-future").ends_with("-> 0\n"));
  EXPECT_EQ(state()["value.execution"], "ACTIVE");
  EXPECT_EQ(Queue(),
            "1 05:59:00 part start A\n2 06:01:00 cycle start\n1 06:03:00 cycle start\n"
            "1 06:04:00 cycle start\n1 06:05:00 cycle start\n");
}

TEST_F(CollectTest, ACheckSaysOfEverySourceWhatItFound) {
  Create();
  Adapter adapter([] { return "|avail|AVAILABLE|execution|READY|Prog|A\n"; });
  Adapter strange([] { return "|exec|READY|load|3\n"; });
  RecordedAgent agent;
  agent.Tell({"2026-01-12T06:00:00Z|execution|READY|program|A"});
  WebServer pages("HTTP/1.1 200 OK\r\nContent-Type: text/html\r\n\r\n<html>");
  const std::string nobody = std::make_unique<Adapter>()->address();
  EXPECT_EQ(Tool({"collect", "--check"}),
            "kxdata7: no machine has an adapter or an agent; the plant's file names them\n-> 1\n");
  SetSource(1, adapter.address());
  SetSource(2, Concat("http://", agent.address(), "/"));
  EXPECT_EQ(
      Tool({"collect", "--check"}),
      Concat("ok      machine 1 (Lathe 1), ", adapter.address(),
             ": answers, takes execution from execution\nok      machine 2 (Lathe 2), http://",
             agent.address(), "/: answers, takes execution from execution, program from program\n-> 0\n"));
  SetSource(2, Concat("http://", pages.address(), "/"));
  SetSource(3, nobody);
  SetSource(4, strange.address());
  SetSource(77, adapter.address(), "part_limit=many\n");
  EXPECT_EQ(Tool({"collect", "--check"}),
            Concat("ok      machine 1 (Lathe 1), ", adapter.address(),
                   ": answers, takes execution from execution\nfailed  machine 2 (Lathe 2), http://",
                   pages.address(), "/: the agent at ", pages.address(),
                   " answered with text/html in place of a document\nfailed  machine 3 (Mill 1), ", nobody,
                   ": cannot connect to ", nobody, ": Connection refused\nfailed  machine 4 (Mill 2), ",
                   strange.address(),
                   ": answers, and tells nothing that its mapping takes; it told exec, load\n"
                   "failed  machine 77, ",
                   adapter.address(), ": there is no machine with the id 77\n-> 1\n"));
}

TEST_F(CollectTest, ManyAdaptersCostLittle) {
  const int adapters = test::IsLongRun() ? 500 : 50;
  constexpr int kSteps = 100;
  Create();
  PlantOptions options = options_;
  std::string address;
  std::atomic<int> step = 0;
  Adapter adapter([] { return std::string("|avail|AVAILABLE|execution|READY|program|A|partcount|0\n"); });
  {
    Plant plant(options_);
    plant.db.Begin();
    for (int i = 5; i <= adapters; ++i) AddMachine(plant, {Concat("Machine ", i), {}}, DateTime(2026, 1, 12));
    for (int i = 1; i <= adapters; ++i) {
      plant.Run(
          "insert into T_SFC_SOURCE (MACHINE_ID, SOURCE_KIND, SOURCE_ADDRESS, SOURCE_MAPPING) values (?, "
          "'adapter', ?, 'part_limit=1000')",
          {i, adapter.address()});
    }
    plant.db.Commit();
  }
  const auto begin = std::chrono::steady_clock::now();
  Process process({"collect", ToText(folder_.path() / "plant.db")});
  ASSERT_TRUE(Until([&] { return adapter.connections == adapters; }));
  // They all come back when they are gone at the same moment.
  adapter.Disconnect();
  ASSERT_TRUE(Until([&] { return adapter.connections == 2 * adapters; }));
  // Ten lines a second, of which every twentieth is an event.
  adapter.SendEach(milliseconds(100), [&] {
    const int n = ++step;
    if (n > kSteps) return std::string();
    return Concat("|Xpos|", n, ".25|Ypos|-", n, "|load|", n % 100,
                  n % 20 == 0 ? Concat("|partcount|", n / 20) : "", "\n");
  });
  const auto events = static_cast<std::int64_t>(adapters) * (1 + kSteps / 20);
  ASSERT_TRUE(Waits(events));
  EXPECT_EQ(process.End(SIGTERM), 0);
  const std::chrono::duration<double> lasted = std::chrono::steady_clock::now() - begin;
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  const double used = seconds(process.usage.ru_utime) + seconds(process.usage.ru_stime);
  std::cout << adapters << " adapters, " << adapters * kSteps << " lines, " << events << " events in "
            << lasted.count() << " s: " << used << " s of a core, " << adapters * kSteps / used
            << " lines a second and core\n";
}

}  // namespace
}  // namespace kx::tool
