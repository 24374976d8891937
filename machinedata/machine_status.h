#pragma once

#include <cstdint>

#include "session/session.h"

namespace kx {

// STATUS_CODE of T_SFC_MACHINE.
enum class MachineStatus : std::int32_t { kIdle = 0, kSetup = 1, kInCycle = 2, kDowntime = 3, kTeardown = 4 };

// A missing machine is a DatabaseError. Events have the status from GetCurrentMachine, without a question of
// its own.
MachineStatus GetMachineStatus(Session& session, std::int32_t machine_id);
void SetMachineStatus(Session& session, std::int32_t machine_id, MachineStatus status, DateTime status_date);

}  // namespace kx
