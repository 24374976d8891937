#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "plant/plant_description.h"

namespace kx::tool {

// Reads a plant's file. Every problem of the text and of what it describes is added to `problems`, in the
// order of their places; without any the description is whole. A machine must not start later than a day
// after `now`.
PlantDescription ParsePlantFile(std::string_view text, DateTime now, std::vector<Problem>& problems);

// The file that describes a plant as it is. What cannot be said there is in its comments.
std::string WritePlantFile(PlantDescription plant);

// The lines of a source's mapping in a machine's entry.
std::string MappingText(const NamedValues& mapping);

// Whether a machine may start then: not in the future, nor before there were such plants.
bool IsPossibleStart(DateTime start, DateTime now);

}  // namespace kx::tool
