#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "plant/plant.h"
#include "plant/setting.h"

namespace kx::tool {

// The version of the tables that these programs know. 1: the component's tables; 2: the programs' own, too.
// The component runs on every version.
inline constexpr std::int32_t kSchemaVersion = 2;

// The plant's version: 1 when it names none.
std::int32_t ReadSchemaVersion(Plant& plant);
void WriteSchemaVersion(Plant& plant, std::int32_t version);
// Raises a ToolError for a plant of a newer version than these programs know.
void RequireKnownVersion(Plant& plant);
// Raises a ToolError for a plant of an older version, which lacks tables that the command needs.
void RequireCurrentVersion(Plant& plant);

// Within the caller's transaction: adds tables, columns, indexes and rows that are missing, and takes the
// steps from the plant's version to the current one. Returns what was done, a line each. A ToolError on a
// database whose tables are loaded by its own tools.
std::vector<std::string> BringUpToDate(Plant& plant);
// The same for a plant of before, in one transaction. A ToolError for a database that is no plant.
std::vector<std::string> Upgrade(Plant& plant);

}  // namespace kx::tool
