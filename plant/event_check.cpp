#include "plant/event_check.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <vector>

#include "database/ascii.h"
#include "database/text.h"
#include "plant/near_name.h"

namespace kx::tool {
namespace {

namespace command_type = kxdata7::command_type;

// Where the plant lists what the parameter of a command names.
struct Names {
  std::int32_t command_type;
  const char* noun;
  const char* table;
  const char* column;
};
constexpr std::array<Names, 7> kNames = {{
    {command_type::kLogon, "operator", "T_SFC_USER", "USER_NAME"},
    {command_type::kJob, "job", "T_SFC_JOB", "JOB_NUMBER"},
    {command_type::kPart, "part", "T_SFC_PART", "PART_NUMBER"},
    {command_type::kOperation, "operation", "T_SFC_OP", "OP_NUMBER"},
    {command_type::kMachineDowntime, "downtime code", "T_SFC_DOWNTIME_CODE", "DOWNTIME_CODE_NUMBER"},
    {command_type::kUserDowntime, "downtime code", "T_SFC_DOWNTIME_CODE", "DOWNTIME_CODE_NUMBER"},
    {command_type::kScrappedPartCount, "scrap code", "T_SFC_SCRAP_CODE", "SCRAP_CODE_NUMBER"},
}};

std::vector<std::string> TextsOf(const Rows& rows) {
  std::vector<std::string> texts;
  for (std::size_t i = 0; i < rows.count(); ++i) texts.push_back(rows.at(i, 0).ToTextOr(""));
  return texts;
}

}  // namespace

std::int32_t MachineNumber(Plant& plant, const std::string& given) {
  std::int32_t number = 0;
  const auto [end, error] = std::from_chars(given.data(), given.data() + given.size(), number);
  if (error == std::errc() && end == given.data() + given.size()) return number;
  const Rows machines = plant.Run("select MACHINE_NAME, MACHINE_ID from T_SFC_MACHINE order by MACHINE_ID");
  const std::vector<std::string> names = TextsOf(machines);
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (EqualsIgnoringCase(names[i], given))
      return plant.NumberOf("T_SFC_MACHINE", machines.at(i, 1).ToInt32());
  }
  throw ToolError(Concat("there is no machine \"", given, "\"", DidYouMean(given, names)));
}

void RequireKnownParam(Plant& plant, std::int32_t command_type, const std::string& param) {
  const auto* const names = std::ranges::find(kNames, command_type, &Names::command_type);
  if (names == kNames.end()) return;
  const bool scrap = command_type == command_type::kScrappedPartCount;
  const std::size_t point = param.find('.');
  const std::string name = !scrap ? param : point == std::string::npos ? "" : param.substr(point + 1);
  if (name.empty()) return;
  const std::string select = Concat("select ", names->column, " from ", names->table);
  if (plant.Run(Concat(select, " where ", names->column, " = ?"), {name}).count() > 0) return;
  const std::vector<std::string> known = TextsOf(plant.Run(select));
  if (known.empty()) return;
  const std::string nearest = DidYouMean(name, known);
  throw ToolError(Concat("there is no ", names->noun, " \"", name, "\"", nearest,
                         nearest.empty() ? "; --unchecked queues it all the same" : ""));
}

}  // namespace kx::tool
