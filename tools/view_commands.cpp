#include <iostream>
#include <memory>

#include "tools/command_line.h"
#include "views/listings.h"

namespace kx::tool {
namespace {

struct Options {
  bool csv = false;
  RecordFilter filter;
};

}  // namespace

void AddViewCommands(CommandLine& line) {
  const auto options = std::make_shared<Options>();
  AddCsvFlag(*line.Command("status", "Lists the machines and what they do",
                           [&line, options] {
                             Plant plant(line.plant, OpenMode::kReadOnly);
                             PrintStatus(plant, std::cout, options->csv);
                             if (!options->csv) MentionAside(plant);
                             return 0;
                           }),
             options->csv);

  CLI::App* const records = line.Command("records", "Lists the records", [&line, options] {
    Plant plant(line.plant, OpenMode::kReadOnly);
    PrintRecords(plant, options->filter, std::cout, options->csv);
    return 0;
  });
  records->add_option("--machine", options->filter.machine, "Of this machine");
  AddTimeOption(*records, "--day", options->filter.day, "Booked on this day (chart date), as YYYY-MM-DD");
  AddCsvFlag(*records, options->csv);
}

}  // namespace kx::tool
