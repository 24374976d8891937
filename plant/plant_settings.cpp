#include "plant/plant_settings.h"

#include <cstring>
#include <filesystem>
#include <fstream>

#include "plant/platform.h"

namespace kx::tool {
namespace {

std::string Unquoted(const std::string& text) {
  const bool quoted =
      text.size() >= 2 && (text.front() == '"' || text.front() == '\'') && text.back() == text.front();
  return quoted ? text.substr(1, text.size() - 2) : text;
}

}  // namespace

PlantSettings ReadPlantSettings(const std::string& file) {
  std::ifstream input(ToPath(file));
  if (!input) throw ToolError(file + ": cannot be read: " + std::strerror(errno));
#ifndef _WIN32
  using std::filesystem::perms;
  if ((std::filesystem::status(ToPath(file)).permissions() & (perms::group_all | perms::others_all)) !=
      perms::none)
    throw ToolError(file + ": others than its owner may read it or write it; \"chmod 600\" ends that");
#endif
  PlantSettings settings;
  std::size_t number = 0;
  for (std::string line; std::getline(input, line);) {
    ++number;
    if (line.ends_with('\r')) line.pop_back();
    if (line.empty() || line.starts_with('#')) continue;
    const std::size_t equals = line.find('=');
    const std::string name = line.substr(0, equals);
    const std::string value = equals == std::string::npos ? "" : Unquoted(line.substr(equals + 1));
    if (name == "KXDATA7_PLANT" && !value.empty()) {
      settings.plant = value;
    } else if (name == "KXDATA7_DIALECT" && !value.empty()) {
      settings.dialect = value;
    } else {
      throw ToolError(file + ":" + std::to_string(number) +
                      ": is neither KXDATA7_PLANT= nor KXDATA7_DIALECT= with a value");
    }
  }
  if (settings.plant.empty()) throw ToolError(file + ": names no plant; it needs a line KXDATA7_PLANT=");
  return settings;
}

PlantOptions CurrentOptions(PlantOptions options) {
  if (!options.file.empty()) options.plant = ReadPlantSettings(options.file).plant;
  return options;
}

}  // namespace kx::tool
