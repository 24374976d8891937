#include "plant/purge.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <limits>
#include <map>
#include <thread>
#include <unordered_set>
#include <vector>

#include "database/text.h"
#include "plant/schema_version.h"

namespace kx::tool {
namespace {

constexpr std::int32_t kRowsAtOnce = 500;

// The tables of what is booked on a record, and the column that refers to the row with which it began,
// perhaps on an earlier record.
struct Booked {
  const char* table;
  const char* key;
  const char* start;
};
constexpr std::array<Booked, 2> kBooked = {
    {{"T_SFC_DT_PER_MACHINE_DATA", "DT_PER_MACHINE_DATA_ID", "DT_DATA_START_ID"},
     {"T_SFC_SCRAP_PER_MACHINE_DATA", "SCRAP_PER_MACHINE_DATA_ID", "SCRAP_DATA_START_ID"}}};

constexpr std::size_t kFirstReference = 6;  // among the columns below
constexpr std::string_view kRecordColumns =
    "MACHINE_DATA_ID, MACHINE_ID, START_TIME, STOP_TIME, STATUS_CODE, CHART_DATE, JOB_DATA_START_ID, "
    "PART_DATA_START_ID, LOGON_DATA_START_ID, OP_DATA_START_ID";

// The times of a machine's records that stay.
class KeptTimes {
 public:
  void Add(DateTime start, DateTime stop) {
    stops_[start] = std::max(stops_.try_emplace(start, stop).first->second, stop);
  }
  // After the last Add: each start leads to the latest stop up to it.
  void Finish() {
    for (auto at = stops_.begin(); at != stops_.end() && std::next(at) != stops_.end(); ++at)
      std::next(at)->second = std::max(at->second, std::next(at)->second);
  }
  bool Overlap(DateTime start, DateTime stop) const {
    const auto after = stops_.upper_bound(stop);
    return after != stops_.begin() && std::prev(after)->second > start;
  }

 private:
  std::map<DateTime, DateTime> stops_;
};

class Purger {
 public:
  Purger(Plant& plant, const PurgeOptions& options,
         const std::function<void(std::int64_t done, std::int64_t total)>& progress)
      : plant_(plant), options_(options), progress_(progress) {}

  PurgeCount Run() {
    total_ = Max("T_SFC_MACHINE_DATA", "MACHINE_DATA_ID") + Max("T_SFC_EVENT", "EVENT_ID");
    HoldCurrentRecords();
    // From the last record down: what refers to a record is later than it, and so is decided before it.
    std::int64_t last = std::numeric_limits<std::int32_t>::max();
    while (last > 0) InPiece([&] { last = PurgeRecords(last); });
    for (auto& [machine, times] : kept_) times.Finish();
    last = 0;
    while (last >= 0) InPiece([&] { last = PurgeEvents(last); });
    return count_;
  }

 private:
  std::int64_t Max(const char* table, const char* key) {
    const Value last = plant_.Run(Concat("select max(", key, ") from ", table)).at(0, 0);
    return last.ToInt32Or(0);
  }

  // The writer that waits comes in between two pieces: a rest is as long as the work before it.
  template <class Work>
  void InPiece(Work work) {
    const auto begin = std::chrono::steady_clock::now();
    if (options_.dry_run) return work();
    plant_.db.Begin();
    work();
    plant_.db.Commit();
    std::this_thread::sleep_for(std::chrono::steady_clock::now() - begin);
  }

  void HoldCurrentRecords() {
    Hold("select MACHINE_DATA_ID from T_SFC_MACHINE");
    // References that lead to a later record are nothing that the component writes.
    for (const char* column : {"JOB", "PART", "LOGON", "OP"})
      Hold(Concat("select ", column, "_DATA_START_ID from T_SFC_MACHINE_DATA where ", column,
                  "_DATA_START_ID > MACHINE_DATA_ID"));
  }
  void Hold(const std::string& query) {
    for (const Value& id : plant_.Run(query).values) held_.insert(id.ToInt32Or(-1));
  }

  // Works on the last records whose key is not above `last`. Returns where the next ones begin, 0 at the end.
  std::int64_t PurgeRecords(std::int64_t last) {
    const Rows rows = plant_.Run(Concat("select ", kRecordColumns,
                                        " from T_SFC_MACHINE_DATA where "
                                        "MACHINE_DATA_ID <= ? order by MACHINE_DATA_ID desc limit ",
                                        kRowsAtOnce),
                                 {last});
    if (rows.count() == 0) return 0;
    const std::int64_t first = rows.at(rows.count() - 1, 0).ToInt32();
    const auto references = BookedReferences(first, last);
    std::vector<Value> going;
    for (std::size_t i = 0; i < rows.count(); ++i) {
      const std::int32_t id = rows.at(i, 0).ToInt32();
      const DateTime start = rows.at(i, 2).ToDateTimeOr(options_.before);
      const DateTime stop = rows.at(i, 3).ToDateTimeOr(DateTime(9999, 12, 31));
      const bool is_before = rows.at(i, 5).ToDateTimeOr(start) < options_.before;
      const bool complete = rows.at(i, 4).ToInt32Or(0) == 2 && !rows.at(i, 3).IsNull();
      if (complete && is_before && !held_.contains(id)) {
        going.push_back(rows.at(i, 0));
        continue;
      }
      if (is_before) ++count_.kept;
      for (std::size_t column = kFirstReference; column < rows.columns.size(); ++column)
        held_.insert(rows.at(i, column).ToInt32Or(-1));
      const auto [from, to] = references.equal_range(id);
      for (auto at = from; at != to; ++at) held_.insert(at->second);
      if (start < options_.before) kept_[rows.at(i, 1).ToInt32Or(-1)].Add(start, stop);
    }
    for (const Booked& booked : kBooked)
      (booked.table == kBooked[0].table ? count_.downtimes : count_.scrap) +=
          Delete(booked.table, "MACHINE_DATA_ID", going);
    count_.records += Delete("T_SFC_MACHINE_DATA", "MACHINE_DATA_ID", going);
    Report(rows.count());
    return first - 1;
  }

