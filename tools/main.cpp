#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <ctime>
#include <exception>
#include <functional>
#include <iostream>

#include "inputs/recorded_input.h"
#include "plant/events.h"
#include "plant/platform.h"
#include "tools/commands.h"

namespace kx::tool {
namespace {

DateTime Today() { return PlantTime(std::time(nullptr)).Date(); }

const CLI::Validator kDateTime(
    [](std::string& text) {
      return DateTime::Parse(text) ? std::string() : "\"" + text + "\" is no date or date and time";
    },
    "");

const CLI::Validator kDialect(
    [](std::string& text) {
      constexpr std::array kNames = {"oracle", "access", "sqlserver"};
      for (std::size_t number = 0; number < kNames.size(); ++number) {
        if (text == kNames[number]) text = std::to_string(number);
        if (text == std::to_string(number)) return std::string();
      }
      return text + " is no dialect; there are oracle, access and sqlserver";
    },
    "");

// The command line: options are stored here, and `run` is what the chosen command does.
struct CommandLine {
  CLI::App app{"Machine data collection: events in, records out.", "kxdata7"};
  PlantOptions plant;
  std::function<int()> run;

  bool demo = false, all = false, csv = false;
  std::string start, day;
  NewMachine machine;
  AppendOptions append;
  ImportOptions import;
  RecordFilter filter;
  std::optional<std::int32_t> row;
  bool head = false, aside = false, remove = false;
  std::int32_t moved_row = 0;
  std::string reason;

  CommandLine();

 private:
  CLI::App* Command(CLI::App& parent, const char* name, const char* description, std::function<int()> action);
  void AddQueueCommands();
  CLI::Option* AddCsvFlag(CLI::App& listing) {
    return listing.add_flag("--csv", csv, "Comma-separated, with full precision");
  }
  DateTime Start() const { return start.empty() ? Today() : *DateTime::Parse(start); }
};

CLI::App* CommandLine::Command(CLI::App& parent, const char* name, const char* description,
                               std::function<int()> action) {
  CLI::App* const command = parent.add_subcommand(name, description);
  command
      ->add_option("PLANT", plant.plant, "The plant: an SQLite file, or a connection string, which has a =")
      ->required();
  command->fallthrough();
  command->callback([this, command, action = std::move(action)] {
    if (command->get_subcommands().empty()) run = action;
  });
  return command;
}

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
  app.add_option("--dialect", plant.dialect,
                 "The SQL that the component writes: oracle (0), access (1) or sqlserver (2).\n"
                 "Oracle when not given, as in the component itself; on SQLite all three do the same")
      ->type_name("DIALECT")
      ->transform(kDialect);
  app.add_flag("--dnc", plant.by_dnc,
               "Departments, locations, groups, machines and commands are given by their numbers in the\n"
               "DNC system, not by internal ids");

  CLI::App* command = Command(app, "create", "Creates the tables that are missing", [this] {
    CreatePlant(plant, demo, Start());
    std::cout << "The plant is ready" << (demo ? ", with the demo's machines.\n" : ".\n");
    return 0;
  });
  command->add_flag("--demo", demo, "Adds a small plant to work with");
  const char* const start_help = "When the first record starts; midnight today when not given";
  command->add_option("--start", start, start_help)->type_name("TIME")->check(kDateTime);

  CLI::App* const machines = app.add_subcommand("machine", "Changes the machines");
  machines->require_subcommand(1)->fallthrough();
  command = Command(*machines, "add", "Adds a machine with its first record", [this] {
    Plant opened(plant);
    for (auto [table, id] :
         {std::pair("T_SFC_DEPT", &machine.dept_id), std::pair("T_SFC_LOCATION", &machine.location_id),
          std::pair("T_SFC_GROUP", &machine.group_id)}) {
      if (*id != -1) *id = opened.FindId(table, *id);
    }
    opened.db.Begin();
    const std::int32_t id = AddMachine(opened, machine, Start());
    opened.db.Commit();
    std::cout << "Machine " << id << " is added.\n";
    return 0;
  });
  command->add_option("--name", machine.name, "How the machine is called")->required();
  command->add_option("--number", machine.dnc_number, "Its number in the DNC system");
  command->add_option("--dept", machine.dept_id, "Its department");
  command->add_option("--location", machine.location_id, "Its location");
  command->add_option("--group", machine.group_id, "Its group");
  command->add_option("--start", start, start_help)->type_name("TIME")->check(kDateTime);

  command = Command(app, "append", "Queues one event under the time of the database",
                    [this] { return Append(plant, append); });
  command->add_option("--machine", append.machine, "The machine")->required();
  command->add_option("--event", append.event, "What happened, one of\n" + EventNames())->required();
  command->add_option("--param", append.param,
                      "The user, job, part, operation or downtime code that starts; how many good parts;\n"
                      "how many scrapped ones and their scrap code, as in 5.17");
  command->add_option("--dept", append.dept, "The department, when not that of the machine's record");
  command->add_option("--location", append.location, "The location, likewise");
  command->add_option("--group", append.group, "The group, likewise");

