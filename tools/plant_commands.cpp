#include <ctime>
#include <iostream>
#include <memory>

#include "plant/apply.h"
#include "plant/client.h"
#include "tools/command_line.h"
#include "tools/doctor.h"

namespace kx::tool {
namespace {

struct Options {
  std::optional<DateTime> start;
  NewMachine machine;
  bool remove = false;
  bool repair = false;
};

int AddMachine(const PlantOptions& options, NewMachine machine, DateTime start) {
  Plant plant(options);
  for (auto [table, id] :
       {std::pair("T_SFC_DEPT", &machine.dept_id), std::pair("T_SFC_LOCATION", &machine.location_id),
        std::pair("T_SFC_GROUP", &machine.group_id)}) {
    if (*id != -1) *id = plant.FindId(table, *id);
  }
  plant.db.Begin();
  RequireGoodMachine(plant, machine);
  const std::int32_t id = AddMachine(plant, machine, start);
  plant.db.Commit();
  std::cout << "Machine " << id << " is added.\n";
  return 0;
}

// Registers the component for clients that give no file, or takes the registration back.
int Register(const PlantOptions& options, bool remove) {
  const kxdata7::Library library = FindLibrary(options);
  remove ? library.Unregister() : library.Register();
  std::cout << (remove ? "The registration is removed.\n" : "The component is registered.\n");
  return 0;
}

}  // namespace

void AddPlantCommands(CommandLine& line) {
  const auto options = std::make_shared<Options>();
  CLI::App* const machines = line.app.add_subcommand("machine", "Changes the machines");
  machines->require_subcommand(1)->fallthrough();
  CLI::App* command = line.Command(
      *machines, "add", "Adds a machine with its first record",
      [&line, options] { return AddMachine(line.plant, options->machine, StartOr(options->start)); });
  command->add_option("--name", options->machine.name, "How the machine is called")->required();
  command->add_option("--number", options->machine.dnc_number, "Its number in the DNC system");
  command->add_option("--dept", options->machine.dept_id, "Its department");
  command->add_option("--location", options->machine.location_id, "Its location");
  command->add_option("--group", options->machine.group_id, "Its group");
  AddStartOption(*command, options->start);

  command =
      line.app.add_subcommand("register", "Registers the component for clients that name no file of it");
  command->add_flag("--remove", options->remove, "Takes the registration back");
  command->callback(
      [&line, options] { line.run = [&line, options] { return Register(line.plant, options->remove); }; });

  line.Command("doctor", "Examines the plant, its tables and what the component writes there",
               [&line, options] { return Doctor(line.plant, options->repair); })
      ->add_flag("--repair", options->repair, "Shows and does the repairs that are certain");
}

}  // namespace kx::tool
