#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "tools/plant.h"

namespace kx::tool {

// The commands of the tool. Each prints what it did or found on the standard output and raises what it could
// not do; the result is the exit status.

struct AppendOptions {
  std::int32_t machine = 0;
  std::string event;
  std::string param;
  std::optional<std::int32_t> dept, location, group;  // not given: where the machine's record says
};
int Append(const PlantOptions& options, const AppendOptions& event);

struct ImportOptions {
  std::string file;
  std::optional<std::int32_t> machine;  // of lines that name none
  std::string format;                   // "csv", "shdr", or empty: by the file's name
};
// 1 when lines were refused; the others are queued all the same.
int Import(const PlantOptions& options, const ImportOptions& import);

// Works off the first event or, with `all`, all that wait when it begins.
int Process(const PlantOptions& options, bool all);

// Shows what the event in row `row` of the queue, or the first one, will change, by a trial on a copy.
int Explain(const PlantOptions& options, std::optional<std::int32_t> row);

int ListQueue(const PlantOptions& options, bool csv);
int ListStatus(const PlantOptions& options, bool csv);

struct RecordFilter {
  std::optional<std::int32_t> machine;
  std::optional<DateTime> day;  // the chart date
};
int ListRecords(const PlantOptions& options, const RecordFilter& filter, bool csv);

// One waiting event, as an operator reads it.
struct QueuedEvent {
  std::int32_t row;
  std::int32_t command_id;  // -1: refresh
  std::int32_t type_code;
  std::int32_t time_code;
  std::int32_t machine_id;
  std::string time;
  std::string param;

  std::string Name() const;         // "cycle start"
  std::string Description() const;  // "row 7 (cycle start, machine 3, 2026-01-12 06:00:00)"
};
// The events that wait, or the first one alone.
std::vector<QueuedEvent> ReadQueue(Plant& plant, bool first_only = false);

std::string StatusName(const Value& status_code);

}  // namespace kx::tool
