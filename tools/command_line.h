#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "plant/plant.h"

namespace kx::tool {

// The command line: what all commands share. Each group of commands adds its own and keeps its options in
// them; `run` is what the chosen command does, and its result the exit status.
class CommandLine {
 public:
  CommandLine();

  // Adds a command that works on a plant. Options that the action refers to live as long as the action.
  CLI::App* Command(CLI::App& parent, const char* name, const char* description, std::function<int()> action);
  CLI::App* Command(const char* name, const char* description, std::function<int()> action) {
    return Command(app, name, description, std::move(action));
  }
  // Adds the plant to a command of this kind, behind what it takes already.
  void TakePlant(CLI::App& command, std::function<int()> action);

  CLI::App app{"Machine data collection: events in, records out.", "kxdata7"};
  PlantOptions plant;
  std::function<int()> run;
  // What an option may be, where it is one of a few words: for shells that complete it.
  std::map<const CLI::Option*, std::vector<std::string>> choices;
};

void AddPlantCommands(CommandLine& line);
void AddInputCommands(CommandLine& line);
void AddSourceCommands(CommandLine& line);
void AddCollectCommand(CommandLine& line);
void AddProcessCommands(CommandLine& line);
void AddQueueCommands(CommandLine& line);
void AddViewCommands(CommandLine& line);
void AddLifeCommands(CommandLine& line);
void AddReportCommands(CommandLine& line);
void AddPlantFileCommands(CommandLine& line);
void AddServiceCommands(CommandLine& line);
void AddCalendarCommand(CommandLine& line);

CLI::Option* AddCsvFlag(CLI::App& listing, bool& csv);

// An option for a date or a date and time.
CLI::Option* AddTimeOption(CLI::App& command, const std::string& name, std::optional<DateTime>& time,
                           const std::string& description);

// The option --start of commands that add machines, and what it stands for.
CLI::Option* AddStartOption(CLI::App& command, std::optional<DateTime>& start);
DateTime StartOr(const std::optional<DateTime>& start);

// Says on the standard error what is not as it should be although the work was done; nothing for an empty
// text.
void Warn(const std::string& text);

// Says how many events are set aside, when there are any.
void MentionAside(Plant& plant);

}  // namespace kx::tool
