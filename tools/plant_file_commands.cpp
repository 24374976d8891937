#include <ctime>
#include <fstream>
#include <iostream>
#include <memory>

#include "plant/create.h"
#include "plant/plant_file.h"
#include "plant/platform.h"
#include "tools/command_line.h"

namespace kx::tool {
namespace {

struct Options {
  std::string file;
  bool demo = false;
  bool dry_run = false;
  bool prune = false;
  std::optional<DateTime> start;
};

std::string ReadFile(const std::string& name) {
  std::ifstream file(ToPath(name), std::ios::binary);
  std::string text(std::istreambuf_iterator<char>(file), {});
  if (!file) throw ToolError("\"" + name + "\" could not be read");
  return text;
}

// Says every problem of a file as FILE:LINE:COLUMN. Returns whether there is none.
bool IsGood(const std::string& file, const std::vector<Problem>& problems) {
  for (const Problem& problem : problems)
    std::cerr << file << ':' << problem.at.line << ':' << problem.at.column << ": " << problem.text << '\n';
  return problems.empty();
}

// The description in a file; nothing when there are problems, which are said.
std::optional<PlantDescription> ReadPlantFile(const std::string& file) {
  std::vector<Problem> problems;
  PlantDescription description = ParsePlantFile(ReadFile(file), PlantTime(std::time(nullptr)), problems);
  return IsGood(file, problems) ? std::optional(std::move(description)) : std::nullopt;
}

void Print(const Applied& applied) {
  for (const std::string& change : applied.changes) std::cout << change << '\n';
  if (applied.changes.empty()) std::cout << "nothing to change\n";
  for (const std::string& left : applied.stays)
    std::cout << "stays, though the file does not name it: " << left << '\n';
}

void PrintMissing(Plant& plant) {
  for (const std::string& missing : MissingForEvents(DescribePlant(plant)))
    std::cout << "missing before events go through: " << missing << '\n';
}

int Create(const PlantOptions& plant, const Options& options) {
  const DateTime start = StartOr(options.start);
  if (options.demo) {
    CreateDemoPlant(plant, start);
    std::cout << "The plant is ready, with the demo's machines.\n";
    return 0;
  }
  std::optional<PlantDescription> description;
  if (!options.file.empty() && !(description = ReadPlantFile(options.file))) return 1;
  const Applied applied = CreatePlant(plant, description ? &*description : nullptr, start);
  if (!IsGood(options.file, applied.problems)) return 1;
  if (description) Print(applied);
  std::cout << "The plant is ready.\n";
  Plant opened(plant);
  if (opened.db.target() != SqlTarget::kNative) PrintMissing(opened);
  return 0;
}

int Check(const std::string& file) {
  if (!ReadPlantFile(file)) return 1;
  std::cout << file << " has no problem.\n";
  return 0;
}

int Apply(const PlantOptions& options, const Options& apply) {
  const auto description = ReadPlantFile(apply.file);
  if (!description) return 1;
  Plant plant(options);
  plant.db.Begin();
  const Applied applied = ApplyDescription(plant, *description, StartOr(apply.start), apply.prune);
  if (!IsGood(apply.file, applied.problems)) return 1;
  Print(applied);
  PrintMissing(plant);
  if (apply.dry_run) {
    std::cout << "This was a dry run; the plant is as it was.\n";
  } else {
    plant.db.Commit();
  }
  return 0;
}

int Show(const PlantOptions& options) {
  Plant plant(options, OpenMode::kReadOnly);
  std::cout << WritePlantFile(DescribePlant(plant));
  return 0;
}

}  // namespace

void AddPlantFileCommands(CommandLine& line) {
  const auto options = std::make_shared<Options>();
  CLI::App* command =
      line.Command("create", "Creates what is missing of the tables and of what every plant needs",
                   [&line, options] { return Create(line.plant, *options); });
  CLI::Option* const demo = command->add_flag("--demo", options->demo, "Adds a small plant to work with");
  command->add_option("--from", options->file, "Brings the plant to what a file says, too")
      ->type_name("FILE")
      ->excludes(demo);
  AddStartOption(*command, options->start);

  command = line.Command("apply", "Makes the plant agree with a file, and says what it changes",
                         [&line, options] { return Apply(line.plant, *options); });
  command->add_option("FILE", options->file, "The file that describes the plant")->required();
  command->add_flag("--dry-run", options->dry_run, "Says it alone, and leaves the plant as it is");
  command->add_flag("--prune", options->prune, "Removes what the file does not name and nothing refers to");
  AddStartOption(*command, options->start);

  line.Command("show", "Prints the file that describes the plant", [&line] { return Show(line.plant); });

  command = line.app.add_subcommand("check", "Says every problem of a plant's file, without a plant");
  command->add_option("FILE", options->file, "The file")->required();
  command->callback([&line, options] { line.run = [options] { return Check(options->file); }; });
}

}  // namespace kx::tool
