#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "plant/plant.h"

namespace kx::tool {

// What a backup holds, as it was found when it was opened again.
struct BackupContent {
  std::int64_t machines;
  std::int64_t records;
  std::int64_t events;  // that wait
};

// Writes the plant, as it is now, into the new file `file` while others work on. The file comes into being
// whole and tested: until then it has the name FILE.part, which a broken backup leaves behind and the next
// one overwrites. Raises ToolError or DatabaseError; a plant on a server is refused with what to do instead.
BackupContent BackUp(const PlantOptions& options, const std::string& file,
                     const std::function<void(std::int64_t done, std::int64_t total)>& progress);

}  // namespace kx::tool
