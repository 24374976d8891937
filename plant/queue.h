#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "plant/events.h"
#include "plant/plant.h"

namespace kx::tool {

// One event of the queue, as an operator reads it.
struct QueuedEvent {
  std::int32_t row;
  std::int32_t command_id;  // -1: refresh
  std::int32_t type_code;   // -1: the command is gone
  std::int32_t time_code;
  std::int32_t machine_id;
  std::string time;
  std::string param;

  std::string Name() const;         // "cycle start"
  std::string Description() const;  // "row 7 (cycle start, machine 3, 2026-01-12 06:00:00)"
};

// The events that wait, in order.
std::vector<QueuedEvent> ReadQueue(Plant& plant);
// The event in row `row` of the queue, or the first one; nothing when it does not wait.
std::optional<QueuedEvent> ReadQueuedEvent(Plant& plant, std::optional<std::int32_t> row = {});
// How many wait behind row `row`.
std::int32_t CountBehind(Plant& plant, std::int32_t row);

// What an event needs and the plant lacks, and what to do about it; empty: nothing is known to be missing.
// The component's own error for such an event names no thing.
std::string MissingFor(Plant& plant, const QueuedEvent& event);

// Queues an event past the component, under its own time. A ToolError for one that could never be worked in.
void QueueEvent(Plant& plant, const Machine& machine, const NamedEvent& event, const std::string& param,
                DateTime time);
// Queues an event and takes it back: the component reports only after a minute of attempts that the queue
// takes nothing. A DatabaseError says why; a lock is none, and left to those attempts.
void TryToQueue(Plant& plant, const Machine& machine, const NamedEvent& event, const std::string& param);

// ---- Events set aside ----

struct AsideEvent {
  QueuedEvent event;
  std::string time;   // when it was set aside
  std::string error;  // what kept it in the queue, or the operator's reason
};
std::vector<AsideEvent> ReadAside(Plant& plant);
std::int32_t CountAside(Plant& plant);  // 0, too, in a plant without the table

// Moves a row out of the queue, and back to the place that it had, each in one transaction. False: the row is
// not there, perhaps not any more, and nothing has changed.
bool SetAside(Plant& plant, std::int32_t row, const std::string& error, DateTime now);
bool PutBack(Plant& plant, std::int32_t row);

}  // namespace kx::tool
