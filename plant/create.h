#pragma once

#include "plant/apply.h"

namespace kx::tool {

// Creates what is missing of the tables and of what every plant needs, and with a description brings the
// plant to that, in one transaction. With problems nothing is done.
Applied CreatePlant(const PlantOptions& options, const PlantDescription* description, DateTime start);

// Creates the demo plant where no plant is in use, its machines starting at `start`.
void CreateDemoPlant(const PlantOptions& options, DateTime start);

}  // namespace kx::tool
