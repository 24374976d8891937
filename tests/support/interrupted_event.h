#pragma once

#include <span>
#include <string>

#include "tests/support/plant.h"

namespace kx::test {

// An event that a test interrupts, and what has happened before it.
struct EventCase {
  const char* before;
  const char* event;
  // Whether a part of its work is committed by itself: an automatic part start or end, a job change before
  // its option is read, a step of a refresh.
  bool commits_in_steps = false;
  // Whether a database error may take its row off without its effect, as docs/processing.md says of it.
  bool row_may_go = false;
};

// One event of every shape: each way of replacing a record, a roll-over at a shift's end, automatic part
// start and end, a trapped failure, several commits.
std::span<const EventCase> EventCases();

// A plant at whose queue's head an event waits, as often as a test needs it.
class InterruptedEvent {
 public:
  InterruptedEvent(int database_type, const EventCase& event);

  // The plant as it was before the event. The component's connection and its statements stay.
  void Restore();
  // Holds what an interrupted call left against what it may leave, lets the event go through and holds its
  // effect against that of an undisturbed one. Returns whether the event was applied twice.
  bool CheckAndFinish();

  Plant plant;

 private:
  const EventCase event_;
  // Snapshots: untouched, applied, applied with its row still there, not applied with its row gone.
  std::string before_, after_, applied_with_row_, dropped_;
};

}  // namespace kx::test
