#include <algorithm>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <optional>

#include "plant/advice.h"
#include "plant/near_name.h"
#include "plant/plant_settings.h"
#include "plant/platform.h"
#include "tools/command_line.h"
#include "tools/completion.h"
#include "tools/manual.h"
#include "views/terminal.h"

namespace {

using kx::tool::CommandLine;

// How many arguments a command takes before its plant.
std::size_t CountBeforePlant(const CLI::App& command) {
  std::size_t count = 0;
  for (const CLI::Option* option : command.get_options()) {
    if (option->get_positional() && option->get_name() == "PLANT") return count;
    if (option->get_positional()) ++count;
  }
  return 0;
}

// How far the arguments name a command and what it takes before its plant; 0: they name none.
std::size_t EndOfCommand(const CLI::App& all, const std::vector<std::string>& arguments) {
  const CLI::App* app = &all;
  std::size_t end = 0;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const auto commands =
        app->get_subcommands([&](const CLI::App* each) { return each->check_name(arguments[i]); });
    if (commands.empty() && end != 0) break;
    if (commands.empty()) continue;
    app = commands.front();
    end = i + 1;
  }
  return end == 0 ? 0 : std::min(end + CountBeforePlant(*app), arguments.size());
}

// The plant, where it is given beside the arguments: by --plant-file, whose dialect joins them, or by the
// environment.
std::optional<std::string> PlantBesideArguments(std::vector<std::string>& arguments) {
  const std::string option = "--plant-file";
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const bool joined = arguments[i].starts_with(option + "=");
    if (!joined && (arguments[i] != option || i + 1 == arguments.size())) continue;
    const auto file =
        kx::tool::ReadPlantSettings(joined ? arguments[i].substr(option.size() + 1) : arguments[i + 1]);
    if (file.dialect) arguments.insert(arguments.begin(), "--dialect=" + *file.dialect);
    return file.plant;
  }
  const char* const plant = std::getenv("KXDATA7_PLANT");
  return plant == nullptr || *plant == '\0' ? std::nullopt : std::optional<std::string>(plant);
}

void Parse(CommandLine& line, std::vector<std::string> arguments) {
  std::ranges::reverse(arguments);  // as the parser takes them
  line.app.parse(std::move(arguments));
}

int Finish(const CommandLine& line) {
  const int status = line.run();
  if (!std::cout.flush()) throw kx::tool::ToolError("the output could not be written");
  return status;
}

// What is wrong when the arguments name no command; empty: they do.
std::string NoCommand(const CLI::App& app, const std::vector<std::string>& arguments) {
  if (EndOfCommand(app, arguments) != 0) return {};
  const auto given =
      std::ranges::find_if(arguments, [](const std::string& text) { return !text.starts_with('-'); });
  if (given == arguments.end()) return "no command is given; \"kxdata7 --help\" lists them";
  std::vector<std::string> names;
  for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; }))
    names.push_back(command->get_name());
  const std::string nearest = kx::tool::DidYouMean(*given, names);
  return "there is no command \"" + *given + '"' +
         (nearest.empty() ? "; \"kxdata7 --help\" lists them" : nearest);
}

// Requests that no person makes: those of shells and of the build.
std::optional<int> ForPrograms(const std::vector<std::string>& arguments) {
  if (arguments.empty()) return std::nullopt;
  if (arguments[0] == "--complete")
    return kx::tool::Complete(CommandLine(), {arguments.begin() + 1, arguments.end()});
  if (arguments[0] == "--manual" && arguments.size() == 2)
    return kx::tool::WriteManual(CommandLine().app, arguments[1]);
  return std::nullopt;
}

int Run(std::vector<std::string> arguments) {
  if (const auto status = ForPrograms(arguments)) return *status;
  if (const auto plant = PlantBesideArguments(arguments)) {
    // As if it stood behind the command. When there is one too many then, it was given there.
    CommandLine line;
    std::vector<std::string> whole = arguments;
    if (const std::size_t end = EndOfCommand(line.app, arguments); end != 0)
      whole.insert(whole.begin() + static_cast<std::ptrdiff_t>(end), *plant);
    bool parsed = true;
    try {
      Parse(line, std::move(whole));
    } catch (const CLI::ParseError&) {
      parsed = false;
    }
    if (parsed) return Finish(line);
  }
  CommandLine line;
  try {
    Parse(line, arguments);
  } catch (const CLI::ParseError& error) {
    const std::string wrong = error.get_exit_code() == 0 ? "" : NoCommand(line.app, arguments);
    if (wrong.empty()) return line.app.exit(error) == 0 ? 0 : 2;
    std::cerr << "kxdata7: " << wrong << '\n';
    return 2;
  }
  return Finish(line);
}

}  // namespace

int main(int argc, char** argv) {
  const kx::tool::TerminalStream error_output(std::cerr);
  std::optional<kx::tool::TerminalStream> output;
  if (kx::tool::IsOutputATerminal()) output.emplace(std::cout);
  try {
    return Run(kx::tool::Arguments(argc, argv));
  } catch (const std::exception& error) {
    std::string text = kx::tool::WithAdvice(error.what());
    std::ranges::replace_if(
        text, [](char c) { return c == '\n' || c == '\r'; }, ' ');
    std::cout.flush();
    std::cerr << "kxdata7: " << text << '\n';
    return 1;
  }
}
