#pragma once

#include "plant/plant.h"

namespace kx::tool {

// Examines the plant, its tables and what the component writes there, a line a finding. 1 when something is
// missing or fails. With `repair` it first shows and does the repairs that are certain, in one transaction.
int Doctor(const PlantOptions& options, bool repair);

}  // namespace kx::tool
