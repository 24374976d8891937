#pragma once

#include <cstdint>

#include "session/session.h"

namespace kx {

// When the next shift of a machine begins, strictly after `moment`. A shift that does not work on a day
// counts as beginning at the midnight that ends the day, unless a shift with a lower SHIFT_ID begins on that
// day. A machine without any shift is an error.
DateTime GetNextShiftStart(Session& session, DateTime moment, std::int32_t machine_id);

}  // namespace kx
