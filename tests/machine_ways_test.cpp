// One machine's words by every way in, cut at many places: the plant has the same rows each time.
#include <algorithm>
#include <random>
#include <set>

#include "inputs/recorded_input.h"
#include "tests/support/collecting.h"
#include "tests/support/long_run.h"

namespace kx::tool {
namespace {

using Lines = std::vector<std::string>;

std::string Joined(const Lines& lines) {
  std::string text;
  for (const std::string& line : lines) Append(text, line, "\n");
  return text;
}

// What an adapter tells first that has told `lines` before: the last value of each key.
std::string OpeningAfter(const Lines& lines) {
  std::string time;
  Lines keys;
  std::map<std::string, std::string> values;
  for (const std::string& line : lines) {
    const std::vector<std::string> fields = SplitFields(line);
    if (line.starts_with('*')) continue;
    time = fields[0];
    for (std::size_t i = 1; i + 1 < fields.size(); i += 2) {
      if (!values.contains(fields[i])) keys.push_back(fields[i]);
      values[fields[i]] = fields[i + 1];
    }
  }
  if (keys.empty()) return "";
  std::string opening = time;
  for (const std::string& key : keys) Append(opening, "|", key, "|", values[key]);
  return opening + "\n";
}

class MachineWaysTest : public CollectTest {
 protected:
  // Cuts around the lines that became an event, some of them; in the long run around every line.
  void Read(const fs::path& recording) {
    std::ifstream file(recording);
    for (std::string line; std::getline(file, line);) lines_.push_back(line);
    std::istringstream input(Joined(lines_));
    std::set<std::size_t> cuts;
    for (const RecordedEvent& event : ReadShdr(input).events) cuts.insert({event.line - 1, event.line});
    for (std::size_t i = 1; test::IsLongRun() && i < lines_.size(); ++i) cuts.insert(i);
    cuts.erase(cuts.begin(), cuts.lower_bound(2));  // a comment alone is no recording
    std::size_t begin = 0;
    std::mt19937 random(18);
    for (const std::size_t cut : cuts) {
      if (random() % static_cast<unsigned>(test::Stride(5)) != 0) continue;
      pieces_.emplace_back(lines_.begin() + static_cast<std::ptrdiff_t>(begin),
                           lines_.begin() + static_cast<std::ptrdiff_t>(cut));
      begin = cut;
    }
    pieces_.emplace_back(lines_.begin() + static_cast<std::ptrdiff_t>(begin), lines_.end());
    start_ = lines_[1].substr(0, 10);
  }

  void CreateAnew() {
    for (const char* name : {"plant.db", "plant.db-wal", "plant.db-shm"}) fs::remove(folder_.path() / name);
    fs::remove_all(folder_.path() / "spool");
    Create(start_);
  }
  // Works the queue in. What the machine's records and events hold then.
  std::string Rows() {
    EXPECT_NE(Tool({"process", "--all"}).find("-> 0"), std::string::npos);
    Plant plant(options_);
    std::string text;
    for (const char* table : {"T_SFC_MACHINE_DATA", "T_SFC_EVENT", "T_SFC_MACHINE_EVENT", "T_SFC_MDC_LOG"}) {
      const kx::Rows rows = plant.Run(Concat("select * from ", table, " order by 1"));
      Append(text, table, "\n");
      for (std::size_t i = 0; i < rows.count(); ++i) {
        for (std::size_t column = 0; column < rows.columns.size(); ++column)
          Append(text, rows.at(i, column).ToTextOr("-"), "|");
        text += '\n';
      }
    }
    return text;
  }

  // Of a file, or of the standard input.
  std::string Imported(const std::vector<Lines>& pieces, bool as_file = true) {
    CreateAnew();
    const std::string file = (folder_.path() / "piece.shdr").string();
    for (const Lines& piece : pieces) {
      std::ofstream(file) << Joined(piece);
      const std::string said = Tool({"import", as_file ? file : "-", "--machine", "1"}, file);
      EXPECT_TRUE(said.ends_with("-> 0\n")) << said;
    }
    return Rows();
  }

  // What ends between two pieces, each in its turn: the collector; the collector, and its spool is lost, so
  // that the plant alone knows what the machine told last; the link.
  enum class End { kCollector, kSpool, kLink };

