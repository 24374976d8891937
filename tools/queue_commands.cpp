#include <iostream>
#include <memory>

#include "database/ascii.h"
#include "plant/client.h"
#include "plant/event_check.h"
#include "plant/queue.h"
#include "plant/trial.h"
#include "tools/command_line.h"
#include "views/table.h"

namespace kx::tool {
namespace {

struct AppendOptions {
  std::string machine;  // its number or name
  std::string event;
  std::string param;
  std::optional<std::int32_t> dept, location, group;  // not given: where the machine's record says
  bool unchecked = false;
};

struct QueueOptions {
  bool csv = false, head = false, aside = false;
  std::int32_t moved_row = 0;
  std::string reason;
};

// The numbers of an event whose machine, command, places and names the plant has.
kxdata7::EventNumbers CheckedNumbers(Plant& plant, const AppendOptions& append, const NamedEvent& event) {
  const std::int32_t machine_number = MachineNumber(plant, append.machine);
  const Machine machine = plant.FindMachine(machine_number);
  const auto number = [&](const char* table, std::optional<std::int32_t> given, std::int32_t id) {
    if (given) plant.FindId(table, *given);
    return given ? *given : plant.NumberOf(table, id);
  };
  kxdata7::EventNumbers numbers{number("T_SFC_DEPT", append.dept, machine.dept_id),
                                number("T_SFC_LOCATION", append.location, machine.location_id),
                                number("T_SFC_GROUP", append.group, machine.group_id), machine_number, -1};
  if (event.type_code != kxdata7::command_type::kRefresh) {
    const Command command = plant.FindCommand(event);
    RequireUsableParam(command.type_code, append.param);
    RequireKnownParam(plant, command.type_code, append.param);
    numbers.command = plant.NumberOf("T_SFC_COMMAND", command.id);
  }
  TryToQueue(plant, machine, event, append.param);
  return numbers;
}

// The numbers as they are given, which may lead nowhere.
kxdata7::EventNumbers BareNumbers(Plant& plant, const AppendOptions& append, const NamedEvent& event) {
  kxdata7::EventNumbers numbers{append.dept.value_or(-1), append.location.value_or(-1),
                                append.group.value_or(-1), MachineNumber(plant, append.machine), -1};
  if (event.type_code == kxdata7::command_type::kCustom) {
    numbers.command = event.command_number;
  } else if (event.type_code != kxdata7::command_type::kRefresh) {
    numbers.command = plant.NumberOf("T_SFC_COMMAND", plant.FindCommand(event).id);
  }
  return numbers;
}

int Append(const PlantOptions& options, const AppendOptions& append) {
  const NamedEvent event = ParseEventName(ToLowerAscii(append.event));
  Plant plant(options);
  const auto numbers =
      append.unchecked ? BareNumbers(plant, append, event) : CheckedNumbers(plant, append, event);
  const kxdata7::Answer answer = ConnectComponent(options).Append(
      numbers, append.param, event.time_code,
      options.by_dnc ? kxdata7::NumberKind::kDnc : kxdata7::NumberKind::kIds);
  answer.OrThrow();
  Warn(answer.error);
  std::cout << "Queued " << append.event << " for machine " << append.machine << ".\n";
  return 0;
}

std::string RowName(std::int32_t row) { return "row " + std::to_string(row); }

int ListQueue(const PlantOptions& options, bool csv) {
  Plant plant(options, OpenMode::kReadOnly);
  Table table({"row", "time", "machine", "event", "param"});
  for (const QueuedEvent& event : ReadQueue(plant))
    table.Add({event.row, event.time, event.machine_id, event.Name(), event.param});
  table.Print(std::cout, csv);
  if (!csv) MentionAside(plant);
  return 0;
}

int ListAside(const PlantOptions& options, bool csv) {
  Plant plant(options, OpenMode::kReadOnly);
  Table table({"row", "time", "machine", "event", "param", "set_aside", "error"});
  for (const auto& [event, time, error] : ReadAside(plant))
    table.Add({event.row, event.time, event.machine_id, event.Name(), event.param, time, error});
  table.Print(std::cout, csv);
  return 0;
}

// Shows the first event of the queue, why it does not go through, and how many wait behind it.
int ShowHead(const PlantOptions& options) {
  Plant plant(options, OpenMode::kReadOnly);
  const auto head = ReadQueuedEvent(plant);
  if (!head) {
    std::cout << "Nothing waits.\n";
    return 0;
  }
  const auto error = TrialError(options, head->row);
  std::cout << "First:  " << head->Description() << (head->param.empty() ? "" : ", \"" + head->param + '"')
            << "\nSince:  " << head->time << "\nBehind: " << CountBehind(plant, head->row) << "\nError:  ";
  if (!error) {
    std::cout << "\"kxdata7 process\" shows it; only an SQLite plant can be copied for a trial\n";
  } else {
    std::cout << (error->empty() ? "none, in a trial on a copy" : *error) << '\n';
  }
  if (const std::string missing = MissingFor(plant, *head); !missing.empty())
    std::cout << "Missing: " << missing << '\n';
  return 0;
}

// Moves the event in row `row` out of the queue, with `reason` or, where that is empty and a trial can be
// made, the error that keeps it there.
int SetAside(const PlantOptions& options, std::int32_t row, const std::string& reason) {
  Plant plant(options);
  const auto event = ReadQueuedEvent(plant, row);
  if (!event) throw ToolError(RowName(row) + " does not wait");
  std::string error = reason;
  const auto first = ReadQueuedEvent(plant);
  if (error.empty() && first && first->row == row) error = TrialError(options, row).value_or("");
  kxdata7::Client component = ConnectComponent(options);
  if (!SetAside(plant, row, error, ServerTime(component)))
    throw ToolError(RowName(row) + " does not wait any more");
  std::cout << "Set aside " << event->Description() << (error.empty() ? "" : ": " + error) << ".\n";
  return 0;
}

int PutBack(const PlantOptions& options, std::int32_t row) {
  Plant plant(options);
  if (!PutBack(plant, row)) throw ToolError(RowName(row) + " is not set aside");
  std::cout << "Put back " << RowName(row) << ".\n";
  return 0;
}

}  // namespace

void AddQueueCommands(CommandLine& line) {
  const auto append = std::make_shared<AppendOptions>();
  CLI::App* command = line.Command("append", "Queues one event under the time of the database",
                                   [&line, append] { return Append(line.plant, *append); });
  command->add_option("--machine", append->machine, "The machine, by its number or name")->required();
  CLI::Option* const event =
      command->add_option("--event", append->event, "What happened, one of\n" + EventNames())->required();
  for (const kxdata7::Event& each : kxdata7::kEvents) {
    if (each.command_type != kxdata7::command_type::kCustom) line.choices[event].emplace_back(each.name);
  }
  command->add_option("--param", append->param,
                      "The user, job, part, operation or downtime code that starts; how many good parts;\n"
                      "how many scrapped ones and their scrap code, as in 5.17");
  command->add_option("--dept", append->dept, "The department, when not that of the machine's record");
  command->add_option("--location", append->location, "The location, likewise");
  command->add_option("--group", append->group, "The group, likewise");
  command->add_flag(
      "--unchecked", append->unchecked,
      "As the component itself takes it: no number and no name is looked up, and an event that\n"
      "leads nowhere waits at the head of the queue. Places that are not given are -1");

  const auto options = std::make_shared<QueueOptions>();
  CLI::App* const queue =
      line.Command("queue", "Lists the events that wait, and sets events aside", [&line, options] {
        return options->head    ? ShowHead(line.plant)
               : options->aside ? ListAside(line.plant, options->csv)
                                : ListQueue(line.plant, options->csv);
      });
  CLI::Option* const csv_flag = AddCsvFlag(*queue, options->csv);
  CLI::Option* const head_flag =
      queue->add_flag("--head", options->head,
                      "Shows the first event, why it does not go through, and how many wait behind it");
  queue->add_flag("--aside", options->aside, "Lists the events that are set aside")->excludes(head_flag);
  head_flag->excludes(csv_flag);

  const auto add_row = [&options](CLI::App* moving) {
    moving->add_option("ROW", options->moved_row, "Its row in the queue")->required();
  };
  command = line.Command(*queue, "set-aside", "Moves an event out of the queue", [&line, options] {
    return SetAside(line.plant, options->moved_row, options->reason);
  });
  add_row(command);
  command->add_option("--reason", options->reason,
                      "Why; when not given, the error that keeps the event at the head of an SQLite plant");
  add_row(line.Command(*queue, "put-back", "Moves an event that is set aside back to its place in the queue",
                       [&line, options] { return PutBack(line.plant, options->moved_row); }));

  // The plant belongs to the command that is given last.
  CLI::Option* const own_plant = queue->get_option("PLANT")->required(false);
  queue->parse_complete_callback([queue, own_plant] {
    if (queue->get_subcommands().empty() == (own_plant->count() != 0)) return;
    if (own_plant->count() == 0) throw CLI::RequiredError("PLANT");
    throw CLI::ExtrasError({own_plant->as<std::string>()});
  });
}

}  // namespace kx::tool
