#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "plant/plant.h"

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
// Shows the first event of the queue, why it does not go through, and how many wait behind it.
int ShowHead(const PlantOptions& options);

// Moves the event in row `row` out of the queue, with `reason` or, where that is empty and a trial can be
// made, the error that keeps it there. Nothing is moved when the row does not wait.
int SetAside(const PlantOptions& options, std::int32_t row, const std::string& reason);
// Moves it back to the place in the queue that it had.
int PutBack(const PlantOptions& options, std::int32_t row);
int ListAside(const PlantOptions& options, bool csv);

int ListStatus(const PlantOptions& options, bool csv);

struct RecordFilter {
  std::optional<std::int32_t> machine;
  std::optional<DateTime> day;  // the chart date
};
int ListRecords(const PlantOptions& options, const RecordFilter& filter, bool csv);

// Examines the plant, its tables and what the component writes there, a line a finding. 1 when something is
// missing or fails.
int Doctor(const PlantOptions& options);

// Registers the component for clients that give no file, or takes the registration back.
int Register(const PlantOptions& options, bool remove);

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
// The events that wait.
std::vector<QueuedEvent> ReadQueue(Plant& plant);
// The event in row `row` of the queue, or the first one; nothing when it does not wait.
std::optional<QueuedEvent> ReadQueuedEvent(Plant& plant, std::optional<std::int32_t> row = {});

// What would keep the event in row `row` in the queue if it were worked in now, ahead of all others; empty:
// nothing would. Tried on a copy of the plant, so nothing is returned for a plant that cannot be copied.
std::optional<std::string> TrialError(const PlantOptions& options, std::int32_t row);

// Says how many events are set aside, when there are any.
void MentionAside(Plant& plant);

std::string StatusName(const Value& status_code);

}  // namespace kx::tool
