#pragma once

#include <filesystem>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/plant.h"
#include "tests/support/postgres_server.h"

namespace kx::bench {

// Where plants lie while they are measured.
struct Ground {
  std::string name;
  std::filesystem::path folder;
  std::string synchronous;                 // of SQLite
  test::PostgresServer* server = nullptr;  // instead of SQLite when given
};

using Fill = std::function<void(test::Plant&)>;

// A plant that is filled once and measured in copies. SQLite's copies go with this object.
class MasterPlant {
 public:
  MasterPlant(const Ground& ground, const Fill& fill);

  struct Copy {
    std::string file;                        // on SQLite
    std::string connection;                  // for the component
    std::vector<std::string> floor_command;  // the floor program for it
  };
  const std::filesystem::path& folder() const { return folder_.path(); }
  Copy MakeCopy() { return MakeCopy(ground_.synchronous); }
  Copy MakeCopy(std::string_view synchronous);

 private:
  const Ground& ground_;
  TemporaryFolder folder_;
  std::string database_;  // a file or a server's database
  int copies_ = 0;
};

// An event of the round that is measured: everything that a machine reports in a shift's work.
struct EventType {
  std::string_view name;
  int command;
  int time_code;
  std::string_view param;
};

// The last two are no part of a machine's work: a refresh of another machine, for which a shift ends each
// time, and the append.
constexpr EventType kEventTypes[] = {{"cycle start", 109, 0, ""},
                                     {"cycle end", 109, 1, ""},
                                     {"good part count", 113, 0, "1"},
                                     {"scrap", 114, 0, "1.17"},
                                     {"job start", 105, 0, "J1"},
                                     {"setup start", 108, 0, ""},
                                     {"setup end", 108, 1, ""},
                                     {"downtime start", 111, 0, "D0"},
                                     {"downtime end", 111, 1, ""},
                                     {"refresh over a shift's end", -1, 0, ""},
                                     {"append", 0, 0, ""}};
constexpr std::size_t kRefresh = std::size(kEventTypes) - 2;
constexpr std::size_t kAppend = std::size(kEventTypes) - 1;
constexpr std::size_t kRoundSize = kAppend;

// Makes the test's plant ready for rounds: parts run, shifts work on every day of the week.
void PrepareForRounds(test::Plant& plant);
// Queues rounds, each for the next one of the machines, with the refresh on machine 3.
void QueueRounds(test::Plant& plant, int rounds, std::span<const int> machines);

// Rows in bulk: events that wait, what happened in the past, machines (from number 10 on) and shifts.
void QueueCycles(test::Plant& plant, int count);
void AddPast(test::Plant& plant, int records, int events_of_each);
// One refresh that closes so many shifts.
void QueueRollOver(test::Plant& plant, int shifts);
void AddMachines(test::Plant& plant, int count);
void AddShifts(test::Plant& plant, int count);

// The rows of every table that an event changes, without the times at which events were queued.
std::string DumpOf(const std::string& connection);

}  // namespace kx::bench