  // From a record to the earlier ones on which its downtimes and scrap began.
  std::multimap<std::int32_t, std::int32_t> BookedReferences(std::int64_t first, std::int64_t last) {
    std::multimap<std::int32_t, std::int32_t> references;
    for (const auto& [table, key, start] : kBooked) {
      const Rows rows =
          plant_.Run(Concat("select later.MACHINE_DATA_ID, earlier.MACHINE_DATA_ID from ", table,
                            " later join ", table, " earlier on earlier.", key, " = later.", start,
                            " where later.MACHINE_DATA_ID between ? and ? and earlier.MACHINE_DATA_ID <> "
                            "later.MACHINE_DATA_ID"),
                     {first, last});
      for (std::size_t i = 0; i < rows.count(); ++i)
        references.emplace(rows.at(i, 0).ToInt32(), rows.at(i, 1).ToInt32());
    }
    return references;
  }

  // Works on the first events whose key is above `last`. Returns the last key, -1 at the end.
  std::int64_t PurgeEvents(std::int64_t last) {
    const Rows rows = plant_.Run(Concat("select EVENT_ID, MACHINE_ID, START_TIME, STOP_TIME, (select "
                                        "count(*) from T_SFC_MACHINE_EVENT r where "
                                        "r.EVENT_ID = e.EVENT_ID) as RUNNING from T_SFC_EVENT e where "
                                        "EVENT_ID > ? order by EVENT_ID limit ",
                                        kRowsAtOnce),
                                 {last});
    if (rows.count() == 0) return -1;
    std::vector<Value> going;
    for (std::size_t i = 0; i < rows.count(); ++i) {
      if (rows.at(i, 2).IsNull() || rows.at(i, 3).IsNull() || rows.at(i, 4).ToInt32() > 0) continue;
      const DateTime stop = rows.at(i, 3).ToDateTime();
      const auto machine = kept_.find(rows.at(i, 1).ToInt32Or(-1));
      if (stop < options_.before &&
          (machine == kept_.end() || !machine->second.Overlap(rows.at(i, 2).ToDateTime(), stop)))
        going.push_back(rows.at(i, 0));
    }
    count_.events += Delete("T_SFC_EVENT", "EVENT_ID", going);
    Report(rows.count());
    return rows.at(rows.count() - 1, 0).ToInt32();
  }

  // Returns how many rows that are, which a dry run leaves alone.
  std::int64_t Delete(const std::string& table, const char* column, const std::vector<Value>& values) {
    if (values.empty()) return 0;
    std::string marks = "?";
    for (std::size_t i = 1; i < values.size(); ++i) marks += ", ?";
    const std::string rows = Concat(" from ", table, " where ", column, " in (", marks, ")");
    if (!options_.dry_run) return plant_.db.ExecuteDirect("delete" + rows, values).affected;
    return plant_.db.ExecuteDirect("select count(*)" + rows, values).at(0, 0).ToInt32();
  }

  void Report(std::size_t rows) {
    done_ += static_cast<std::int64_t>(rows);
    progress_(std::min(done_, total_), total_);
  }

  Plant& plant_;
  const PurgeOptions& options_;
  const std::function<void(std::int64_t done, std::int64_t total)>& progress_;
  std::unordered_set<std::int32_t> held_;
  std::map<std::int32_t, KeptTimes> kept_;  // of a machine, before the day
  PurgeCount count_;
  std::int64_t done_ = 0;
  std::int64_t total_ = 0;
};

}  // namespace

PurgeCount Purge(Plant& plant, const PurgeOptions& options,
                 const std::function<void(std::int64_t done, std::int64_t total)>& progress) {
  if (plant.db.target() == SqlTarget::kNative) throw ToolError("purge knows plants on SQLite and PostgreSQL");
  RequireCurrentVersion(plant);
  if (!options.dry_run) {
    const std::string day = options.before.ToText();
    if (ReadSetting(plant, kPurgedBefore).value_or("") < day) WriteSetting(plant, kPurgedBefore, day);
  }
  return Purger(plant, options, progress).Run();
}

}  // namespace kx::tool
