// Machines that are listened to: from adapters on loopback through the spool to the plant, whatever ends or
// is away meanwhile.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <boost/asio.hpp>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <random>
#include <sstream>
#include <thread>

#include "database/text.h"
#include "inputs/collector.h"
#include "inputs/recorded_input.h"
#include "plant/create.h"
#include "plant/platform.h"
#include "plant/queue.h"
#include "tests/support/long_run.h"
#include "tests/support/postgres_server.h"
#include "tests/support/temporary_folder.h"

namespace kx::tool {
namespace {

namespace fs = std::filesystem;
namespace net = boost::asio;
using net::ip::tcp;
using std::chrono::milliseconds;

template <class Condition>
bool Until(Condition condition) {
  for (int i = 0; i < 6'000; ++i) {
    if (condition()) return true;
    std::this_thread::sleep_for(milliseconds(10));
  }
  return false;
}

// Adapters on one port: what is sent goes to all that are connected. On a thread of its own.
class Adapter {
 public:
  // `opening` is what a connection hears first.
  explicit Adapter(std::function<std::string()> opening = [] { return std::string(); })
      : opening_(std::move(opening)) {
    Accept();
    thread_ = std::thread([this] { io_.run(); });
  }
  ~Adapter() {
    io_.stop();
    thread_.join();
  }

  std::string address() const { return Concat("127.0.0.1:", acceptor_.local_endpoint().port()); }
  void Send(const std::string& text) {
    Do([this, text] {
      for (const auto& socket : sockets_) Write(*socket, text);
    });
  }
  void Disconnect() {
    Do([this] {
      for (const auto& socket : sockets_) socket->close();
      sockets_.clear();
    });
  }
  // Calls `step` again and again on the adapter's thread, and sends what it returns, while somebody hears it.
  void SendEach(milliseconds pause, std::function<std::string()> step) {
    Do([this, pause, step = std::move(step)] {
      steps_ = true;
      StepLater(pause, step);
    });
  }
  void SendNoMore() {
    Do([this] { steps_ = false; });
  }
  template <class Work>
  void Do(Work work) {
    net::post(io_, net::use_future(std::move(work))).get();
  }

  bool IsHeard() {
    bool heard = false;
    Do([&] { heard = !sockets_.empty(); });
    return heard;
  }

  std::atomic<int> connections = 0;  // so far

 private:
  void Accept() {
    acceptor_.async_accept([this](auto error, tcp::socket socket) {
      if (error) return;
      sockets_.push_back(std::make_shared<tcp::socket>(std::move(socket)));
      Write(*sockets_.back(), opening_());
      Watch(sockets_.back());
      ++connections;
      Accept();
    });
  }
  static void Write(tcp::socket& socket, const std::string& text) {
    boost::system::error_code ignored;
    net::write(socket, net::buffer(text), ignored);
  }
  // Takes what comes, heartbeats, until the other side is gone.
  void Watch(const std::shared_ptr<tcp::socket>& socket) {
    socket->async_read_some(net::buffer(piece_), [this, socket](auto error, std::size_t) {
      if (!error) return Watch(socket);
      std::erase(sockets_, socket);
    });
  }
  void StepLater(milliseconds pause, const std::function<std::string()>& step) {
    timer_.expires_after(pause);
    timer_.async_wait([this, pause, step](auto error) {
      if (error || !steps_) return;
      if (!sockets_.empty()) {
        const std::string text = step();
        for (const auto& socket : sockets_) Write(*socket, text);
      }
      StepLater(pause, step);
    });
  }

  const std::function<std::string()> opening_;
  net::io_context io_;
  tcp::acceptor acceptor_{io_, {net::ip::make_address("127.0.0.1"), 0}};
  net::steady_timer timer_{io_};
  bool steps_ = false;
  std::vector<std::shared_ptr<tcp::socket>> sockets_;
  std::array<char, 4096> piece_{};
  std::thread thread_;
};

// A collector on a thread of its own, as long as it lives.
class Running {
 public:
  explicit Running(CollectOptions options) : collector_(std::move(options), out_, errors_) {
    thread_ = std::thread([this] {
      try {
        collector_.Run([this] {
          const std::lock_guard lock(mutex_);
          status_ = collector_.Status();
          running_ = true;
        });
      } catch (const std::exception& error) {
        failure_ = error.what();
      }
      running_ = true;
    });
    Until([&] { return running_.load(); });
  }
  ~Running() { Stop(); }

