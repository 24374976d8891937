#pragma once

#include <cstdint>
#include <string>

#include "plant/events.h"
#include "plant/plant.h"

namespace kx::tool {

// ---- What is looked at before an event is queued, and the component does not ask ----

// The number of a machine that is given by its number or, in any case of letters, by its name. A ToolError
// when no machine has the name.
std::int32_t MachineNumber(Plant& plant, const std::string& given);

// Raises a ToolError when a parameter names an operator, job, part, operation or code that the plant does not
// list. Of what it lists none of, it takes any.
void RequireKnownParam(Plant& plant, std::int32_t command_type, const std::string& param);

}  // namespace kx::tool
