#pragma once

#include <optional>
#include <string>

#include "plant/plant.h"

namespace kx::tool {

// The settings of a plant in a file of lines NAME="value", as the service manager reads them, too.
struct PlantSettings {
  std::string plant;                   // KXDATA7_PLANT
  std::optional<std::string> dialect;  // KXDATA7_DIALECT
};

// A ToolError when it cannot be read, when others than its owner may read it, or for a line that is none.
PlantSettings ReadPlantSettings(const std::string& file);

// The options with the plant as its settings name it now, where there are some.
PlantOptions CurrentOptions(PlantOptions options);

}  // namespace kx::tool
