#include <functional>
#include <iostream>
#include <memory>

#include "plant/backup.h"
#include "plant/copy.h"
#include "plant/grants.h"
#include "plant/progress.h"
#include "plant/purge.h"
#include "plant/schema_version.h"
#include "tools/command_line.h"

namespace kx::tool {
namespace {

struct Options {
  std::string file, target, account;
  bool programs = false;
  std::optional<DateTime> before;
  bool dry_run = false;
};

// What shows how far a work is, each of its steps by itself. What it shows goes with its last copy.
auto ShowSteps() {
  struct Step {
    std::string what;
    std::optional<Progress> progress;
  };
  return [step = std::make_shared<Step>()](std::string_view what, std::int64_t done, std::int64_t total) {
    if (what != step->what) step->progress.emplace(step->what = what, total);
    step->progress->Show(done);
  };
}

int Upgrade(const PlantOptions& options) {
  Plant plant(options);
  const auto done = Upgrade(plant);
  for (const std::string& line : done) std::cout << line << '\n';
  std::cout << (done.empty() ? "Nothing is missing.\n" : "The plant is up to date.\n");
  return 0;
}

int BackUp(const PlantOptions& options, const std::string& file) {
  const BackupContent content = BackUp(options, file, std::bind_front(ShowSteps(), "pages"));
  std::cout << "Backed up and verified: " << content.machines << " machines, " << content.records
            << " records, " << content.events << " events that wait.\n";
  return 0;
}

int Copy(const PlantOptions& from, const std::string& target) {
  PlantOptions to = from;
  to.plant = target;
  const CopyResult result = CopyPlant(from, to, ShowSteps());
  for (const std::string& thing : result.left_out)
    std::cout << "Left out, since no plant has it: " << thing << '\n';
  std::cout << "Copied and compared: " << result.rows << " rows of " << result.tables << " tables.\n";
  return 0;
}

int Purge(const PlantOptions& options, const Options& given) {
  Plant plant(options);
  const PurgeCount count =
      Purge(plant, {given.before->Date(), given.dry_run}, std::bind_front(ShowSteps(), "rows looked at"));
  std::cout << (given.dry_run ? "Would delete " : "Deleted ") << count.records << " records with "
            << count.downtimes << " downtimes and " << count.scrap << " scrap rows, and " << count.events
            << " events; " << count.kept << " records of before stay.\n";
  return 0;
}

int Grants(const PlantOptions& options, const Options& given) {
  Plant plant(options, OpenMode::kReadOnly);
  for (const std::string& statement : Grants(plant, options.dialect, given.account, given.programs))
    std::cout << statement << '\n';
  return 0;
}

}  // namespace

void AddLifeCommands(CommandLine& line) {
  const auto options = std::make_shared<Options>();
  line.Command("upgrade", "Brings a plant of an older version up to this one",
               [&line] { return Upgrade(line.plant); });

  CLI::App* command = line.Command("backup", "Writes an SQLite plant into a new file while others work on",
                                   [&line, options] { return BackUp(line.plant, options->file); });
  command->add_option("FILE", options->file, "The new file")->required();

  command =
      line.Command("copy", "Copies a plant with all its rows into an empty one, perhaps of another database",
                   [&line, options] { return Copy(line.plant, options->target); });
  command->add_option("TARGET", options->target, "The plant to copy into, which is made if need be")
      ->required();

  command = line.Command("purge", "Deletes complete records of before a day, with their events",
                         [&line, options] { return Purge(line.plant, *options); });
  AddTimeOption(*command, "--before", options->before, "The first day (chart date) that stays")->required();
  command->add_flag("--dry-run", options->dry_run, "Counts, and deletes nothing");

  command = line.Command("grants", "Prints the statements that give an account its rights",
                         [&line, options] { return Grants(line.plant, *options); });
  command->add_option("ACCOUNT", options->account, "The account of the database")->required();
  command->add_flag("--programs", options->programs, "For these programs, not for the component alone");
}

}  // namespace kx::tool
