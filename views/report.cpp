#include "views/report.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <ostream>

#include "database/text.h"
#include "plant/events.h"
#include "plant/platform.h"
#include "plant/schema_version.h"
#include "views/timeline.h"
#include "views/words.h"

namespace kx::tool {
namespace {

struct Naming {
  std::string_view name;
  By by;
  std::string_view none;  // what a text says for the group without a name
};
constexpr std::array<Naming, 9> kNamings = {{{"machine-shift", By::kMachineAndShift, "no shift"},
                                             {"machine", By::kMachine, ""},
                                             {"shift", By::kShift, "no shift"},
                                             {"operator", By::kOperator, "nobody logged on"},
                                             {"job", By::kJob, "no job"},
                                             {"part", By::kPart, "no part"},
                                             {"operation", By::kOperation, "no operation"},
                                             {"day", By::kDay, ""},
                                             {"week", By::kWeek, ""}}};

Value OneDecimal(std::optional<double> number) {
  return number ? Value(std::round(*number * 10) / 10) : Value();
}

Value TextOr(const std::string& text, std::string_view none, bool words) {
  return !text.empty() ? Value(text) : words ? Value(none) : Value();
}

void AddSums(std::vector<Value>& row, const Sums& sums, bool words) {
  row.insert(row.end(), {sums.good, sums.scrapped});
  const auto percent = [&](std::optional<double> number) {
    row.emplace_back(!words ? OneDecimal(number) : number ? Value(Fixed(*number, 1)) : Value("–"));
  };
  percent(sums.Quality());
  for (const std::int64_t seconds :
       {sums.cycle, sums.setup, sums.teardown, sums.downtime, sums.idle, sums.NotBooked(), sums.covered})
    row.emplace_back(words ? Value(HourMinuteText(seconds)) : Value(seconds));
  percent(sums.CycleShare());
  row.insert(row.end(), {sums.finished, sums.unfinished});
  row.emplace_back(words ? Value(sums.running ? "running" : "") : Value(sums.running ? 1 : 0));
}

std::vector<std::string> SumTitles(std::vector<std::string> titles, bool words) {
  for (const char* title : {"good", "scrapped", "quality_percent"}) titles.emplace_back(title);
  for (const char* title : {"cycle", "setup", "teardown", "downtime", "idle", "not_booked", "covered"})
    titles.push_back(Concat(title, words ? "" : "_s"));
  for (const char* title : {"cycle_percent", "cycles", "cut_short"}) titles.emplace_back(title);
  titles.emplace_back(words ? "" : "running");
  return titles;
}

std::string AboutText(const PlantReport& report) {
  const Range& range = report.scope.range;
  std::string text = Concat(report.plant_name, ": ", range.Title());
  if (const std::string times = range.Times(); !times.empty()) Append(text, ", ", times);
  return text + ". Times in h:min, plant time.";
}

std::string AboutJson(const PlantReport& report, std::string_view by) {
  const Range& range = report.scope.range;
  return Concat("\"plant\": ", JsonText(report.plant_name), ", \"first_day\": \"", IsoDay(range.first),
                "\", \"last_day\": \"", IsoDay(range.last),
                "\", \"shift\": ", range.shift_id ? JsonText(range.shift_name) : "null", ", \"as_of\": \"",
                report.scope.now.ToText(), "\", \"by\": ", JsonText(by));
}

std::string MachineNames(const std::vector<MachineRow>& machines, const std::vector<std::int32_t>& ids) {
  std::string names;
  for (const std::int32_t id : ids) names += (names.empty() ? "" : ", ") + MachineName(machines, id);
  return names;
}

void PrintRows(const PlantReport& report, std::string_view by, const Table& table, const std::string& total,
               Format format, std::ostream& output) {
  if (format == Format::kText) output << AboutText(report) << '\n';
  if (format == Format::kJson) output << '{' << AboutJson(report, by) << ",\n\"rows\": ";
  table.Print(output, format);
  if (format == Format::kJson) output << (total.empty() ? "" : ",\n\"total\": " + total) << "}\n";
}

void PrintReasons(const PlantReport& report, std::string_view by, Format format, std::ostream& output) {
  const bool words = format == Format::kText;
  const bool scrap = by == "scrap";
  const auto machines = ReadMachines(report.plant);
  const auto sums = scrap ? SumByReason(ReadScrap(report.plant, report.scope))
                          : SumByReason(MergeStops(ReadDowntimes(report.plant, report.scope)));
  Table table(scrap
                  ? std::vector<std::string>{"code", "reason", "known", "parts", "reports", "machines"}
                  : std::vector<std::string>{"code", "reason", "known", "kind", words ? "booked" : "booked_s",
                                             words ? "running" : "running_s", "stops", "machines"});
  const auto time = [&](std::int64_t seconds) {
    return words ? Value(HourMinuteText(seconds)) : Value(seconds);
  };
  for (const ReasonSum& sum : sums) {
    std::vector<Value> row = {
        TextOr(sum.reason.number, "", words), sum.reason.Text(),
        words ? Value(sum.reason.known ? "yes" : "no") : Value(sum.reason.known ? 1 : 0)};
    if (scrap) {
      row.emplace_back(sum.amount);
    } else {
      row.insert(row.end(), {sum.by_operator ? "operator" : "machine", time(sum.amount), time(sum.running)});
    }
    row.insert(row.end(), {sum.stops, MachineNames(machines, sum.machines)});
    table.Add(std::move(row));
  }
  PrintRows(report, by, table, "", format, output);
}

// What an event was, which a row holds from its start to its end.
std::string EventNoun(const EventRow& event) {
  const std::string name = EventName(event.type_code, 0, event.command_id);
  return name.substr(0, name.rfind(" start"));
}

}  // namespace

std::string ReportGroupings() {
  std::string names;
  for (const Naming& naming : kNamings) Append(names, naming.name, ", ");
  return names + "reason, scrap";
}

void PrintReport(const PlantReport& report, std::string_view by, Format format, std::ostream& output) {
  if (by.empty()) by = kNamings.front().name;
  if (by == "reason" || by == "scrap") return PrintReasons(report, by, format, output);
  const auto naming = std::ranges::find(kNamings, by, &Naming::name);
  if (naming == kNamings.end())
    throw ToolError(Concat("a report is not made by \"", by, "\"; there are ", ReportGroupings()));

  Grouping groups(naming->by, report.calendar, ReadMachines(report.plant));
  Sums total;
  ForEachRecord(report.plant, report.scope, [&](const RecordRow& record) {
    groups.Add(record);
    total += record.sums;
  });
  const bool words = format == Format::kText;
  const bool by_machine = naming->by == By::kMachine || naming->by == By::kMachineAndShift;
  std::vector<std::string> titles = {by_machine ? "machine" : std::string(by)};
  if (by_machine) titles.emplace_back("name");
  if (naming->by == By::kMachineAndShift) titles.emplace_back("shift");
  const std::size_t keys = titles.size();
  Table table(SumTitles(titles, words), keys);
  for (const Group& group : groups.Groups()) {
    std::vector<Value> row;
    if (by_machine) row.emplace_back(group.machine_id);
    row.push_back(TextOr(group.name, naming->none, words));
    if (naming->by == By::kMachineAndShift) row.push_back(TextOr(group.shift, naming->none, words));
    AddSums(row, group.sums, words);
    table.Add(std::move(row));
  }
  std::vector<Value> last(keys, Value());
  if (words) last[0] = "all";
  AddSums(last, total, words);
  if (words) table.Add(last);
  Table whole(SumTitles({}, words));
  whole.Add({last.begin() + static_cast<std::ptrdiff_t>(keys), last.end()});
  PrintRows(report, by, table, whole.JsonRow(0), format, output);
}

void PrintDowntimes(const PlantReport& report, Format format, std::ostream& output) {
  const auto machines = ReadMachines(report.plant);
  Table table(
      {"record", "machine", "name", "start", "stop", "seconds", "running_s", "kind", "code", "reason"});
  for (const DowntimeRow& row : ReadDowntimes(report.plant, report.scope)) {
    table.Add({row.record_id, row.machine_id, MachineName(machines, row.machine_id), row.start,
               row.stop ? Value(*row.stop) : Value(), row.seconds, row.running,
               row.by_operator ? "operator" : "machine", TextOr(row.reason.number, "", false),
               row.reason.Text()});
  }
  table.Print(output, format);
  if (format == Format::kJson) output << '\n';
}

void PrintScrap(const PlantReport& report, Format format, std::ostream& output) {
  const auto machines = ReadMachines(report.plant);
  Table table({"machine", "name", "time", "parts", "code", "reason"});
  for (const ScrapRow& row : ReadScrap(report.plant, report.scope)) {
    table.Add({row.machine_id, MachineName(machines, row.machine_id), row.time, row.quantity,
               TextOr(row.reason.number, "", false), row.reason.Text()});
  }
  table.Print(output, format);
  if (format == Format::kJson) output << '\n';
}

void PrintEvents(const PlantReport& report, Format format, std::ostream& output) {
  const Scope& scope = report.scope;
  const auto machines = ReadMachines(report.plant);
  Table table({"event", "machine", "name", "start", "stop", "what", "param"});
  for (const EventRow& event :
       ReadEvents(report.plant, scope.machine, scope.range.from, scope.range.to, false, {})) {
    table.Add({event.id, event.machine_id, MachineName(machines, event.machine_id), event.start,
               event.stop ? Value(*event.stop) : Value(), EventNoun(event), event.param});
  }
  table.Print(output, format);
  if (format == Format::kJson) output << '\n';
}

std::string PlantName(Plant& plant, std::string_view source) {
  const std::string own =
      source.find('=') == std::string_view::npos ? ToText(ToPath(source).stem()) : "Plant";
  return ReadSetting(plant, "plant_name").value_or(own);
}

}  // namespace kx::tool
