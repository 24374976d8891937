#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "plant/plant.h"

namespace kx::tool {

// Copies the plant to `file`. False: it is no plant that can be copied.
bool CopyPlant(const PlantOptions& options, const std::string& file);

// The same plant in another file, by internal ids.
PlantOptions InFile(const PlantOptions& options, std::string file);

// What would keep the event in row `row` in the queue if it were worked in now, ahead of all others; empty:
// nothing would. Tried on a copy of the plant, so nothing is returned for a plant that cannot be copied.
std::optional<std::string> TrialError(const PlantOptions& options, std::int32_t row);

}  // namespace kx::tool
