#include <algorithm>
#include <iostream>
#include <memory>

#include "database/text.h"
#include "inputs/probe.h"
#include "inputs/source.h"
#include "tools/command_line.h"
#include "views/table.h"

namespace kx::tool {
namespace {

struct Options {
  std::optional<std::int32_t> machine;
  bool csv = false;
  bool probe = false;
  int seconds = 10;
};

constexpr int kLongestProbe = 3600;

// Of one machine, when one is named.
std::vector<InputSource> SourcesOf(Plant& plant, const Options& options) {
  std::vector<InputSource> sources = ReadSources(plant);
  if (options.machine) {
    const Machine machine = plant.FindMachine(*options.machine);
    std::erase_if(sources, [&](const InputSource& source) { return source.machine_id != machine.id; });
  }
  return sources;
}

std::string MachineName(Plant& plant, std::int32_t machine_id) {
  const Rows rows = plant.Run("select MACHINE_NAME from T_SFC_MACHINE where MACHINE_ID = ?", {machine_id});
  return rows.count() == 0 ? std::string() : rows.at(0, 0).ToTextOr("");
}

int List(Plant& plant, const Options& options) {
  Table table({"machine", "name", "source", "address", "told_last", "agent_next"});
  for (const InputSource& source : SourcesOf(plant, options)) {
    NamedValues state = LoadState(plant, StateName(source.machine_id));
    table.Add({source.machine_id, MachineName(plant, source.machine_id),
               source.kind.empty() ? std::string("recordings") : source.kind, source.address, state["time"],
               state["agent.next"]});
  }
  table.Print(std::cout, options.csv);
  return 0;
}

void PrintProbe(const std::string& name, const InputSource& source, const Probe& probe, bool csv) {
  std::cout << name << ", " << source.kind << ' ' << source.address << '\n';
  if (!probe.lost.empty())
    std::cout << "  " << (probe.opened ? "broke off: " : "not heard: ") << probe.lost << '\n';
  if (!probe.opened) return;
  std::cout << "  " << probe.received << (source.kind == "agent" ? " documents" : " lines") << ", "
            << probe.keys.size() << " keys\n\n";
  Table table({"key", "told", "last", "taken_as", "what"});
  for (const ProbedKey& key : probe.keys) {
    std::string as;
    for (const auto& [item, taken] : probe.taken) {
      if (taken == key.key) as = ItemName(item);
    }
    for (const auto& [item, guessed] : probe.guessed) {
      if (as.empty() && guessed == key.key) as = Concat("could be ", ItemName(item));
    }
    table.Add({key.key, static_cast<std::int64_t>(key.count), key.value, as, key.about});
  }
  table.Print(std::cout, csv);
  for (const std::string& notice : probe.notices) std::cout << "note: " << notice << '\n';
  const std::string mapping = ProposedMapping(source, probe);
  if (mapping.empty()) {
    std::cout << "\nNothing was told that would be taken.\n";
  } else {
    std::cout << "\nFor the machine's entry in the plant's file"
              << (probe.guessed.empty() ? "" : "; look first whether what only could be is so") << ":\n\n"
              << source.kind << " = \"" << source.address << "\"\n"
              << mapping;
  }
}

// 1 when a source was not heard.
int ProbeAll(Plant& plant, const Options& options) {
  std::vector<InputSource> sources = SourcesOf(plant, options);
  RequireLive(sources);
  std::cerr << "Listening for " << options.seconds << " s." << std::endl;
  const std::vector<Probe> probes = ProbeSources(sources, std::chrono::seconds(options.seconds));
  bool all = true;
  for (std::size_t i = 0; i < sources.size(); ++i) {
    if (i > 0) std::cout << '\n';
    PrintProbe(
        Concat("Machine ", sources[i].machine_id, " (", MachineName(plant, sources[i].machine_id), ")"),
        sources[i], probes[i], options.csv);
    all &= probes[i].opened;
  }
  return all ? 0 : 1;
}

}  // namespace

void AddSourceCommands(CommandLine& line) {
  const auto options = std::make_shared<Options>();
  CLI::App* const command = line.Command(
      "sources", "Lists the machines that speak for themselves, or listens to them", [&line, options] {
        Plant plant(line.plant, OpenMode::kReadOnly);
        return options->probe ? ProbeAll(plant, *options) : List(plant, *options);
      });
  command->add_option("--machine", options->machine, "Of this machine");
  command->add_flag(
      "--probe", options->probe,
      "Connects to the sources and shows what they tell, what is taken of it, and the lines of\n"
      "the plant's file that would take it. Nothing is written");
  command->add_option("--seconds", options->seconds, "How long --probe listens, 10 when not given")
      ->check(CLI::Range(1, kLongestProbe));
  AddCsvFlag(*command, options->csv);
}

}  // namespace kx::tool