  void Stop() {
    collector_.Stop();
    if (thread_.joinable()) thread_.join();
  }
  void Reload() { collector_.Reload(); }
  std::string Status() {
    const std::lock_guard lock(mutex_);
    return status_;
  }
  // After Stop.
  std::string Said() { return out_.str() + errors_.str() + failure_ + collector_.Status(); }

 private:
  std::ostringstream out_, errors_;
  std::mutex mutex_;
  std::string failure_, status_;
  std::atomic<bool> running_ = false;
  Collector collector_;
  std::thread thread_;
};

class CollectTest : public testing::Test {
 protected:
  CollectTest() {
    setenv("TZ", "UTC", 1);
    tzset();
    options_.plant =
        Concat("Provider=SQLite;Busy Timeout=20;Data Source=", ToText(folder_.path() / "plant.db"));
  }

  void Create(const std::string& start = "2026-01-12") {
    PlantOptions create = options_;
    if (IsFile()) create.plant += ";Mode=ReadWriteCreate";
    CreateDemoPlant(create, *DateTime::Parse(start));
  }
  bool IsFile() const { return options_.plant.starts_with("Provider"); }
  void SetSource(std::int32_t machine_id, const std::string& address, const std::string& mapping = "") {
    Plant plant(options_);
    plant.Run("delete from T_SFC_SOURCE where MACHINE_ID = ?", {machine_id});
    plant.Run(
        "insert into T_SFC_SOURCE (MACHINE_ID, SOURCE_KIND, SOURCE_ADDRESS, SOURCE_MAPPING) values (?, "
        "'adapter', ?, ?)",
        {machine_id, address, mapping});
  }
  CollectOptions Options() {
    CollectOptions collect;
    collect.plant = [this] { return options_; };
    collect.spool = folder_.path() / "spool";
    collect.pauses = {milliseconds(10), milliseconds(20)};
    collect.links.first_pause = collect.links.longest_pause = milliseconds(10);
    return collect;
  }
  fs::path SpoolFile() const { return folder_.path() / "spool" / "spool.db"; }

  // The queue, a line an event.
  std::string Queue() {
    Plant plant(options_);
    std::string text;
    for (const QueuedEvent& event : ReadQueue(plant))
      Append(text, event.machine_id, " ", event.time.substr(11), " ", event.Name(),
             event.param.empty() ? "" : " " + event.param, "\n");
    return text;
  }
  std::int64_t Number(const std::string& sql) {
    Plant plant(options_);
    return plant.Run(sql).at(0, 0).ToInt32Or(0);
  }
  bool Waits(std::int64_t events) {
    Plant plant(options_);
    return Until(
        [&] { return plant.Run("select count(*) from T_SFC_MDC_LOG").at(0, 0).ToInt32() == events; });
  }

