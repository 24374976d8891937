#pragma once

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>

#include "plant/plant.h"

namespace kx::tool {

// The machines and what they do.
void PrintStatus(Plant& plant, std::ostream& output, bool csv);

struct RecordFilter {
  std::optional<std::int32_t> machine;
  std::optional<DateTime> day;  // the chart date
};
void PrintRecords(Plant& plant, const RecordFilter& filter, std::ostream& output, bool csv);

// What STATUS_CODE of a machine says.
std::string StatusName(const Value& status_code);

}  // namespace kx::tool