  command = Command(app, "import", "Queues recorded input under its own times",
                    [this] { return Import(plant, import); });
  command->add_option("FILE", import.file, "The recorded input")->required();
  command->add_option("--machine", import.machine, "The machine of lines that name none");
  command
      ->add_option("--format", import.format,
                   "csv or shdr, by the file's name when not given.\n"
                   "csv: the first line names the columns, in any order: time, event and, as needed, param\n"
                   "and machine; events are called as in append. shdr: lines time|key|value|... of an\n"
                   "adapter. A time with a Z at its end is UTC, any other plant time")
      ->type_name("FORMAT")
      ->check(CLI::IsMember({"csv", "shdr"}).description(""));
  command->footer(
      "Lines that cannot be queued are reported and make the exit status 1; all others are queued.");

  command = Command(app, "process", "Works the first event of the queue into the records",
                    [this] { return Process(plant, all); });
  command->add_flag("--all", all, "All events that wait when it begins; it stops at one that fails");

  command = Command(app, "explain", "Shows what an event will change, by a trial on a copy of the plant",
                    [this] { return Explain(plant, row); });
  command->add_option("ROW", row,
                      "Its row in the queue, the first one when not given; those ahead of it go before");

  command = app.add_subcommand("register", "Registers the component for clients that name no file of it");
  command->add_flag("--remove", remove, "Takes the registration back");
  command->callback([this] { run = [this] { return Register(plant, remove); }; });

  AddQueueCommands();
  AddCsvFlag(*Command(app, "status", "Lists the machines and what they do",
                      [this] { return ListStatus(plant, csv); }));
  command = Command(app, "records", "Lists the records", [this] {
    if (!day.empty()) filter.day = DateTime::Parse(day);
    return ListRecords(plant, filter, csv);
  });
  command->add_option("--machine", filter.machine, "Of this machine");
  command->add_option("--day", day, "Booked on this day (chart date), as YYYY-MM-DD")
      ->type_name("TIME")
      ->check(kDateTime);
  AddCsvFlag(*command);
  Command(app, "doctor", "Examines the plant, its tables and what the component writes there",
          [this] { return Doctor(plant); });
}

void CommandLine::AddQueueCommands() {
  CLI::App* const queue = Command(app, "queue", "Lists the events that wait, and sets events aside", [this] {
    return head ? ShowHead(plant) : aside ? ListAside(plant, csv) : ListQueue(plant, csv);
  });
  CLI::Option* const csv_flag = AddCsvFlag(*queue);
  CLI::Option* const head_flag = queue->add_flag(
      "--head", head, "Shows the first event, why it does not go through, and how many wait behind it");
  queue->add_flag("--aside", aside, "Lists the events that are set aside")->excludes(head_flag);
  head_flag->excludes(csv_flag);

  const auto add_row = [this](CLI::App* command) {
    command->add_option("ROW", moved_row, "Its row in the queue")->required();
  };
  CLI::App* command = Command(*queue, "set-aside", "Moves an event out of the queue",
                              [this] { return SetAside(plant, moved_row, reason); });
  add_row(command);
  command->add_option("--reason", reason,
                      "Why; when not given, the error that keeps the event at the head of an SQLite plant");
  add_row(Command(*queue, "put-back", "Moves an event that is set aside back to its place in the queue",
                  [this] { return PutBack(plant, moved_row); }));

  // The plant belongs to the command that is given last.
  CLI::Option* const own_plant = queue->get_option("PLANT")->required(false);
  queue->parse_complete_callback([queue, own_plant] {
    if (queue->get_subcommands().empty() == (own_plant->count() != 0)) return;
    if (own_plant->count() == 0) throw CLI::RequiredError("PLANT");
    throw CLI::ExtrasError({own_plant->as<std::string>()});
  });
}

int Main(std::vector<std::string> arguments) {
  CommandLine line;
  try {
    std::ranges::reverse(arguments);  // as the parser takes them
    line.app.parse(std::move(arguments));
  } catch (const CLI::ParseError& error) {
    return line.app.exit(error) == 0 ? 0 : 2;
  }
  const int status = line.run();
  if (!std::cout.flush()) throw ToolError("the output could not be written");
  return status;
}

}  // namespace
}  // namespace kx::tool

int main(int argc, char** argv) {
  try {
    return kx::tool::Main(kx::tool::Arguments(argc, argv));
  } catch (const std::exception& error) {
    std::string text = error.what();
    std::ranges::replace_if(
        text, [](char c) { return c == '\n' || c == '\r'; }, ' ');
    std::cout.flush();
    std::cerr << "kxdata7: " << text << '\n';
    return 1;
  }
}
