#pragma once

#include <iosfwd>
#include <string>
#include <string_view>

#include "views/numbers.h"
#include "views/table.h"

namespace kx::tool {

// What reports can be grouped by, for a help text: "machine-shift, machine, shift, …".
std::string ReportGroupings();

// Everything that a report is about.
struct PlantReport {
  Plant& plant;
  const Calendar& calendar;
  std::string plant_name;
  Scope scope;
};

// Sums by machine and shift ("" or "machine-shift") or by one of `ReportGroupings`; a ToolError for another
// name. The text says what it is about; in it times are h:min, in the other formats seconds.
void PrintReport(const PlantReport& report, std::string_view by, Format format, std::ostream& output);

// The rows behind a report.
void PrintDowntimes(const PlantReport& report, Format format, std::ostream& output);
void PrintScrap(const PlantReport& report, Format format, std::ostream& output);
// The events that began within the range, of every kind.
void PrintEvents(const PlantReport& report, Format format, std::ostream& output);

// The page: one self-contained HTML file, or, with `links`, as the server gives it, with its style beside it
// and links to other ranges. A ToolError for more than `kMostPageDays`.
inline constexpr std::int64_t kMostPageDays = 35;
std::string ReportPage(const PlantReport& report, bool links = false);

// The plant's name as it is kept there, else that of its file `source`, never a connection string.
std::string PlantName(Plant& plant, std::string_view source);

}  // namespace kx::tool
