#include <algorithm>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>
#include <unordered_map>

#include "database/text.h"
#include "inputs/recorded_input.h"
#include "inputs/source.h"
#include "inputs/time_guard.h"
#include "plant/guard.h"
#include "plant/platform.h"
#include "plant/progress.h"
#include "plant/queue.h"
#include "plant/stop_signal.h"
#include "tools/command_line.h"

namespace kx::tool {
namespace {

struct ImportOptions {
  std::string file;
  std::optional<std::int32_t> machine;  // of lines that name none
  std::string format;                   // "csv", "shdr", or empty: by the content
  std::vector<std::string> mapping;     // name=value, before what the plant says
  TimeGuardOptions guard;
};

constexpr std::size_t kMostShown = 100;

// Puts recorded events into the queue under their own times.
class Importer {
 public:
  Importer(Plant& plant, const ImportOptions& options, DateTime now)
      : plant_(plant), options_(options), now_(now) {
    if (options.machine) machine_ = plant.FindMachine(*options.machine);
  }

  void Queue(const RecordedEvent& event) {
    const Machine& machine = event.machine ? MachineOf(*event.machine) : OwnMachine();
    // What a reader of adapter lines made has been let through.
    if (options_.format == "csv") GuardOf(machine).Admit(event.time);
    QueueEvent(plant_, machine, event.event, event.param, event.time);
  }

  const Machine& OwnMachine() const {
    if (!machine_) throw ToolError("no machine is given");
    return *machine_;
  }

  TimeGuard& GuardOf(const Machine& machine) {
    const auto known = guards_.find(machine.id);
    if (known != guards_.end()) return known->second;
    return guards_.emplace(machine.id, TimeGuard(options_.guard, now_, BeenThrough(plant_, machine.id)))
        .first->second;
  }

 private:
  const Machine& MachineOf(std::int32_t number) {
    const auto known = machines_.find(number);
    if (known != machines_.end()) return known->second;
    return machines_.emplace(number, plant_.FindMachine(number)).first->second;
  }

