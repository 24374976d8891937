#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "plant/plant.h"

namespace kx::tool {

struct CopyResult {
  std::int64_t tables = 0;
  std::int64_t rows = 0;
  std::vector<std::string> left_out;  // tables and columns of the source that no plant has
};

// Copies all tables of `from`, as they are at this moment, into the plant `to`, with their keys and key
// counters, and compares every row afterwards. Each of the two is on SQLite or PostgreSQL; others may work on
// `from` meanwhile. All of it is one transaction of `to`, tables included: until its end nothing has changed
// there, so that a copy which broke is simply made again. A ToolError for a target with a machine, a record
// or anything else of its own in it.
// `progress` is told of "rows copied" and then of "rows compared".
CopyResult CopyPlant(
    const PlantOptions& from, const PlantOptions& to,
    const std::function<void(std::string_view what, std::int64_t done, std::int64_t total)>& progress);

}  // namespace kx::tool