  std::string ThroughAnAdapter() {
    CreateAnew();
    Lines told;
    Adapter adapter([&] { return OpeningAfter(told); });
    SetSource(1, adapter.address());
    std::optional<Running> collector;
    std::int64_t lines = 0;  // that the collector must have heard
    for (std::size_t i = 0; i < pieces_.size(); ++i) {
      const int connections = adapter.connections;
      const auto end = End{static_cast<int>(i % 3)};
      if (i > 0 && end == End::kLink) {
        adapter.Disconnect();
      } else {
        Restart(collector, end);
        lines = 0;
      }
      EXPECT_TRUE(Until([&] { return adapter.connections > connections; }));
      lines += OpeningAfter(told).empty() ? 0 : 1;
      lines += static_cast<std::int64_t>(pieces_[i].size());
      adapter.Send(Joined(pieces_[i]));
      EXPECT_TRUE(Until([&] { return collector->Lines() == lines; }));
      adapter.Do([&] { told.insert(told.end(), pieces_[i].begin(), pieces_[i].end()); });
    }
    collector.reset();
    return Rows();
  }

  std::string ThroughAnAgent() {
    CreateAnew();
    RecordedAgent agent;
    SetSource(1, Concat("http://", agent.address(), "/"));
    std::optional<Running> collector;
    for (std::size_t i = 0; i < pieces_.size(); ++i) {
      const auto end = End{static_cast<int>(i % 3)};
      if (i > 0 && end == End::kLink) {
        EXPECT_TRUE(Until([&] { return agent.AllIsRead(); }));
        agent.Restart();
      } else {
        Restart(collector, end);
      }
      // An agent that is heard for the first time, or has started again, tells only what holds.
      EXPECT_TRUE((i > 0 && end != End::kLink) || Until([&] { return agent.AllIsRead(); }));
      agent.Tell(pieces_[i]);
    }
    EXPECT_TRUE(Until([&] { return agent.AllIsRead(); }));
    collector.reset();
    return Rows();
  }

  void ExpectTheSameRowsByEveryWay() {
    const std::string rows = Imported({lines_});
    EXPECT_GT(std::ranges::count(rows, '\n'), 20);
    EXPECT_EQ(Imported(pieces_), rows);
    EXPECT_EQ(Imported(pieces_, false), rows);
    EXPECT_EQ(ThroughAnAdapter(), rows);
    EXPECT_EQ(ThroughAnAgent(), rows);
  }

  Lines lines_;
  std::vector<Lines> pieces_;

 private:
  void Restart(std::optional<Running>& collector, End end) {
    collector.reset();
    if (end == End::kSpool) fs::remove_all(folder_.path() / "spool");
    collector.emplace(Options());
  }

  std::string start_;
};

TEST_F(MachineWaysTest, TheSampleOfAMill) {
  Read(KXDATA7_SOURCE_DIR "/samples/mill2-2026-01-12.shdr");
  ExpectTheSameRowsByEveryWay();
}

// Recorded on a real machine; not part of the project.
TEST_F(MachineWaysTest, ATurningCell) {
  const char* const shared = getenv("KXDATA7_SHARED_DATA");
  const fs::path input =
      fs::path(shared == nullptr ? KXDATA7_SOURCE_DIR "/../shared/data" : shared) / "turning-cell.shdr";
  if (!fs::exists(input)) GTEST_SKIP() << input << " is not there";
  Read(input);
  ExpectTheSameRowsByEveryWay();
  Plant plant(options_);
  const auto sum = [&](const char* column) {
    return plant.Run(Concat("select sum(", column, ") from T_SFC_MACHINE_DATA")).at(0, 0).ToInt32();
  };
  EXPECT_EQ(sum("GOOD_COUNT"), 4);
  const kx::Rows cycles = plant.Run(
      "select round(CYCLE_TIME * 60) from T_SFC_MACHINE_DATA where FINISHED_CYCLES > 0 order by START_TIME");
  std::string seconds;
  for (std::size_t i = 0; i < cycles.count(); ++i) Append(seconds, cycles.at(i, 0).ToInt32(), " ");
  EXPECT_EQ(seconds, "605 187 17 549 ");
}

}  // namespace
}  // namespace kx::tool
