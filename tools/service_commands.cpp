#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>

#include "database/connection_string.h"
#include "plant/follower.h"
#include "plant/plant_settings.h"
#include "plant/platform.h"
#include "plant/service.h"
#include "tools/command_line.h"

namespace kx::tool {
namespace {

struct ServiceOptions {
  std::string name;
  std::string log;
};

// A file of the service, which starts in another folder.
std::string Absolute(const std::string& file) { return ToText(std::filesystem::absolute(ToPath(file))); }

int Install(const PlantOptions& plant, ServiceOptions service) {
  if (service.log.empty()) service.log = service.name + ".log";
  const auto connection = ConnectionString::Parse(PlantConnectionString(plant.plant));
  const bool has_password = connection.Find("pwd") != nullptr || connection.Find("password") != nullptr;
  if (plant.file.empty() && has_password) {
    throw ToolError(
        "everybody can read the command line of a service, and a password must not stand there; put the "
        "plant "
        "into a file and give that by --plant-file");
  }
  std::vector<std::string> arguments = {service.name};
  const auto add = [&](const char* option, const std::string& value) {
    arguments.insert(arguments.end(), {option, value});
  };
  if (plant.file.empty()) {
    const bool is_file = plant.plant.find('=') == std::string::npos;
    arguments.push_back(is_file ? Absolute(plant.plant) : plant.plant);
  } else {
    add("--plant-file", Absolute(plant.file));
  }
  add("--dialect", std::to_string(plant.dialect));
  if (!plant.library.empty()) add("--library", Absolute(plant.library));
  add("--log", Absolute(service.log));
  InstallService(service.name, arguments);
  std::cout << "Installed the service " << service.name << ", which starts with Windows; \"sc start "
            << service.name << "\" starts it now. It writes " << Absolute(service.log) << ".\n";
  return 0;
}

// What `process --follow` does, with its lines in a file.
int Follow(const PlantOptions& plant, const ServiceOptions& service) {
  std::ofstream output(ToPath(service.log), std::ios::app);
  std::ofstream errors(ToPath(service.log), std::ios::app);
  try {
    Follower([&] { return CurrentOptions(plant); }, {}, output, errors).Run();
    return 0;
  } catch (const std::exception& error) {
    errors << "kxdata7: " << error.what() << std::endl;
    return 1;
  }
}

}  // namespace

void AddServiceCommands(CommandLine& line) {
  const auto options = std::make_shared<ServiceOptions>();
  CLI::App* const service =
      line.app.add_subcommand("service", "On Windows: \"process --follow\" as a service of the system");
  service->require_subcommand(1);
  service->fallthrough();
  const auto add = [&](const char* name, const char* description) {
    CLI::App* const command = service->add_subcommand(name, description);
    command->add_option("NAME", options->name, "The service")->required();
    return command;
  };
  CLI::App* const install = add("install", "Makes a service that works the plant off");
  line.TakePlant(*install, [&line, options] { return Install(line.plant, *options); });
  CLI::App* const remove = add("remove", "Stops a service and takes it away");
  remove->callback([&line, options] {
    line.run = [options] {
      RemoveService(options->name);
      std::cout << "Removed the service " << options->name << ".\n";
      return 0;
    };
  });
  CLI::App* const run = add("run", "What the service control manager runs")->group("");
  line.TakePlant(*run, [&line, options] {
    RunService(options->name, [&] { return Follow(line.plant, *options); });
    return 0;
  });
  for (CLI::App* const command : {install, run}) {
    command
        ->add_option(
            "--log", options->log,
            "Where the service writes what it does; NAME.log when not given, where it is installed from")
        ->type_name("FILE");
  }
}

}  // namespace kx::tool
