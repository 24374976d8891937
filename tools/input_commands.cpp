#include <algorithm>
#include <fstream>
#include <iostream>
#include <memory>
#include <unordered_map>

#include "inputs/recorded_input.h"
#include "plant/platform.h"
#include "plant/queue.h"
#include "tools/command_line.h"

namespace kx::tool {
namespace {

struct ImportOptions {
  std::string file;
  std::optional<std::int32_t> machine;  // of lines that name none
  std::string format;                   // "csv", "shdr", or empty: by the file's name
};

// Puts recorded events into the queue under their own times.
class Importer {
 public:
  Importer(Plant& plant, const ImportOptions& options) : plant_(plant), options_(options) {
    if (options.machine) MachineOf(*options.machine);
  }

  void Queue(const RecordedEvent& event) {
    if (!event.machine && !options_.machine) throw ToolError("no machine is given");
    QueueEvent(plant_, MachineOf(event.machine ? *event.machine : *options_.machine), event.event,
               event.param, event.time);
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

// 1 when lines were refused; the others are queued all the same.
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

}  // namespace

void AddInputCommands(CommandLine& line) {
  const auto options = std::make_shared<ImportOptions>();
  CLI::App* const command = line.Command("import", "Queues recorded input under its own times",
                                         [&line, options] { return Import(line.plant, *options); });
  command->add_option("FILE", options->file, "The recorded input")->required();
  command->add_option("--machine", options->machine, "The machine of lines that name none");
  command
      ->add_option("--format", options->format,
                   "csv or shdr, by the file's name when not given.\n"
                   "csv: the first line names the columns, in any order: time, event and, as needed, param\n"
                   "and machine; events are called as in append. shdr: lines time|key|value|... of an\n"
                   "adapter. A time with a Z at its end is UTC, any other plant time")
      ->type_name("FORMAT")
      ->check(CLI::IsMember({"csv", "shdr"}).description(""));
  command->footer(
      "Lines that cannot be queued are reported and make the exit status 1; all others are queued.");
}

}  // namespace kx::tool