  TemporaryFolder folder_;
  PlantOptions options_;
};

// A day of a machine in `parts` cycles of a minute each, beginning at 06:00.
std::string Cycles(int parts, int first = 1) {
  std::string lines;
  for (int i = first; i < first + parts; ++i) {
    const auto line = [&](int second, const std::string& values) {
      Append(lines, DateTime(2026, 1, 12, 6).AddSeconds((i - 1) * 60 + second).Format("yyyy-MM-ddThh:mm:ss"),
             "Z|", values, "\n");
    };
    line(0, "execution|ACTIVE");
    line(30, Concat("execution|READY|partcount|", i));
  }
  return lines;
}
constexpr const char* kOpening =
    "2026-01-12T05:59:00Z|avail|AVAILABLE|execution|READY|program|A|partcount|0\n";

// What Cycles and the opening line become.
std::string Expected(std::int32_t machine_id, int parts) {
  std::string text = Concat(machine_id, " 05:59:00 part start A\n");
  for (int i = 0; i < parts; ++i) {
    const auto at = [&](int second) {
      return Concat(machine_id, " ",
                    DateTime(2026, 1, 12, 6).AddSeconds(i * 60 + second).ToText().substr(11));
    };
    Append(text, at(0), " cycle start\n", at(30), " cycle end\n", at(30), " good 1\n");
  }
  return text;
}

// ---- The spool alone ----

SpoolBatch BatchOf(int first, int events, const std::string& state) {
  SpoolBatch batch;
  for (int i = first; i < first + events; ++i)
    batch.events.push_back({1, {DateTime(2026, 1, 12), event::kPartStart, std::to_string(i)}});
  batch.states[1] = state;
  return batch;
}

std::string Params(const WaitingBatch& batch) {
  std::string text;
  for (const SpooledEvent& event : batch.events) Append(text, event.event.param, " ");
  const auto state = batch.states.find(1);
  return state == batch.states.end() ? text : text + state->second;
}

TEST_F(CollectTest, TheSpoolGivesWholeBatchesWithTheStatesBehindThem) {
  Spool spool(folder_.path() / "spool.db");
  EXPECT_TRUE(spool.is_new());
  spool.Put(BatchOf(1, 2, "a=1\n"), 0);
  spool.Put(BatchOf(3, 0, "a=2\n"), 0);
  spool.Put(BatchOf(3, 2, "a=3\n"), 0);
  spool.Put(BatchOf(5, 0, "a=4\n"), 0);
  EXPECT_EQ(spool.CountEvents(), 4);
  const WaitingBatch first = spool.Next(1);
  EXPECT_EQ(Params(first), "1 2 a=1\n");
  EXPECT_EQ(Params(spool.Next(3)), "1 2 3 4 a=3\n");
  spool.Forget(first.number);

  // Another link to the same file, as after a restart.
  Spool again(folder_.path() / "spool.db");
  EXPECT_FALSE(again.is_new());
  EXPECT_EQ(again.Name(), spool.Name());
  const WaitingBatch rest = again.Next(100);
  EXPECT_EQ(Params(rest), "3 4 a=4\n");
  EXPECT_EQ(rest.behind, first.number);
  EXPECT_EQ(again.State(1, true)->at("a"), "4");
  again.Forget(rest.number);
  EXPECT_EQ(again.Next(100).number, 0);
  EXPECT_EQ(again.State(1, true), std::nullopt);
  EXPECT_EQ(again.State(1, false)->at("a"), "4");
}

TEST_F(CollectTest, TheSpoolHasLimitsInBytesAndDays) {
  Spool spool(folder_.path() / "spool.db", {2, 200'000});
  constexpr std::int64_t kDay = 86'400;
  spool.Put(BatchOf(1, 1, ""), 10 * kDay);
  EXPECT_FALSE(spool.IsFull(12 * kDay - 1));
  EXPECT_TRUE(spool.IsFull(12 * kDay));
  EXPECT_TRUE(spool.IsFull(12 * kDay - 1));  // not before a tenth is free
  spool.Forget(spool.Next(1).number);
  EXPECT_FALSE(spool.IsFull(12 * kDay));
  int events = 1;
  for (; !spool.IsFull(12 * kDay) && events < 10'000; events += 100)
    spool.Put(BatchOf(events, 100, ""), 12 * kDay);
  EXPECT_LT(events, 10'000);
  EXPECT_GT(events, 1'000);
  spool.Forget(spool.Next(10'000).number);
  EXPECT_FALSE(spool.IsFull(12 * kDay));
}

// ---- Adapter to plant ----

TEST_F(CollectTest, WhatComesInWhileThePlantIsAwayArrivesUnderItsOwnTimeAndInOrder) {
  Create();
  Adapter one([] { return kOpening; }), two([] { return kOpening; });
  SetSource(1, one.address());
  SetSource(2, two.address());
  constexpr int kParts = 500;
  constexpr int kEvents = 2 * (3 * kParts + 1);
  std::string said;
  {
    Running collector(Options());
    ASSERT_TRUE(Waits(2));
    Plant holder(options_);
    holder.db.Begin();
    one.Send(Cycles(kParts));
    two.Send(Cycles(kParts));
    Spool spool(SpoolFile());
    ASSERT_TRUE(Until([&] { return spool.CountEvents() == kEvents - 2; }));
    ASSERT_TRUE(
        Until([&] { return collector.Status().ends_with("the plant is out of reach: database is locked"); }));
    holder.db.Rollback();
    ASSERT_TRUE(Waits(kEvents));
    collector.Stop();
    said = collector.Said();
  }
  EXPECT_NE(said.find("the plant is out of reach, and is tried again"), std::string::npos) << said;
  EXPECT_NE(said.find("Reaches the plant again"), std::string::npos) << said;
  EXPECT_NE(said.find("2 of 2 sources"), std::string::npos) << said;
  std::string of_one, of_two;
  std::istringstream lines(Queue());
  for (std::string line; std::getline(lines, line);) (line[0] == '1' ? of_one : of_two) += line + "\n";
  EXPECT_EQ(of_one, Expected(1, kParts));
  EXPECT_EQ(of_two, Expected(2, kParts));
}

TEST_F(CollectTest, AServerThatStopsUnderLoadGetsEverythingAfterwards) {
  test::PostgresServer server;
  options_.plant = server.ConnectionString(server.CreateDatabase());
  Create();
  Adapter adapter([] { return kOpening; });
  SetSource(1, adapter.address());
  constexpr int kParts = 400;
  {
    Running collector(Options());
    ASSERT_TRUE(Waits(1));
    adapter.Send(Cycles(kParts / 2));
    ASSERT_TRUE(Until([&] { return Number("select count(*) from T_SFC_MDC_LOG") > 1; }));
    server.Kill();
    adapter.Send(Cycles(kParts / 2, kParts / 2 + 1));
    Spool spool(SpoolFile());
    ASSERT_TRUE(Until([&] { return spool.CountEvents() >= 3 * kParts / 2; }));
    ASSERT_TRUE(
        Until([&] { return collector.Status().find("the plant is out of reach: ") != std::string::npos; }));
    server.Start();
    ASSERT_TRUE(Waits(3 * kParts + 1));
  }
  EXPECT_EQ(Queue(), Expected(1, kParts));
}

// A collector may start while the plant is away, when it knows the machines; and a cycle that ended while it
// was down ends at the first sign of that, once.
TEST_F(CollectTest, ACollectorGoesOnFromWhatItsSpoolKnows) {
  Create();
  std::string opening = kOpening;
  Adapter adapter([&] { return opening; });
  SetSource(1, adapter.address());
  {
    Running collector(Options());
    ASSERT_TRUE(Waits(1));
    adapter.Send("2026-01-12T06:00:00Z|execution|ACTIVE\n");
    ASSERT_TRUE(Waits(2));
  }
  adapter.Do(
      [&] { opening = "2026-01-12T06:10:00Z|avail|AVAILABLE|execution|READY|program|A|partcount|3\n"; });
  fs::rename(folder_.path() / "plant.db", folder_.path() / "away.db");
  {
    Running collector(Options());
    ASSERT_TRUE(Until([&] { return adapter.connections == 2; }));
    Spool spool(SpoolFile());
    ASSERT_TRUE(Until([&] { return spool.CountEvents() == 2; }));
    fs::rename(folder_.path() / "away.db", folder_.path() / "plant.db");
    ASSERT_TRUE(Waits(4));
    adapter.Disconnect();
    ASSERT_TRUE(Until([&] { return adapter.connections == 3; }));
    adapter.Send("2026-01-12T06:11:00Z|execution|ACTIVE\n");
    ASSERT_TRUE(Waits(5));
  }
  EXPECT_EQ(Queue(),
            "1 05:59:00 part start A\n1 06:00:00 cycle start\n1 06:10:00 cycle end\n1 06:10:00 good 3\n"
            "1 06:11:00 cycle start\n");
}

TEST_F(CollectTest, ASpoolThatIsFullIsSaidAndTheMachinesAreHeardAgainWhenThereIsRoom) {
  Create();
  std::atomic<int> count = 0;
  Adapter adapter([&] {
    return Concat("2026-01-12T06:00:00Z|avail|AVAILABLE|execution|READY|program|A|partcount|", count.load(),
                  "\n");
  });
  SetSource(1, adapter.address(), "part_limit=30000\n");
  CollectOptions options = Options();
  options.limits.bytes = 300'000;
  std::string said;
  {
    Running collector(options);
    ASSERT_TRUE(Waits(1));
    Plant holder(options_);
    holder.db.Begin();
    // Slowly enough that what is not heard meanwhile is within the limit.
    adapter.SendEach(milliseconds(10), [&] {
      std::string lines;
      for (int i = 0; i < 10; ++i) Append(lines, "2026-01-12T06:00:00Z|partcount|", ++count, "\n");
      return lines;
    });
    ASSERT_TRUE(Until([&] { return !adapter.IsHeard(); }));
    holder.db.Rollback();
    ASSERT_TRUE(Until([&] { return adapter.connections >= 2; }));
    adapter.SendNoMore();
    // No part is lost: the counter tells what was not heard.
    ASSERT_TRUE(Until([&] {
      return Number("select sum(cast(PARAM1 as integer)) from T_SFC_MDC_LOG where PARAM1 <> 'A'") == count;
    })) << count;
    collector.Stop();
    said = collector.Said();
  }
  EXPECT_NE(said.find("the spool is full, with "), std::string::npos) << said;
  EXPECT_NE(said.find("The spool has room again"), std::string::npos) << said;
}

// One machine's trouble is its own.
TEST_F(CollectTest, AWrongSourceTouchesItselfAloneAndSourcesAreReadAnew) {
  Create();
  Adapter adapter([] { return kOpening; });
  SetSource(1, adapter.address());
  SetSource(2, "nowhere");
  SetSource(3, adapter.address(), "part_limit=many\n");
  SetSource(77, adapter.address());
  std::string said;
  {
    Running collector(Options());
    EXPECT_THROW(Collector(Options(), std::cout, std::cerr), ToolError);  // the spool is in use
    CollectOptions other = Options();
    other.spool = folder_.path() / "other";
    Running second(other);
    second.Stop();
    EXPECT_NE(second.Said().find("the plant's machines are being listened to by process"), std::string::npos);
    ASSERT_TRUE(Waits(1));
    adapter.Send("2026-01-12T06:00:00Z|program|it's\n2026-01-12T06:00:01Z|program|B\xFF\n");
    ASSERT_TRUE(Waits(2));
    SetSource(2, adapter.address());
    collector.Reload();
    ASSERT_TRUE(Waits(3));
    collector.Stop();
    said = collector.Said();
  }
  EXPECT_EQ(Queue(),
            "1 05:59:00 part start A\n1 06:00:01 part start B\xEF\xBF\xBD\n2 05:59:00 part start A\n");
  for (const char* text :
       {"machine 2 (Lathe 2) is not heard, from nowhere: ",
        "machine 3 is not listened to: part_limit is a number",
        "machine 77 is not listened to: there is no machine",
        "part start \"it's\" at 2026-01-12 06:00:00 is refused", "2 of 2 sources", "1 refused"})
    EXPECT_NE(said.find(text), std::string::npos) << text << "\n" << said;
}

TEST_F(CollectTest, AClockThatCannotBeRightIsNotBelieved) {
  Create();
  Adapter adapter;
  SetSource(1, adapter.address());
  std::string said;
  {
    Running collector(Options());
    ASSERT_TRUE(Until([&] { return adapter.connections == 1; }));
    const Moment now = Now();
    const auto at = [&](Moment moment) { return RecordedSection::Head(1, moment).substr(20) + "|"; };
    adapter.Send("1970-01-01T00:00:07Z|execution|READY|partcount|0\n1970-01-01T00:00:08Z|partcount|1\n" +
                 at(now + std::chrono::hours(1)) + "partcount|2\n" + at(now - std::chrono::seconds(5)) +
                 "partcount|3\n");
    ASSERT_TRUE(Waits(3));
    collector.Stop();
    said = collector.Said();
  }
  EXPECT_EQ(said.find("the time of arrival is taken instead"),
            said.rfind("the time of arrival is taken instead"));
  EXPECT_NE(said.find("s slow, at 1970-01-01 00:00:08: the time of arrival is taken instead"),
            std::string::npos)
      << said;
  Plant plant(options_);
  const std::int64_t off =
      SecondsBetween(plant.Run("select min(TIME_STAMP) from T_SFC_MDC_LOG").at(0, 0).ToDateTime(),
                     PlantTime(std::time(nullptr)));
  EXPECT_LT(off, 70);
  EXPECT_EQ(
      Number(
          "select max(strftime('%s', TIME_STAMP)) - min(strftime('%s', TIME_STAMP)) < 60 from T_SFC_MDC_LOG"),
      1);
}

TEST_F(CollectTest, AnOlderCopyOfTheSpoolIsNoticedAndNothingComesTwice) {
  Create();
  std::atomic<int> parts = 0;
  Adapter adapter([&] {
    return parts == 0 ? kOpening
                      : Concat("2026-01-12T06:00:00Z|avail|AVAILABLE|execution|READY|program|A|partcount|",
                               parts.load(), "\n");
  });
  SetSource(1, adapter.address());
  const auto make_a_part = [&] {
    const int connections = adapter.connections;
    Running collector(Options());
    EXPECT_TRUE(Until([&] { return adapter.connections > connections; }));
    adapter.Send(Cycles(1, ++parts));
    EXPECT_TRUE(Waits(1 + 3 * parts));
    collector.Stop();
    return collector.Said();
  };
  make_a_part();
  fs::copy_file(SpoolFile(), folder_.path() / "backup.db");
  EXPECT_EQ(make_a_part().find("copy"), std::string::npos);
  fs::copy_file(folder_.path() / "backup.db", SpoolFile(), fs::copy_options::overwrite_existing);
  EXPECT_NE(make_a_part().find("the spool is an older copy"), std::string::npos);
  fs::remove_all(folder_.path() / "spool");
  EXPECT_NE(make_a_part().find("the spool is new, but the plant has taken events"), std::string::npos);
  EXPECT_EQ(Queue(), Expected(1, parts));
}

// ---- A real machine ----

// Recorded on a real machine; not part of the project.
TEST_F(CollectTest, ATurningCellComesThroughAnAdapterAsFromItsFile) {
  const char* const shared = getenv("KXDATA7_SHARED_DATA");
  const fs::path input =
      fs::path(shared == nullptr ? KXDATA7_SOURCE_DIR "/../shared/data" : shared) / "turning-cell.shdr";
  if (!fs::exists(input)) GTEST_SKIP() << input << " is not there";
  std::ifstream file(input);
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);) lines.push_back(line + "\n");
  const auto describe = [](std::istream& recorded) {
    std::string text;
    for (const RecordedEvent& event : ReadShdr(recorded).events) {
      Append(text, "1 ", event.time.ToText().substr(11), " ",
             EventName(event.event.type_code, event.event.time_code, event.event.command_number),
             event.param.empty() ? "" : " " + event.param, "\n");
    }
    return text;
  };
  std::ifstream whole(input);
  const std::string expected = describe(whole);
  const std::int64_t events = std::ranges::count(expected, '\n');

  Create("2022-08-08");
  Adapter adapter;
  SetSource(1, adapter.address());
  CollectOptions options = Options();
  options.record = ToText(folder_.path() / "recorded.shdr");
  // The collector ends and starts again where the file is cut.
  std::mt19937 random(18);
  const std::size_t cut = random() % lines.size();
  for (const auto& [first, last] : {std::pair(std::size_t{0}, cut), std::pair(cut, lines.size())}) {
    const int connections = adapter.connections;
    Running collector(options);
    ASSERT_TRUE(Until([&] { return adapter.connections > connections; }));
    for (std::size_t i = first; i < last; ++i) adapter.Send(lines[i]);
    // What was sent last tells that all was taken.
    adapter.Send("|@ASSET@|end\n");
    ASSERT_TRUE(Until([&] {
      std::ifstream recorded(options.record);
      const std::string text{std::istreambuf_iterator<char>(recorded), {}};
      return text.ends_with("@ASSET@|end\n");
    }));
  }
  ASSERT_TRUE(Waits(events));
  EXPECT_EQ(Queue(), expected);
  std::ifstream recorded(options.record);
  EXPECT_EQ(describe(recorded), expected);
  // Four cycles, four parts.
  std::vector<std::int64_t> cycles;
  DateTime start;
  std::istringstream rows(expected);
  for (std::string row; std::getline(rows, row);) {
    const DateTime time = *DateTime::Parse("2022-08-08 " + row.substr(2, 8));
    if (row.ends_with("cycle start")) start = time;
    if (row.ends_with("cycle end")) cycles.push_back(SecondsBetween(start, time));
  }
  EXPECT_EQ(cycles, (std::vector<std::int64_t>{605, 187, 17, 549}));
  EXPECT_EQ(Number("select count(*) from T_SFC_MDC_LOG where PARAM1 = '1'"), 4);
}

// ---- Processes ----

class Process {
 public:
  explicit Process(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), KXDATA7_TOOL);
    std::vector<char*> texts;
    for (std::string& argument : arguments) texts.push_back(argument.data());
    texts.push_back(nullptr);
    id_ = fork();
    if (id_ != 0) return;
    if (getenv("KXDATA7_SHOW_OUTPUT") == nullptr &&
        (freopen("/dev/null", "w", stdout) == nullptr || freopen("/dev/null", "w", stderr) == nullptr))
      _exit(3);
    execv(texts[0], texts.data());
    _exit(4);
  }
  ~Process() {
    if (id_ != 0) End(SIGKILL);
  }
  // Its wait status.
  int End(int signal) {
    kill(id_, signal);
    int status = 0;
    wait4(std::exchange(id_, 0), &status, 0, &usage);
    return status;
  }

  rusage usage{};

 private:
  pid_t id_;
};

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
