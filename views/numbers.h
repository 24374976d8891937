#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "plant/plant.h"
#include "views/ranges.h"

namespace kx::tool {

// The one place where numbers come from the plant's records. Times are whole seconds: each record's total is
// made whole seconds by itself, then they are summed, so that every order and grouping gives the same sum.

struct Sums {
  std::int64_t covered =
      0;  // from a record's start to its stop; an open one to now, at most to its shift's end
  std::int64_t cycle = 0, setup = 0, teardown = 0, downtime = 0, idle = 0;
  std::int64_t finished = 0, unfinished = 0;  // cycles
  std::int64_t good = 0, scrapped = 0;        // parts
  bool running = false;                       // one of the records is open

  // What the records cover but no total holds, such as what an open record does now.
  std::int64_t NotBooked() const { return covered - cycle - setup - teardown - downtime - idle; }
  // In per cent; nothing where no part was made or no time is covered.
  std::optional<double> Quality() const;
  std::optional<double> CycleShare() const;
  Sums& operator+=(const Sums& other);
};

// Which records.
struct Scope {
  Range range;
  std::optional<std::int32_t> machine;  // its internal id; all when not given
  DateTime now;                         // until when open records count
};

struct RecordRow {
  std::int32_t id = 0, machine_id = 0;
  DateTime start;
  std::optional<DateTime> stop;
  DateTime end;  // `stop`, or until when the open record counts
  DateTime day;
  std::optional<std::int32_t> shift_id;
  std::string job, part, operation, user;  // as the master tables know them, else as reported; empty: none
  Sums sums;
};
// The records in the order of machine and start, without more than a week of them in memory.
void ForEachRecord(Plant& plant, const Scope& scope, const std::function<void(const RecordRow&)>& take);
// The machines' open records, whichever day or shift they are booked on.
std::vector<RecordRow> ReadOpenRecords(Plant& plant, DateTime now);

// A downtime code or a scrap code.
struct Reason {
  std::string number;  // empty: none was given
  std::string name;
  bool known = false;  // the plant's list has it

  std::string Text() const;  // "No material", "Unknown code 77", "No reason given"
  friend auto operator<=>(const Reason&, const Reason&) = default;
};

struct DowntimeRow {
  std::int32_t record_id, machine_id;
  DateTime start;
  std::optional<DateTime> stop;
  std::int64_t seconds;  // booked
  std::int64_t running;  // of an open row: from its start to `now`, which is not booked yet
  bool by_operator;
  bool carried;  // it began with its record, that is, before
  Reason reason;
};
// The downtimes of the records of `scope`, in the order of machine and start.
std::vector<DowntimeRow> ReadDowntimes(Plant& plant, const Scope& scope);
// Those that run now.
std::vector<DowntimeRow> ReadOpenDowntimes(Plant& plant, DateTime now);

// Rows of one machine, kind and reason of which each begins where the one before ends: one stop, cut by
// changes of operator, job or shift. `carried` says that it began before the range.
std::vector<DowntimeRow> MergeStops(std::vector<DowntimeRow> rows);

struct ScrapRow {
  std::int32_t machine_id;
  DateTime time;
  std::int64_t quantity;
  Reason reason;
};
std::vector<ScrapRow> ReadScrap(Plant& plant, const Scope& scope);

struct MachineRow {
  std::int32_t id;
  std::string name;  // "machine 7" when it has none
  std::int32_t status_code;
  std::optional<DateTime> status_date;
  std::int32_t record_id;  // its open record, -1 when it has none
};
// The machines, or the one of `machine`, by id.
std::vector<MachineRow> ReadMachines(Plant& plant, std::optional<std::int32_t> machine = {});
std::string MachineName(const std::vector<MachineRow>& machines, std::int32_t id);

// ---- Sums over records ----

enum class By { kMachineAndShift, kMachine, kShift, kOperator, kJob, kPart, kOperation, kDay, kWeek };

struct Group {
  std::int32_t machine_id = 0;  // by machine
  std::string name;             // what it is about, empty: none (no job, nobody logged on)
  std::string shift;            // by machine and shift
  Sums sums;
};
// Adds up records that are given one by one.
class Grouping {
 public:
  Grouping(By by, const Calendar& calendar, std::vector<MachineRow> machines);
  void Add(const RecordRow& record);
  // By machine, shift, day or name; the group without a name comes last.
  std::vector<Group> Groups() const;

 private:
  By by_;
  const Calendar& calendar_;
  std::vector<MachineRow> machines_;
  std::map<std::string, Group> groups_;  // by what they are sorted by
};

// ---- Sums over downtimes and scrap, largest first ----

struct ReasonSum {
  Reason reason;
  bool by_operator = false;
  std::int64_t amount = 0;   // booked seconds, or parts
  std::int64_t running = 0;  // seconds not booked yet
  std::int64_t stops = 0;    // or reports of scrap
  bool carried = false;      // a stop began before the range
  std::vector<std::int32_t> machines;
};
std::vector<ReasonSum> SumByReason(const std::vector<DowntimeRow>& stops);
std::vector<ReasonSum> SumByReason(const std::vector<ScrapRow>& rows);

}  // namespace kx::tool
