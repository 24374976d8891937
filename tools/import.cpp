#include <algorithm>
#include <fstream>
#include <iostream>
#include <unordered_map>

#include "inputs/recorded_input.h"
#include "plant/platform.h"
#include "tools/commands.h"

namespace kx::tool {
namespace {

// Puts recorded events into the queue under their own times.
class Importer {
 public:
  Importer(Plant& plant, const ImportOptions& options) : plant_(plant), options_(options) {
    if (options.machine) MachineOf(*options.machine);
  }

  void Queue(const RecordedEvent& event) {
    if (!event.machine && !options_.machine) throw ToolError("no machine is given");
    const Machine& machine = MachineOf(event.machine ? *event.machine : *options_.machine);
    Value command_id;
    Value time_code;
    if (event.event.type_code != kRefresh) {
      const Command command = event.event.type_code == kCustom
                                  ? plant_.FindCommand(event.event.command_number)
                                  : plant_.FindCommandOfType(event.event.type_code);
      RequireUsableParam(command.type_code, event.param);
      command_id = command.id;
      time_code = event.event.time_code;
    }
    plant_.Run(
        "insert into T_SFC_MDC_LOG (COMMAND_ID, DEPT_ID, LOCATION_ID, GROUP_ID, MACHINE_ID, "
        "COMMAND_TIME_CODE, TIME_STAMP, PARAM1) values (?, ?, ?, ?, ?, ?, ?, ?)",
        {command_id, machine.dept_id, machine.location_id, machine.group_id, machine.id, time_code,
         event.time, event.param.empty() ? Value() : Value(event.param)});
  }

 private:
  const Machine& MachineOf(std::int32_t number) {
    const auto known = machines_.find(number);
    if (known != machines_.end()) return known->second;
    return machines_.emplace(number, plant_.FindMachine(number)).first->second;
  }

  Plant& plant_;
  const ImportOptions& options_;
  std::unordered_map<std::int32_t, Machine> machines_;
};

}  // namespace

int Import(const PlantOptions& options, const ImportOptions& import) {
  std::ifstream file(ToPath(import.file), std::ios::binary);
  if (!file || file.peek() == std::ifstream::traits_type::eof())
    throw ToolError(import.file + ": cannot be read, or is empty");
  const bool shdr = import.format.empty() ? import.file.ends_with(".shdr") : import.format == "shdr";
  Recording recording;
  try {
    recording = shdr ? ReadShdr(file) : ReadCsv(file);
  } catch (const ToolError& error) {
    throw ToolError(import.file + ": " + error.what());
  }
  if (file.bad()) throw ToolError(import.file + ": cannot be read to its end");

  Plant plant(options);
  Importer importer(plant, import);
  std::size_t queued = 0;
  plant.db.Begin();
  for (const RecordedEvent& event : recording.events) {
    try {
      importer.Queue(event);
      ++queued;
    } catch (const ToolError& error) {
      recording.bad_lines.push_back({event.line, error.what()});
    }
  }
  plant.db.Commit();

  std::ranges::stable_sort(recording.bad_lines, {}, &BadLine::line);
  for (const BadLine& bad : recording.bad_lines)
    std::cerr << import.file << ':' << bad.line << ": " << bad.reason << '\n';
  std::cout << "Queued " << queued << " events from " << import.file << ", refused "
            << recording.bad_lines.size() << " lines.\n";
  return recording.bad_lines.empty() ? 0 : 1;
}

}  // namespace kx::tool
