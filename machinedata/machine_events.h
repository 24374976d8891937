#pragma once

#include <cstdint>
#include <string_view>

#include "session/session.h"

namespace kx {

// Where an event happened: the machine and the places it stands in.
struct MachinePlace {
  std::int32_t dept_id = -1;
  std::int32_t location_id = -1;
  std::int32_t group_id = -1;
  std::int32_t machine_id = -1;
};

// The events of a machine: a row of T_SFC_EVENT each, and one of T_SFC_MACHINE_EVENT while it runs, at most
// one per machine and command.

// Records an event as running. Errors reach the caller.
void StartMachineEvent(Session& session, const MachinePlace& place, std::int32_t command_id,
                       std::string_view param, DateTime start_time);

// Stops the running event of a command; none running is no failure. False: a database error.
bool StopMachineEvent(Session& session, std::int32_t machine_id, std::int32_t command_id, DateTime stop_time);

// Whether a part event runs on the machine.
bool MachineEventExists(Session& session, std::int32_t machine_id);

}  // namespace kx
