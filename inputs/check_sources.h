#pragma once

#include <chrono>
#include <iosfwd>

#include "inputs/links.h"
#include "plant/plant.h"

namespace kx::tool {

// Tries every source of the plant at once and says of each what it found, a line each. They have `limit` to
// answer, and then `listen` to tell something. False when one cannot be used.
bool CheckSources(Plant& plant, std::ostream& out, const LinkSettings& settings = {},
                  std::chrono::milliseconds limit = std::chrono::seconds(10),
                  std::chrono::milliseconds listen = std::chrono::seconds(2));

}  // namespace kx::tool
