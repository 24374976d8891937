#pragma once

#include <string>
#include <vector>

#include "plant/plant.h"
#include "plant/plant_description.h"

namespace kx::tool {

// What bringing a plant to a description changed, a line each, and what it left.
struct Applied {
  std::vector<std::string> changes;
  std::vector<std::string> stays;  // what the description does not name
  std::vector<Problem> problems;   // where the description and the plant do not go together
};

// Within the caller's transaction: makes the plant agree with a description that CheckDescription found good.
// What the description does not name stays, or with `prune` goes if nothing refers to it. Machines that are
// added start at `start` unless they say otherwise. With problems the caller rolls back.
Applied ApplyDescription(Plant& plant, const PlantDescription& description, DateTime start, bool prune);

// Within the caller's transaction: adds the standard commands that are missing.
void AddStandardCommands(Plant& plant);

// Raises a ToolError for a machine that CheckDescription would not let through in the plant as it is.
void RequireGoodMachine(Plant& plant, const NewMachine& machine);

}  // namespace kx::tool
