#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "plant/plant.h"

namespace kx::tool {

// Whether the component does more than read a table, in any case of letters.
bool IsWrittenByComponent(std::string_view table);

// The statements that give `account` of the plant's database what the component needs, and with
// `for_programs` what these programs need besides, in the SQL of that database. A ToolError where an account
// needs no rights in a database but in a file, or for a name that no statement there can carry.
std::vector<std::string> Grants(Plant& plant, std::int32_t dialect, std::string_view account,
                                bool for_programs);

}  // namespace kx::tool
