#pragma once

#include <cstdint>
#include <string>

#include "machinedata/machine_status.h"
#include "session/session.h"
#include "shifts/shift_info.h"

namespace kx {

// Closes the machine's records whose shift ended before `moment` and opens their successors, one for each
// shift and for each day on which no shift works. Each step commits by itself when `use_transactions` is set.
// False: a transaction could not be begun or committed; the steps before stay. A calendar that stands still
// is an error.
bool HandleExpiredShifts(Session& session, std::int32_t machine_id, DateTime moment, bool use_transactions);

// A machine after its expired shifts were closed: the key of its current record, and its status.
struct CurrentMachine {
  std::int32_t machine_data_id;
  MachineStatus status;
};

// The machine as of `time`.
CurrentMachine GetCurrentMachine(Session& session, std::int32_t machine_id, DateTime time);
std::int32_t GetCurrentMachineDataID(Session& session, std::int32_t machine_id, DateTime time);

// The shift that a machine works at `moment` without a user. Without a shift it lasts from the moment on
// until HandleExpiredShifts would end a record that began then.
ShiftInfo GetShiftAt(Session& session, std::int32_t machine_id, DateTime moment);

// Closes the expired shifts of every machine as of the server's time. False: message 101 is in `error`; the
// machines handled before stay handled.
bool RefreshMachineStatus(Session& session, std::string& error);

}  // namespace kx
