#include <chrono>
#include <iostream>
#include <memory>

#include "database/ascii.h"
#include "inputs/collector.h"
#include "inputs/probe.h"
#include "plant/plant_settings.h"
#include "plant/platform.h"
#include "plant/service_line.h"
#include "plant/service_notify.h"
#include "plant/stop_signal.h"
#include "tools/command_line.h"

namespace kx::tool {
namespace {

struct Collecting {
  std::string spool, record;
  std::int64_t days = SpoolLimits{}.days;
  std::int64_t megabytes = SpoolLimits{}.bytes >> 20;
  bool check = false;
};

// Beside a plant that is a file, under whatever name it is given.
std::filesystem::path SpoolBeside(const PlantOptions& options) {
  const auto connection = ConnectionString::Parse(PlantConnectionString(options.plant));
  const std::string* const provider = connection.Find("provider");
  const std::string* const file = connection.Find("data source");
  if (provider == nullptr || !EqualsIgnoringCase(*provider, "SQLite") || file == nullptr)
    throw ToolError("a plant on a server needs a folder for the spool: --spool DIR");
  std::error_code ignored;
  return std::filesystem::weakly_canonical(ToPath(*file), ignored) += "-spool";
}

CollectOptions OptionsOf(const PlantOptions& options, const Collecting& collecting) {
  CollectOptions collect;
  collect.plant = [&options] { return CurrentOptions(options); };
  collect.spool = collecting.spool.empty() ? SpoolBeside(options) : ToPath(collecting.spool);
  collect.record = collecting.record;
  collect.limits = {collecting.days, collecting.megabytes << 20};
  return collect;
}

int Collect(const PlantOptions& options, const Collecting& collecting) {
  if (collecting.check) {
    Plant plant(options, OpenMode::kReadOnly);
    return CheckSources(plant, std::cout) ? 0 : 1;
  }
  StopSignal stop(StopSignal::Hangup::kReopens);
  ServiceNotify service;
  Collector collector(OptionsOf(options, collecting), std::cout, std::cerr);
  std::chrono::steady_clock::time_point next_status{};
  bool ready = false;
  collector.Run([&] {
    if (!std::exchange(ready, true)) {
      service.Ready();
      std::cout << ServiceLine("Listens to the machines.") << std::endl;
    }
    if (stop.TakeReopen()) collector.Reload();
    if (stop.requested()) collector.Stop();
    service.Alive();
    if (std::chrono::steady_clock::now() < next_status) return;
    next_status = std::chrono::steady_clock::now() + std::chrono::seconds(1);
    service.Status(collector.Status());
  });
  service.Stopping();
  std::cout << ServiceLine("Stopped; " + collector.Status() + ".") << std::endl;
  return 0;
}

}  // namespace

void AddCollectCommand(CommandLine& line) {
  const auto options = std::make_shared<Collecting>();
  CLI::App* const collect = line.Command("collect", "Listens to the machines that speak for themselves",
                                         [&line, options] { return Collect(line.plant, *options); });
  collect
      ->add_option("--spool", options->spool,
                   "The folder for events that the plant has not taken yet; beside a plant that is a file,\n"
                   "with -spool behind its name, when not given")
      ->type_name("DIR");
  collect
      ->add_option("--spool-days", options->days, "How long an event may wait there before no more are taken")
      ->type_name("DAYS")
      ->check(CLI::Range(1, 3650))
      ->capture_default_str();
  collect->add_option("--spool-size", options->megabytes, "How large it may become, in megabytes")
      ->type_name("MB")
      ->check(CLI::Range(1, 1'000'000))
      ->capture_default_str();
  collect
      ->add_option("--record", options->record,
                   "Writes all that comes in behind what the file holds, for import to make the same of it")
      ->type_name("FILE");
  collect->add_flag("--check", options->check,
                    "Tries every source, says what it found, and ends; 1 when one cannot be used");
  collect->footer(
      "It stays until it is told to stop. HUP makes it open the plant and read the sources anew.");
}

}  // namespace kx::tool
