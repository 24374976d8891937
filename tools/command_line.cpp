#include "tools/command_line.h"

#include <array>
#include <iostream>

#include "plant/plant_file.h"
#include "plant/queue.h"

namespace kx::tool {
namespace {

constexpr std::array kDialects = {"oracle", "access", "sqlserver"};

const CLI::Validator kDialect(
    [](std::string& text) {
      for (std::size_t number = 0; number < kDialects.size(); ++number) {
        if (text == kDialects[number]) text = std::to_string(number);
        if (text == std::to_string(number)) return std::string();
      }
      return text + " is no dialect; there are oracle, access and sqlserver";
    },
    "");

}  // namespace

CommandLine::CommandLine() {
  app.require_subcommand(1);
  app.set_version_flag("--version", KXDATA7_VERSION);
  app.failure_message([](const CLI::App*, const CLI::Error& error) {
    return std::string("kxdata7: ") + error.what() + "\n";
  });
  app.add_option("--library", plant.library,
                 "The component, when it is neither beside the tool nor installed with it nor registered")
      ->type_name("FILE")
      ->envname("KXDATA7_LIBRARY");
  CLI::Option* const dialect =
      app.add_option("--dialect", plant.dialect,
                     "The SQL that the component writes: oracle (0), access (1) or sqlserver (2).\n"
                     "Oracle when not given, as in the component itself; on SQLite all three do the same");
  dialect->type_name("DIALECT")->envname("KXDATA7_DIALECT")->transform(kDialect);
  choices[dialect] = {kDialects.begin(), kDialects.end()};
  app.add_option("--plant-file", plant.file,
                 "A file with the plant, for its owner alone to read: a line KXDATA7_PLANT=... The variable\n"
                 "KXDATA7_PLANT names the plant as well. PLANT may be left out then")
      ->type_name("FILE");
  app.add_flag("--dnc", plant.by_dnc,
               "Departments, locations, groups, machines and commands are given by their numbers in the\n"
               "DNC system, not by internal ids");
  AddPlantCommands(*this);
  AddPlantFileCommands(*this);
  AddCalendarCommand(*this);
  AddInputCommands(*this);
  AddSourceCommands(*this);
  AddCollectCommand(*this);
  AddProcessCommands(*this);
  AddServiceCommands(*this);
  AddQueueCommands(*this);
  AddViewCommands(*this);
  AddLifeCommands(*this);
  AddReportCommands(*this);
  app.footer(
      "The exit status is 0 when it is done, 1 when it is not, or not all of it, and the standard error says "
      "why,\n"
      "and 2 when the command line is wrong.");
}

CLI::App* CommandLine::Command(CLI::App& parent, const char* name, const char* description,
                               std::function<int()> action) {
  CLI::App* const command = parent.add_subcommand(name, description);
  TakePlant(*command, std::move(action));
  return command;
}

void CommandLine::TakePlant(CLI::App& command, std::function<int()> action) {
  command
      .add_option("PLANT", plant.plant, "The plant: an SQLite file, or a connection string, which has a =")
      ->required();
  command.fallthrough();
  command.callback([this, &command, action = std::move(action)] {
    if (command.get_subcommands().empty()) run = action;
  });
}

CLI::Option* AddCsvFlag(CLI::App& listing, bool& csv) {
  return listing.add_flag("--csv", csv, "Comma-separated, with full precision");
}

CLI::Option* AddTimeOption(CLI::App& command, const std::string& name, std::optional<DateTime>& time,
                           const std::string& description) {
  return command
      .add_option_function<std::string>(
          name,
          [&time, name](const std::string& text) {
            time = DateTime::Parse(text);
            if (!time) throw CLI::ValidationError(name, "\"" + text + "\" is no date or date and time");
          },
          description)
      ->type_name("TIME");
}

CLI::Option* AddStartOption(CLI::App& command, std::optional<DateTime>& start) {
  return AddTimeOption(command, "--start", start,
                       "When the first record of a new machine starts; midnight today when not given");
}

DateTime StartOr(const std::optional<DateTime>& start) {
  const DateTime now = PlantTime(std::time(nullptr));
  if (start && !IsPossibleStart(*start, now)) throw ToolError("a machine must not start in the future");
  return start.value_or(now.Date());
}

void Warn(const std::string& text) {
  if (!text.empty()) std::cerr << "kxdata7: " << text << std::endl;
}

void MentionAside(Plant& plant) {
  const std::int32_t count = CountAside(plant);
  if (count == 0) return;
  std::cout << (count == 1 ? "1 event is" : std::to_string(count) + " events are")
            << " set aside; \"kxdata7 queue --aside\" lists them.\n";
}

}  // namespace kx::tool
