#pragma once

#include <vector>

#include "plant/health.h"
#include "plant/schema_tables.h"

namespace kx::tool {

// What of the tables is not as the schema makes it, and keeps or changes what is written: views, triggers,
// computed columns.
std::vector<Finding> ExamineObjects(Plant& plant);

// The values that are not what their columns say, with which nothing goes on: dates that are none or out of
// range, texts where numbers belong.
std::vector<Finding> ExamineValues(Plant& plant, const std::vector<TableSchema>& tables);

}  // namespace kx::tool
