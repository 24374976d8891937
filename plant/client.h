#pragma once

#include <KXData7.h>

#include "plant/plant.h"

namespace kx::tool {

// The component of the options: given by name, beside the program, where an installation has it, or as
// registered.
kxdata7::Library FindLibrary(const PlantOptions& options);

// The component, connected to the plant. A ToolError when it cannot be.
kxdata7::Client ConnectComponent(const PlantOptions& options);

// The database's clock.
DateTime ServerTime(kxdata7::Client& component);

}  // namespace kx::tool
