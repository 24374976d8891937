#include "views/board.h"

#include <algorithm>
#include <set>

#include "database/text.h"
#include "kxdata7/events.h"
#include "plant/schema_version.h"
#include "views/table.h"
#include "views/words.h"

namespace kx::tool {
namespace {

namespace command_type = kxdata7::command_type;

// Since when downtimes run, by machine and command type: rows of records are cut at shifts and logons.
std::map<std::pair<std::int32_t, std::int32_t>, DateTime> RunningDowntimes(Plant& plant) {
  const Rows rows = plant.db.ExecuteDirect(
      Concat("select r.MACHINE_ID, c.COMMAND_TYPE_CODE, e.START_TIME from T_SFC_COMMAND c "
             "join T_SFC_MACHINE_EVENT r on r.COMMAND_ID = c.COMMAND_ID "
             "join T_SFC_EVENT e on e.EVENT_ID = r.EVENT_ID where c.COMMAND_TYPE_CODE in (",
             command_type::kMachineDowntime, ", ", command_type::kUserDowntime, ")"));
  std::map<std::pair<std::int32_t, std::int32_t>, DateTime> running;
  for (std::size_t i = 0; i < rows.count(); ++i) {
    if (!rows.at(i, 2).IsNull())
      running[{rows.at(i, 0).ToInt32Or(-1), rows.at(i, 1).ToInt32()}] = rows.at(i, 2).ToDateTime();
  }
  return running;
}

State StateOfStatus(std::int32_t status_code) {
  constexpr std::array kByCode = {State::kIdle, State::kSetup, State::kCycle, State::kDown, State::kTeardown};
  const auto index = static_cast<std::size_t>(status_code);
  return status_code >= 0 && index < kByCode.size() ? kByCode[index] : State::kNoData;
}

QueueState ReadQueueState(Plant& plant, const std::function<std::string(std::int32_t)>& tried) {
  QueueState queue;
  const Rows rows = plant.Run("select count(*), min(TIME_STAMP) from T_SFC_MDC_LOG");
  queue.waiting = rows.at(0, 0).ToInt32();
  if (!rows.at(0, 1).IsNull()) queue.oldest = rows.at(0, 1).ToDateTime();
  queue.head = ReadQueuedEvent(plant);
  if (!queue.head) return queue;
  queue.error = tried(queue.head->row);
  // What the processor met last: row, time and error, with tabs between.
  const std::string met = ReadSetting(plant, "processor_error").value_or("");
  const std::size_t first = met.find('\t'), second = met.find('\t', first + 1);
  if (second != std::string::npos && met.substr(0, first) == std::to_string(queue.head->row))
    queue.error = met.substr(second + 1);
  if (!queue.error.empty()) queue.missing = MissingFor(plant, *queue.head);
  return queue;
}

// The latest time that the plant's rows know of.
std::optional<DateTime> LastWorkedIn(
    Plant& plant, const std::vector<MachineRow>& machines, const std::vector<RecordRow>& open,
    const std::map<std::pair<std::int32_t, std::int32_t>, DateTime>& downtimes) {
  std::optional<DateTime> last;
  const auto take = [&](const std::optional<DateTime>& time) {
    if (time && (!last || *time > *last)) last = time;
  };
  for (const MachineRow& machine : machines) take(machine.status_date);
  for (const RecordRow& record : open) take(record.start);
  for (const auto& [machine, start] : downtimes) take(start);
  const Rows event = plant.Run(
      "select START_TIME, STOP_TIME from T_SFC_EVENT where EVENT_ID = (select max(EVENT_ID) from "
      "T_SFC_EVENT)");
  for (std::size_t column = 0; event.count() != 0 && column < 2; ++column) {
    if (!event.at(0, column).IsNull()) take(event.at(0, column).ToDateTime());
  }
  return last;
}

// The machines that, by their current records, are of a department.
std::set<std::int32_t> MachinesOf(Plant& plant, std::int32_t dept_id) {
  const Rows rows = plant.Run(
      "select m.MACHINE_ID from T_SFC_MACHINE m join T_SFC_MACHINE_DATA d on d.MACHINE_DATA_ID = "
      "m.MACHINE_DATA_ID where d.DEPT_ID = ?",
      {dept_id});
  std::set<std::int32_t> machines;
  for (std::size_t i = 0; i < rows.count(); ++i) machines.insert(rows.at(i, 0).ToInt32());
  return machines;
}

std::string MetricLabel(std::string_view text) {
  std::string label;
  for (const char c : text)
    label += c == '\\' ? "\\\\" : c == '"' ? "\\\"" : c == '\n' ? "\\n" : std::string(1, c);
  return label;
}

Value TextOrNull(const std::string& text) { return text.empty() ? Value() : Value(text); }

}  // namespace

Board ReadBoard(Plant& plant, const BoardScope& shown, DateTime now,
                const std::function<std::string(std::int32_t)>& tried) {
  const Calendar calendar(plant);
  Board board{
      shown.plant_name, now, *NamedRange(calendar, "shift", now), {}, ReadQueueState(plant, tried), {}};
  const std::vector<MachineRow> machines = ReadMachines(plant);
  const std::vector<RecordRow> open = ReadOpenRecords(plant, now);
  const auto running = RunningDowntimes(plant);
  board.worked_in = LastWorkedIn(plant, machines, open, running);

  // While the queue stands, nothing is known of what came after the last event worked in.
  const bool stands = !board.queue.error.empty();
  const DateTime known = stands ? std::min(now, board.worked_in.value_or(now)) : now;
  const Scope scope{board.range, {}, known};
  std::vector<RecordRow> records;
  std::map<std::int32_t, Sums> sums;
  ForEachRecord(plant, scope, [&](const RecordRow& record) {
    records.push_back(record);
    sums[record.machine_id] += record.sums;
  });
  auto timelines = ReadTimelines(plant, scope, machines, records, MergeStops(ReadDowntimes(plant, scope)),
                                 ReadScrap(plant, scope));
  const std::vector<DowntimeRow> downtimes = ReadOpenDowntimes(plant, now);

  std::set<std::int32_t> chosen;
  if (shown.dept_id) chosen = MachinesOf(plant, *shown.dept_id);
  for (const MachineRow& machine : machines) {
    if (shown.dept_id && !chosen.contains(machine.id)) continue;
    Tile& tile = board.tiles.emplace_back();
    tile.id = machine.id;
    tile.name = machine.name;
    tile.timeline = std::move(timelines[machine.id]);
    if (stands && known < std::min(now, board.range.to))
      tile.timeline.segments.push_back(
          {State::kNoData, std::max(known, board.range.from), std::min(now, board.range.to)});
    if (const auto found = sums.find(machine.id); found != sums.end()) tile.shift = found->second;
    tile.since = machine.status_date;
    const auto record = std::ranges::find(open, machine.record_id, &RecordRow::id);
    if (record == open.end()) continue;
    tile.job = record->job;
    tile.part = record->part;
    tile.user = record->user;
    tile.state = StateOfStatus(machine.status_code);
    // An operator's downtime leaves the machine's status as it was.
    const bool machine_down = tile.state == State::kDown;
    for (const DowntimeRow& row : downtimes) {
      if (row.record_id != record->id || row.by_operator == machine_down) continue;
      tile.state = State::kDown;
      tile.by_operator = row.by_operator;
      tile.reason = row.reason;
      const auto began = running.find(
          {machine.id, row.by_operator ? command_type::kUserDowntime : command_type::kMachineDowntime});
      tile.since = began != running.end() ? began->second : row.start;
    }
  }
  return board;
}

std::string BoardJson(const Board& board) {
  const QueueState& queue = board.queue;
  std::string json =
      Concat("{\"plant\": ", JsonText(board.plant_name), ", \"now\": \"", board.now.ToText(),
             "\", \"shift\": ", board.range.shift_id ? JsonText(board.range.shift_name) : "null",
             ", \"from\": \"", board.range.from.ToText(), "\", \"to\": \"", board.range.to.ToText(),
             "\",\n\"queue\": {\"waiting\": ", queue.waiting,
             ", \"oldest\": ", queue.oldest ? JsonText(queue.oldest->ToText()) : "null",
             ", \"head\": ", queue.head ? JsonText(queue.head->Description()) : "null",
             ", \"error\": ", queue.error.empty() ? "null" : JsonText(queue.error),
             ", \"missing\": ", queue.missing.empty() ? "null" : JsonText(queue.missing),
             ", \"worked_in\": ", board.worked_in ? JsonText(board.worked_in->ToText()) : "null",
             "},\n\"machines\": [");
  Table table({"machine", "name", "state", "by_operator", "since", "reason", "job", "part", "operator",
               "good", "scrapped"});
  for (const Tile& tile : board.tiles) {
    const bool down = tile.state == State::kDown;
    table.Add({tile.id, tile.name, StateClass(tile.state), down ? Value(tile.by_operator ? 1 : 0) : Value(),
               tile.since ? Value(*tile.since) : Value(), down ? Value(tile.reason.Text()) : Value(),
               TextOrNull(tile.job), TextOrNull(tile.part), TextOrNull(tile.user),
               tile.shift ? Value(tile.shift->good) : Value(),
               tile.shift ? Value(tile.shift->scrapped) : Value()});
  }
  for (std::size_t i = 0; i < board.tiles.size(); ++i)
    Append(json, i == 0 ? "\n  " : ",\n  ", table.JsonRow(i));
  return json + "\n]}\n";
}

std::string BoardMetrics(const Board& board) {
  std::string text;
  const auto metric = [&](std::string_view name, std::string_view help) {
    Append(text, "# HELP kxdata7_", name, " ", help, "\n# TYPE kxdata7_", name, " gauge\n");
  };
  const auto value = [&](std::string_view name, std::int64_t number) {
    Append(text, "kxdata7_", name, " ", number, "\n");
  };
  metric("queue_events", "Events that wait.");
  value("queue_events", board.queue.waiting);
  metric("queue_oldest_seconds", "How long the oldest of them has waited.");
  value("queue_oldest_seconds",
        board.queue.oldest ? std::max<std::int64_t>(0, SecondsBetween(*board.queue.oldest, board.now)) : 0);
  metric("queue_stands", "1 when the first event cannot be worked in.");
  value("queue_stands", board.queue.error.empty() ? 0 : 1);
  if (board.worked_in) {
    metric("worked_in_age_seconds", "The time since the last event that was worked in.");
    value("worked_in_age_seconds", std::max<std::int64_t>(0, SecondsBetween(*board.worked_in, board.now)));
  }
  const auto each = [&](std::string_view name, const auto& number) {
    for (const Tile& tile : board.tiles)
      Append(text, "kxdata7_", name, "{machine=\"", tile.id, "\",name=\"", MetricLabel(tile.name), "\"} ",
             number(tile), "\n");
  };
  metric("machine_state", "1 for the state that a machine is in.");
  for (const Tile& tile : board.tiles) {
    for (const State state : kStates)
      Append(text, "kxdata7_machine_state{machine=\"", tile.id, "\",name=\"", MetricLabel(tile.name),
             "\",state=\"", StateClass(state), "\"} ", state == tile.state ? 1 : 0, "\n");
  }
  metric("good_parts", "Good parts of this shift.");
  each("good_parts", [](const Tile& tile) { return tile.shift ? tile.shift->good : 0; });
  metric("scrapped_parts", "Scrapped parts of this shift.");
  each("scrapped_parts", [](const Tile& tile) { return tile.shift ? tile.shift->scrapped : 0; });
  metric("cycle_seconds", "Time in cycle booked in this shift.");
  each("cycle_seconds", [](const Tile& tile) { return tile.shift ? tile.shift->cycle : 0; });
  metric("downtime_seconds", "Downtime booked in this shift.");
  each("downtime_seconds", [](const Tile& tile) { return tile.shift ? tile.shift->downtime : 0; });
  return text;
}

}  // namespace kx::tool