  Plant& plant_;
  const ImportOptions& options_;
  const DateTime now_;
  std::optional<Machine> machine_;
  std::unordered_map<std::int32_t, Machine> machines_;
  std::unordered_map<std::int32_t, TimeGuard> guards_;
};

ShdrOptions ReaderOptions(Plant& plant, Importer& importer, const ImportOptions& import) {
  ShdrOptions options;
  const Machine& machine = importer.OwnMachine();
  NamedValues mapping = MappingOf(plant, machine.id);
  for (const std::string& line : import.mapping) {
    for (const auto& [name, value] : ParseNamedValues(line)) mapping[name] = value;
  }
  options.mapping = Mapping::Parse(mapping);
  options.machine = machine.id;
  // What is known now does not hold for a recording of before.
  if (!import.guard.allow_old) options.state = LoadState(plant, StateName(machine.id));
  return options;
}

// Keeps what is known of a machine from the collector, which listens to it, as long as the guard lives; none
// is needed when nobody listens, or nothing of what is known is used.
std::unique_ptr<Guard> KeepCollectorOut(Plant& plant, const PlantOptions& options,
                                        const ImportOptions& import, const Machine& machine) {
  const std::vector<InputSource> sources = ReadSources(plant);
  const bool is_heard = std::ranges::any_of(sources, [&](const InputSource& source) {
    return source.machine_id == machine.id && !source.address.empty();
  });
  if (!is_heard || import.guard.allow_old) return nullptr;
  try {
    return std::make_unique<Guard>(options, Guard::Work::kCollecting);
  } catch (const GuardError& error) {
    throw ToolError(Concat(machine.name, " is listened to, and would be counted twice (--allow-old lets a ",
                           "recording of before through): ", error.what()));
  }
}

void Show(const std::string& file, std::vector<BadLine> lines, std::ostream& output, const char* kind) {
  std::ranges::stable_sort(lines, {}, &BadLine::line);
  for (std::size_t i = 0; i < std::min(lines.size(), kMostShown); ++i)
    output << file << ':' << lines[i].line << ": " << kind << lines[i].reason << '\n';
  if (lines.size() > kMostShown)
    output << file << ": " << lines.size() - kMostShown << " more lines like these\n";
}

// Lines as they come, from the standard input: queued and committed whenever no more is there.
int ImportStream(Plant& plant, const PlantOptions& plant_options, const ImportOptions& import) {
  Importer importer(plant, import, DatabaseTime(plant, plant_options.dialect));
  const auto guard_of_state = KeepCollectorOut(plant, plant_options, import, importer.OwnMachine());
  const ShdrOptions options = ReaderOptions(plant, importer, import);
  std::size_t number = 0;
  std::size_t queued = 0;
  std::size_t refused = 0;
  const auto say = [&](Notices::Kind kind, const std::string& text) {
    refused += kind == Notices::Kind::kRefused ? 1 : 0;
    std::cerr << "-:" << number << ": " << text << std::endl;
  };
  MachineReader machine(options.mapping, say);
  machine.Load(options.state);
  RecordedSection section(options.machine);
  TimeGuard& guard = importer.GuardOf(importer.OwnMachine());
  const auto commit = [&] {
    if (!import.guard.allow_old)
      SaveState(plant, StateName(importer.OwnMachine().id), NamedValuesText(machine.Save()));
    plant.db.Commit();
  };
  std::string line;
  while (++number, ReadBoundedLine(std::cin, line)) {
    try {
      const bool holds = section.Holds(line);
      if (const auto opened = section.TakeOpened()) machine.Open(*opened);
      if (!holds) continue;
      for (Report& report : machine.Read(line, section.arrival().value_or(Now()))) {
        if (section.arrival()) machine.AdmitLive(report, *section.arrival());
        report.time = guard.Admit(report, machine.last_moment);
        for (const MachineEvent& event : machine.Apply(report)) {
          if (!plant.db.in_transaction()) plant.db.Begin();
          QueueEvent(plant, importer.OwnMachine(), event.event, event.param, event.time);
          ++queued;
        }
      }
    } catch (const ToolError& error) {
      say(Notices::Kind::kRefused, error.what());
    }
    if (plant.db.in_transaction() && std::cin.rdbuf()->in_avail() <= 0) commit();
  }
  if (!plant.db.in_transaction()) plant.db.Begin();
  commit();
  std::cout << "Queued " << queued << " events from the standard input, refused " << refused << " lines.\n";
  return refused == 0 ? 0 : 1;
}

std::string ReadWhole(const std::string& name) {
  if (name == "-") return {std::istreambuf_iterator<char>(std::cin), {}};
  std::ifstream file(ToPath(name), std::ios::binary);
  if (!file || file.peek() == std::ifstream::traits_type::eof())
    throw ToolError(name + ": cannot be read, or is empty");
  std::string content{std::istreambuf_iterator<char>(file), {}};
  if (file.bad()) throw ToolError(name + ": cannot be read to its end");
  return content;
}

// What was taken for what, or that nothing was.
void SayKeys(const std::string& file, const Recording& recording) {
  if (!recording.taken.empty()) {
    std::cout << "Taken: " << recording.taken << ".\n";
  } else {
    throw ToolError(Concat(
        file, ": no key of it is known; the machine's mapping names them. Seen: ", recording.keys_seen));
  }
}

// 1 when lines were refused; the others are queued all the same.
int Import(const PlantOptions& options, ImportOptions import) {
  if (import.file == "-" && import.format != "csv") {
    std::ios::sync_with_stdio(false);
    Plant plant(options);
    return ImportStream(plant, options, import);
  }
  const std::string content = ReadWhole(import.file);
  if (import.format.empty()) import.format = FormOf(content) == InputForm::kShdr ? "shdr" : "csv";
  Plant plant(options);
  const DateTime now = DatabaseTime(plant, options.dialect);
  const std::string hash = ContentHash(content);
  Importer importer(plant, import, now);
  std::istringstream input(content);
  Recording recording;
  ShdrOptions reader;
  std::unique_ptr<Guard> guard_of_state;
  try {
    RequireNewRecording(plant, hash, import.guard);
    if (import.format == "shdr") {
      guard_of_state = KeepCollectorOut(plant, options, import, importer.OwnMachine());
      reader = ReaderOptions(plant, importer, import);
      std::optional<Moment> last;
      if (const auto moment = reader.state.find("moment"); moment != reader.state.end())
        last = Moment(std::chrono::microseconds(std::atoll(moment->second.c_str())));
      reader.admit = [&, last](const Report& report) {
        return importer.GuardOf(importer.OwnMachine()).Admit(report, last);
      };
      recording = ReadShdr(input, reader);
    } else {
      recording = ReadCsv(input);
    }
  } catch (const ToolError& error) {
    throw ToolError(import.file + ": " + error.what());
  }
  if (import.format == "shdr") SayKeys(import.file, recording);

  std::size_t queued = 0;
  const StopSignal stop;
  Progress progress("events", static_cast<std::int64_t>(recording.events.size()));
  plant.db.Begin();
  for (const RecordedEvent& event : recording.events) {
    if (stop.requested()) throw ToolError("stopped by a signal; nothing of " + import.file + " is queued");
    progress.Show(static_cast<std::int64_t>(queued));
    try {
      importer.Queue(event);
      ++queued;
    } catch (const ToolError& error) {
      recording.bad_lines.push_back({event.line, error.what()});
    }
  }
  if (import.format == "shdr" && !import.guard.allow_old)
    SaveState(plant, StateName(importer.OwnMachine().id), NamedValuesText(recording.state));
  if (queued > 0) NoteRecording(plant, hash, import.file, now, queued);
  plant.db.Commit();

  Show(import.file, recording.notes, std::cout, "note: ");
  Show(import.file, recording.bad_lines, std::cerr, "");
  std::cout << "Queued " << queued << " events from " << import.file << ", refused "
            << recording.bad_lines.size() << " lines.\n";
  return recording.bad_lines.empty() ? 0 : 1;
}

}  // namespace

void AddInputCommands(CommandLine& line) {
  const auto options = std::make_shared<ImportOptions>();
  CLI::App* const command = line.Command("import", "Queues recorded input under its own times",
                                         [&line, options] { return Import(line.plant, *options); });
  command
      ->add_option("FILE", options->file,
                   "The recorded input; - is the standard input, line by line as they come")
      ->required();
  command->add_option("--machine", options->machine, "The machine of lines that name none");
  const std::vector<std::string> formats = {"csv", "shdr"};
  CLI::Option* const format = command->add_option(
      "--format", options->format,
      "csv or shdr, by the content when not given.\n"
      "csv: the first line names the columns, in any order: time, event and, as needed, param\n"
      "and machine; events are called as in append. A time with a Z or an offset is UTC, any\n"
      "other plant time. shdr: lines time|key|value|... of an adapter, in UTC");
  format->type_name("FORMAT")->check(CLI::IsMember(formats).description(""));
  line.choices[format] = formats;
  command
      ->add_option(
          "--map", options->mapping,
          "NAME=VALUE of the machine's mapping, instead of what the plant says: execution, program,\n"
          "parts, good_parts, bad_parts, stop, mode, alarm (a key each), device, part_limit,\n"
          "pause_ends_cycle, times (utc, plant), maintenance, alarm_downtime")
      ->type_name("NAME=VALUE")
      ->take_all();
  command->add_flag("--allow-future", options->guard.allow_future, "Times that lie further ahead, too");
  command
      ->add_option_function<std::int64_t>(
          "--future-limit", [options](std::int64_t hours) { options->guard.future_limit = hours * 3600; },
          "How far ahead of the plant's clock a time may lie; a day when not given")
      ->type_name("HOURS")
      ->check(CLI::Range(0, 100'000));
  command->add_flag("--allow-old", options->guard.allow_old,
                    "Times before what the machine has been through");
  command->add_flag("--allow-again", options->guard.allow_again, "A recording that was imported before");
  command->footer(
      "Lines that cannot be queued are reported and make the exit status 1; all others are queued.");
}

}  // namespace kx::tool
