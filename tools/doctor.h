#pragma once

#include "plant/plant.h"

namespace kx::tool {

// Examines the plant, its tables and what the component writes there, a line a finding. 1 when something is
// missing or fails.
int Doctor(const PlantOptions& options);

}  // namespace kx::tool
