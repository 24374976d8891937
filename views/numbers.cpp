#include "views/numbers.h"

#include <algorithm>
#include <cmath>
#include <tuple>

#include "database/text.h"
#include "views/words.h"

namespace kx::tool {
namespace {

// Parameters of a condition on the records `d`.
struct Condition {
  std::string sql;
  std::vector<Value> parameters;
};

// The days alone lead the search: an index on the machine would make it read all of the machine's past.
Condition InScope(const Scope& scope, DateTime first, DateTime last) {
  Condition condition{" where d.CHART_DATE >= ? and d.CHART_DATE < ?", {first, last.AddDays(1)}};
  if (scope.machine) {
    condition.sql += " and d.MACHINE_ID + 0 = ?";
    condition.parameters.emplace_back(*scope.machine);
  }
  if (scope.range.shift_id) {
    condition.sql += " and d.SHIFT_ID + 0 = ?";
    condition.parameters.emplace_back(*scope.range.shift_id);
  }
  return condition;
}

std::int64_t WholeSeconds(const Value& total, double unit) {
  return std::llround(total.ToDoubleOr(0) * unit);
}

constexpr double kMinute = 60, kHour = 3600;  // in seconds

std::string KnownOr(const Value& known, const Value& reported) {
  return known.ToTextOr(reported.ToTextOr(""));
}

Reason ReasonOf(const Value& number, const Value& name, const Value& reported) {
  if (number.IsNull() && name.IsNull()) return {reported.ToTextOr(""), "", false};
  return {number.ToTextOr(""), name.ToTextOr(""), true};
}

// Where an open record ends for now.
DateTime EndOfOpen(const RecordRow& record, const Value& shift_end, DateTime now) {
  const bool in_shift = record.shift_id && *record.shift_id > 0;
  const DateTime most = in_shift ? shift_end.ToDateTimeOr(record.day.AddDays(1)) : record.day.AddDays(1);
  return std::max(record.start, std::min(now, most));
}

// The open records, whichever range they are booked in.
Condition AreOpen() {
  return {" where d.MACHINE_DATA_ID in (select MACHINE_DATA_ID from T_SFC_MACHINE) and d.STOP_TIME is null",
          {}};
}

std::vector<DowntimeRow> ReadDowntimes(Plant& plant, const Condition& which, DateTime now) {
  const auto& [condition, parameters] = which;
  const Rows rows = plant.db.ExecuteDirect(
      "select d.MACHINE_DATA_ID, d.MACHINE_ID, d.START_TIME, t.START_TIME, t.STOP_TIME, t.DURATION, "
      "t.DOWNTIME_TYPE_CODE, c.DOWNTIME_CODE_NUMBER, c.DOWNTIME_CODE_NAME, t.DT_NUMBER "
      "from T_SFC_MACHINE_DATA d join T_SFC_DT_PER_MACHINE_DATA t on t.MACHINE_DATA_ID = d.MACHINE_DATA_ID "
      "left join T_SFC_DOWNTIME_CODE c on c.DOWNTIME_CODE_ID = t.DOWNTIME_CODE_ID" +
          condition + " order by d.MACHINE_ID, t.START_TIME, t.DT_PER_MACHINE_DATA_ID",
      parameters);
  std::vector<DowntimeRow> downtimes;
  for (std::size_t i = 0; i < rows.count(); ++i) {
    const DateTime start = rows.at(i, 3).ToDateTimeOr(rows.at(i, 2).ToDateTime());
    const bool open = rows.at(i, 4).IsNull();
    downtimes.push_back(
        {rows.at(i, 0).ToInt32(), rows.at(i, 1).ToInt32Or(-1), start,
         open ? std::nullopt : std::optional(rows.at(i, 4).ToDateTime()), WholeSeconds(rows.at(i, 5), kHour),
         open ? std::max<std::int64_t>(0, SecondsBetween(start, now)) : 0, rows.at(i, 6).ToInt32Or(0) == 1,
         start == rows.at(i, 2).ToDateTime(), ReasonOf(rows.at(i, 7), rows.at(i, 8), rows.at(i, 9))});
  }
  return downtimes;
}

void ReadRecords(Plant& plant, const Condition& which, DateTime now,
                 const std::function<void(const RecordRow&)>& take) {
  std::map<std::int32_t, std::int64_t> downtimes;
  for (const DowntimeRow& row : ReadDowntimes(plant, which, now)) downtimes[row.record_id] += row.seconds;

  const auto& [condition, parameters] = which;
  const Rows rows = plant.db.ExecuteDirect(
      "select d.MACHINE_DATA_ID, d.MACHINE_ID, d.START_TIME, d.STOP_TIME, d.CHART_DATE, d.SHIFT_ID, "
      "d.SHIFT_END, d.CYCLE_TIME, d.SETUP_TIME, d.TEARDOWN_TIME, d.IDLE_TIME, d.FINISHED_CYCLES, "
      "d.UNFINISHED_CYCLES, d.GOOD_COUNT, d.SCRAPPED_COUNT, j.JOB_NUMBER, d.JOB_NUMBER, p.PART_NUMBER, "
      "d.PART_NUMBER, o.OP_NUMBER, d.OP_NUMBER, u.USER_NAME, d.USER_NAME from T_SFC_MACHINE_DATA d "
      "left join T_SFC_JOB j on j.JOB_ID = d.JOB_ID left join T_SFC_PART p on p.PART_ID = d.PART_ID "
      "left join T_SFC_OP o on o.OP_ID = d.OP_ID left join T_SFC_USER u on u.USER_ID = d.USER_ID" +
          condition + " order by d.MACHINE_ID, d.START_TIME, d.MACHINE_DATA_ID",
      parameters);
  for (std::size_t i = 0; i < rows.count(); ++i) {
    const auto at = [&](std::size_t column) -> const Value& { return rows.at(i, column); };
    RecordRow record;
    record.id = at(0).ToInt32();
    record.machine_id = at(1).ToInt32Or(-1);
    record.start = at(2).IsNull() ? at(4).ToDateTime() : at(2).ToDateTime();
    record.day = at(4).ToDateTimeOr(record.start).Date();
    if (!at(3).IsNull()) record.stop = at(3).ToDateTime();
    if (!at(5).IsNull()) record.shift_id = at(5).ToInt32();
    record.end = record.stop.value_or(EndOfOpen(record, at(6), now));
    record.job = KnownOr(at(15), at(16));
    record.part = KnownOr(at(17), at(18));
    record.operation = KnownOr(at(19), at(20));
    record.user = KnownOr(at(21), at(22));
    record.sums = {.covered = SecondsBetween(record.start, record.end),
                   .cycle = WholeSeconds(at(7), kMinute),
                   .setup = WholeSeconds(at(8), kHour),
                   .teardown = WholeSeconds(at(9), kHour),
                   .idle = WholeSeconds(at(10), kHour),
                   .finished = at(11).ToInt32Or(0),
                   .unfinished = at(12).ToInt32Or(0),
                   .good = at(13).ToInt32Or(0),
                   .scrapped = at(14).ToInt32Or(0),
                   .running = !record.stop};
    if (const auto found = downtimes.find(record.id); found != downtimes.end())
      record.sums.downtime = found->second;
    take(record);
  }
}

// Runs `read` over the days of the range, a week at a time.
template <class Read>
void EachWeek(const Range& range, Read read) {
  for (DateTime first = range.first; first <= range.last; first = first.AddDays(7))
    read(first, std::min(first.AddDays(6), range.last));
}

std::optional<double> PerCent(std::int64_t part, std::int64_t whole) {
  if (whole <= 0) return std::nullopt;
  return 100.0 * static_cast<double>(part) / static_cast<double>(whole);
}

template <class Row, class Fill>
std::vector<ReasonSum> SumRows(const std::vector<Row>& rows, Fill fill) {
  std::map<std::pair<Reason, bool>, ReasonSum> sums;
  for (const Row& row : rows) {
    bool by_operator = false;
    if constexpr (requires { row.by_operator; }) by_operator = row.by_operator;
    ReasonSum& sum = sums[{row.reason, by_operator}];
    sum.reason = row.reason;
    sum.by_operator = by_operator;
    ++sum.stops;
    if (std::ranges::find(sum.machines, row.machine_id) == sum.machines.end())
      sum.machines.push_back(row.machine_id);
    fill(sum, row);
  }
  std::vector<ReasonSum> sorted;
  sorted.reserve(sums.size());
  for (auto& [key, sum] : sums) sorted.push_back(std::move(sum));
  std::ranges::stable_sort(sorted, std::greater(), [](const ReasonSum& s) { return s.amount + s.running; });
  return sorted;
}

}  // namespace

std::optional<double> Sums::Quality() const { return PerCent(good, good + scrapped); }
std::optional<double> Sums::CycleShare() const { return PerCent(cycle, covered); }

Sums& Sums::operator+=(const Sums& other) {
  for (const auto member : {&Sums::covered, &Sums::cycle, &Sums::setup, &Sums::teardown, &Sums::downtime,
                            &Sums::idle, &Sums::finished, &Sums::unfinished, &Sums::good, &Sums::scrapped})
    this->*member += other.*member;
  running |= other.running;
  return *this;
}

void ForEachRecord(Plant& plant, const Scope& scope, const std::function<void(const RecordRow&)>& take) {
  EachWeek(scope.range, [&](DateTime first, DateTime last) {
    ReadRecords(plant, InScope(scope, first, last), scope.now, take);
  });
}

std::string Reason::Text() const {
  if (known) return name.empty() ? number : name;
  return number.empty() ? "No reason given" : "Unknown code " + number;
}

std::vector<DowntimeRow> ReadDowntimes(Plant& plant, const Scope& scope) {
  return ReadDowntimes(plant, InScope(scope, scope.range.first, scope.range.last), scope.now);
}

std::vector<RecordRow> ReadOpenRecords(Plant& plant, DateTime now) {
  std::vector<RecordRow> records;
  ReadRecords(plant, AreOpen(), now, [&](const RecordRow& record) { records.push_back(record); });
  return records;
}

std::vector<DowntimeRow> ReadOpenDowntimes(Plant& plant, DateTime now) {
  std::vector<DowntimeRow> rows = ReadDowntimes(plant, AreOpen(), now);
  std::erase_if(rows, [](const DowntimeRow& row) { return row.stop.has_value(); });
  return rows;
}

std::vector<DowntimeRow> MergeStops(std::vector<DowntimeRow> rows) {
  std::ranges::stable_sort(rows, {}, [](const DowntimeRow& row) {
    return std::tie(row.machine_id, row.by_operator, row.reason, row.start);
  });
  std::vector<DowntimeRow> stops;
  for (DowntimeRow& row : rows) {
    DowntimeRow* const last = stops.empty() ? nullptr : &stops.back();
    if (last != nullptr && last->machine_id == row.machine_id && last->by_operator == row.by_operator &&
        last->reason == row.reason && last->stop == row.start) {
      last->stop = row.stop;
      last->seconds += row.seconds;
      last->running += row.running;
    } else {
      stops.push_back(std::move(row));
    }
  }
  std::ranges::stable_sort(stops, {}, [](const DowntimeRow& s) { return std::tie(s.machine_id, s.start); });
  return stops;
}

std::vector<ScrapRow> ReadScrap(Plant& plant, const Scope& scope) {
  const auto [condition, parameters] = InScope(scope, scope.range.first, scope.range.last);
  const Rows rows = plant.db.ExecuteDirect(
      "select d.MACHINE_ID, s.START_TIME, s.QTY, c.SCRAP_CODE_NUMBER, c.SCRAP_CODE_NAME, "
      "s.SCRAP_CODE_NUMBER, d.START_TIME from T_SFC_MACHINE_DATA d "
      "join T_SFC_SCRAP_PER_MACHINE_DATA s on s.MACHINE_DATA_ID = d.MACHINE_DATA_ID "
      "left join T_SFC_SCRAP_CODE c on c.SCRAP_CODE_ID = s.SCRAP_CODE_ID" +
          condition + " order by d.MACHINE_ID, s.START_TIME, s.SCRAP_PER_MACHINE_DATA_ID",
      parameters);
  std::vector<ScrapRow> scrap;
  for (std::size_t i = 0; i < rows.count(); ++i) {
    scrap.push_back({rows.at(i, 0).ToInt32Or(-1), rows.at(i, 1).ToDateTimeOr(rows.at(i, 6).ToDateTime()),
                     rows.at(i, 2).ToInt32Or(0), ReasonOf(rows.at(i, 3), rows.at(i, 4), rows.at(i, 5))});
  }
  return scrap;
}

std::vector<MachineRow> ReadMachines(Plant& plant, std::optional<std::int32_t> machine) {
  const Rows rows = plant.Run(
      "select MACHINE_ID, MACHINE_NAME, STATUS_CODE, STATUS_DATE, MACHINE_DATA_ID from T_SFC_MACHINE "
      "order by MACHINE_ID");
  std::vector<MachineRow> machines;
  for (std::size_t i = 0; i < rows.count(); ++i) {
    const std::int32_t id = rows.at(i, 0).ToInt32();
    if (machine && *machine != id) continue;
    std::string name = rows.at(i, 1).ToTextOr("");
    machines.push_back({id, name.empty() ? Concat("machine ", id) : std::move(name),
                        rows.at(i, 2).ToInt32Or(-1),
                        rows.at(i, 3).IsNull() ? std::nullopt : std::optional(rows.at(i, 3).ToDateTime()),
                        rows.at(i, 4).ToInt32Or(-1)});
  }
  return machines;
}

std::string MachineName(const std::vector<MachineRow>& machines, std::int32_t id) {
  const auto found = std::ranges::find(machines, id, &MachineRow::id);
  return found == machines.end() ? Concat("machine ", id) : found->name;
}

Grouping::Grouping(By by, const Calendar& calendar, std::vector<MachineRow> machines)
    : by_(by), calendar_(calendar), machines_(std::move(machines)) {}

void Grouping::Add(const RecordRow& record) {
  const auto padded = [](std::int64_t number) {
    const std::string digits = std::to_string(number);
    return std::string(20 - digits.size(), '0') + digits;
  };
  Group group;
  std::string sort;
  const auto take_shift = [&](std::string& name) {
    const bool in_shift = record.shift_id && *record.shift_id > 0;
    name = in_shift ? calendar_.NameOf(*record.shift_id) : "";
    sort += in_shift ? padded(*record.shift_id) : "~";
  };
  const auto take_machine = [&] {
    group.machine_id = record.machine_id;
    group.name = MachineName(machines_, record.machine_id);
    sort = padded(record.machine_id);
  };
  const auto take_name = [&](const std::string& name) {
    group.name = name;
    sort = name.empty() ? "1" : "0" + name;
  };
  switch (by_) {
    case By::kMachineAndShift: take_machine(), take_shift(group.shift); break;
    case By::kMachine: take_machine(); break;
    case By::kShift: take_shift(group.name); break;
    case By::kOperator: take_name(record.user); break;
    case By::kJob: take_name(record.job); break;
    case By::kPart: take_name(record.part); break;
    case By::kOperation: take_name(record.operation); break;
    case By::kDay: take_name(IsoDay(record.day)); break;
    case By::kWeek: take_name(IsoWeek(record.day)); break;
  }
  groups_.try_emplace(sort, std::move(group)).first->second.sums += record.sums;
}

std::vector<Group> Grouping::Groups() const {
  std::vector<Group> groups;
  for (const auto& [sort, group] : groups_) groups.push_back(group);
  return groups;
}

std::vector<ReasonSum> SumByReason(const std::vector<DowntimeRow>& stops) {
  return SumRows(stops, [](ReasonSum& sum, const DowntimeRow& stop) {
    sum.amount += stop.seconds;
    sum.running += stop.running;
    sum.carried |= stop.carried;
  });
}

std::vector<ReasonSum> SumByReason(const std::vector<ScrapRow>& rows) {
  return SumRows(rows, [](ReasonSum& sum, const ScrapRow& row) { sum.amount += row.quantity; });
}

}  // namespace kx::tool
