#pragma once

#include <string>
#include <vector>

#include "tests/support/handler_cases.h"
#include "tests/support/plant.h"

namespace kx::test {

// An event of every handler, and a refresh over several shifts.
std::vector<HandlerCase> InterruptionCases();

// A plant at whose queue's head an event waits, as often as a test needs it.
class InterruptedEvent {
 public:
  InterruptedEvent(int database_type, const HandlerCase& handler, DatabaseKind kind = DatabaseKind::kSqlite);

  // The plant as it was before the event. The component's connection and its statements stay.
  void Restore() { plant.Restore(); }
  // Holds what an interrupted call left against what it may leave, lets the event go through and holds its
  // effect against that of an undisturbed one. Returns whether the event was applied twice.
  bool CheckAndFinish();

  Plant plant;

 private:
  const HandlerCase handler_;
  // Snapshots: untouched, applied, applied with its row still there, not applied with its row gone.
  std::string before_, after_, applied_with_row_, dropped_;
};

}  // namespace kx::test
