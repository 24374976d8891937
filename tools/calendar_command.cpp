#include <algorithm>
#include <array>
#include <ctime>
#include <iostream>
#include <map>
#include <memory>

#include "database/text.h"
#include "plant/client.h"
#include "plant/plant_description.h"
#include "tools/command_line.h"
#include "views/table.h"

namespace kx::tool {
namespace {

struct Options {
  std::optional<std::int32_t> machine;
  std::optional<DateTime> week;
};

std::string DayAndTime(DateTime moment) {
  constexpr std::array kNames = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
  return Concat(kNames[moment.Weekday() - 1], " ", moment.ToText().substr(0, 16));
}

// Prints a machine's week from Monday on as the component answers for it, from the end of each shift or gap
// to the next.
void PrintWeek(kxdata7::Client& component, std::int32_t machine, DateTime monday,
               const std::map<std::int32_t, std::string>& shifts) {
  Table table({"from", "until", "shift", "chart day"});
  for (DateTime moment = monday; moment < monday.AddDays(7);) {
    kxdata7::Client::ShiftSpan span = component.ShiftAt(machine, moment.ToText());
    const DateTime from = Value(span.from).ToDateTime();
    const DateTime until = Value(span.until).ToDateTime();
    if (until <= moment) throw ToolError("the calendar does not advance at " + moment.ToText());
    // What runs since the week before is booked as it was at its beginning.
    if (moment == monday && from < monday) {
      const auto begin = component.ShiftAt(machine, span.from);
      if (begin.shift_id == span.shift_id) span.chart_date = begin.chart_date;
    }
    const auto shift = shifts.find(span.shift_id);
    table.Add({DayAndTime(moment == monday ? from : moment), DayAndTime(until),
               span.shift_id == -1     ? "-"
               : shift == shifts.end() ? std::to_string(span.shift_id)
                                       : shift->second,
               DayAndTime(Value(span.chart_date).ToDateTime()).substr(0, 14)});
    moment = until;
  }
  table.Print(std::cout, false);
}

int Calendar(const PlantOptions& options, const Options& calendar) {
  Plant plant(options, OpenMode::kReadOnly);
  const PlantDescription description = DescribePlant(plant);
  const DateTime day = calendar.week.value_or(PlantTime(std::time(nullptr))).Date();
  const DateTime monday = day.AddDays(-static_cast<std::int64_t>((day.Weekday() + 5) % 7));
  const std::int32_t only = calendar.machine ? plant.FindId("T_SFC_MACHINE", *calendar.machine) : 0;
  // Machines that work the same shifts have one calendar.
  std::map<std::vector<std::string>, std::vector<const PlantMachine*>> groups;
  for (const PlantMachine& machine : description.machines) {
    if (calendar.machine && machine.id != only) continue;
    groups[machine.shifts.value_or(std::vector<std::string>())].push_back(&machine);
  }
  std::map<std::int32_t, std::string> shifts;
  for (const Shift& shift : description.shifts) shifts[shift.id] = shift.name;
  kxdata7::Client component = ConnectComponent(options);
  for (const auto& [names, machines] : groups) {
    std::string title;
    for (const PlantMachine* machine : machines) Append(title, title.empty() ? "" : ", ", machine->name);
    std::cout << title << '\n';
    PrintWeek(component, machines.front()->id, monday, shifts);
  }
  if (groups.empty()) std::cout << "There is no machine.\n";
  return 0;
}

}  // namespace

void AddCalendarCommand(CommandLine& line) {
  const auto options = std::make_shared<Options>();
  CLI::App* const command =
      line.Command("calendar", "Shows which shift works when, as the component decides it",
                   [&line, options] { return Calendar(line.plant, *options); });
  command->add_option("--machine", options->machine, "Of this machine; of all when not given");
  AddTimeOption(*command, "--week", options->week, "A day of the week; this week when not given");
}

}  // namespace kx::tool
