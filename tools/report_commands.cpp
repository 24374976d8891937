#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>

#include "database/text.h"
#include "plant/platform.h"
#include "tools/command_line.h"
#include "views/report.h"
#include "views/server.h"

namespace kx::tool {
namespace {

struct Options {
  std::optional<DateTime> day, from, to, now;
  std::string range, shift, by, html, name;
  std::optional<std::int32_t> machine;
  bool week = false, csv = false, json = false;

  Format format() const { return json ? Format::kJson : csv ? Format::kCsv : Format::kText; }
};

// The file is there whole or not at all.
void WriteFile(const std::string& name, const std::string& text) {
  const std::filesystem::path path = ToPath(name), part = ToPath(name + ".part");
  std::ofstream file(part, std::ios::binary);
  file << text;
  file.close();
  std::error_code error;
  if (file) std::filesystem::rename(part, path, error);
  if (!file || error) {
    std::filesystem::remove(part, error);
    throw ToolError(Concat("the page could not be written to ", name, "; does its folder exist?"));
  }
}

Range ChosenRange(const Options& options, const Calendar& calendar, DateTime now) {
  std::optional<std::int32_t> shift;
  if (!options.shift.empty()) shift = calendar.FindShift(options.shift);
  if (options.from || options.to) {
    if (!options.from) throw ToolError("a range needs --from beside --to");
    const DateTime to = options.to.value_or(std::max(*options.from, calendar.DayOf(now)));
    return MakeRange(calendar, *options.from, to, shift);
  }
  const DateTime day = options.day.value_or(calendar.DayOf(now));
  const std::string name = !options.range.empty() ? options.range : options.week ? "week" : "";
  if (name.empty()) return MakeRange(calendar, day, day, shift);
  // A week is that of the day which is given.
  const auto range = NamedRange(calendar, name, options.day.value_or(now));
  if (!range) throw ToolError(Concat("there is no range \"", name, "\"; there are ", RangeNames()));
  return shift ? MakeRange(calendar, range->first, range->last, shift) : *range;
}

// Opens the plant and gives what the options choose.
template <class Print>
int WithReport(const PlantOptions& plant_options, const Options& options, Print print) {
  Plant plant(plant_options, OpenMode::kReadOnly);
  const Calendar calendar(plant);
  const DateTime now = options.now.value_or(DatabaseTime(plant, plant_options.dialect));
  Scope scope{ChosenRange(options, calendar, now), {}, now};
  if (options.machine) scope.machine = plant.FindId("T_SFC_MACHINE", *options.machine);
  const std::string name = options.name.empty() ? PlantName(plant, plant_options.plant) : options.name;
  print(PlantReport{plant, calendar, name, scope});
  return 0;
}

void AddRangeOptions(CLI::App& command, Options& options, bool with_shift) {
  AddTimeOption(command, "--day", options.day, "Booked on this day; today when no range is given");
  command.add_flag("--week", options.week, "The week of that day, from Monday to Sunday");
  AddTimeOption(command, "--from", options.from, "From this day on, to --to or today");
  AddTimeOption(command, "--to", options.to, "To this day, which is included");
  command.add_option("--range", options.range, RangeNames())->type_name("NAME");
  if (with_shift) command.add_option("--shift", options.shift, "This shift alone, by its name or number");
  command.add_option("--machine", options.machine, "Of this machine");
  AddTimeOption(command, "--now", options.now,
                "Until when what is open counts; the plant's clock when not given");
  AddCsvFlag(command, options.csv)
      ->excludes(command.add_flag("--json", options.json, "JSON, with full precision"));
}

}  // namespace

void AddReportCommands(CommandLine& line) {
  const auto options = std::make_shared<Options>();
  CLI::App* const report =
      line.Command("report", "Sums of the records: times, cycles, parts", [&line, options] {
        return WithReport(line.plant, *options, [&](const PlantReport& made) {
          if (options->html.empty()) return PrintReport(made, options->by, options->format(), std::cout);
          WriteFile(options->html, ReportPage(made));
          std::cout << "The page is in " << options->html << ".\n";
        });
      });
  AddRangeOptions(*report, *options, true);
  CLI::Option* const by =
      report->add_option("--by", options->by, Concat("What to sum by: ", ReportGroupings()));
  for (const std::string& name : CLI::detail::split(ReportGroupings(), ','))
    line.choices[by].push_back(CLI::detail::trim_copy(name));
  report->add_option("--html", options->html, "Writes a page with pictures and tables to this file")
      ->type_name("FILE")
      ->excludes("--csv", "--json", "--by");
  report->add_option("--name", options->name,
                     "The plant's name on the page, when the plant does not hold it");

  const auto add_listing = [&](const char* name, const char* description, auto print, bool with_shift) {
    CLI::App* const listing = line.Command(name, description, [&line, options, print] {
      return WithReport(line.plant, *options,
                        [&](const PlantReport& made) { print(made, options->format(), std::cout); });
    });
    AddRangeOptions(*listing, *options, with_shift);
  };
  add_listing("events", "Lists the events that were worked in, by their start", PrintEvents, false);
  add_listing("downtimes", "Lists the downtimes of the records", PrintDowntimes, true);
  add_listing("scrap", "Lists the scrapped parts of the records", PrintScrap, true);

  const auto serve = std::make_shared<ServeOptions>();
  CLI::App* const server = line.Command("serve", "Shows the board and the reports to browsers",
                                        [&line, serve] { return Serve(line.plant, *serve); });
  server->add_option("--listen", serve->listen, "Where to listen; port 0 takes a free one")
      ->type_name("ADDRESS:PORT")
      ->capture_default_str();
  server->add_option("--department", serve->department,
                     "The board shows its machines alone; more than 40 do not fit one");
  server->add_option("--name", serve->name, "The plant's name, when the plant does not hold it");
  AddTimeOption(*server, "--now", serve->now, "Shows the plant as of this time for ever, for pictures");
}

}  // namespace kx::tool
