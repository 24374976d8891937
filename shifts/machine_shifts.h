#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "session/session.h"

namespace kx {

// The shifts that a machine may work: those of its T_SFC_MACHINE_SHIFT rows, every shift when it has none.

// Keeps a machine's list in the session, until another machine's is asked for.
void LoadMachineShifts(Session& session, std::int32_t machine_id);

// Asks the list in the session.
bool IsShiftAllowedForMachine(const Session& session, std::int32_t shift_id);

// Wraps a query whose rows have a SHIFT_ID, named s, so that only the shifts of a machine remain.
std::string AddMachineShiftFilter(const Session& session, std::string_view sql, std::int32_t machine_id);

}  // namespace kx
