#pragma once

#include <cstdint>

#include "machinedata/records.h"
#include "session/session.h"

namespace kx {

// Replaces a machine's current record when a cycle, setup or teardown starts in a new shift: the old one is
// closed but not prepared, so its open downtimes stay open. A running setup loses its total there and keeps
// its start: what then counts for the setup begins with the new record. Returns the new key.
std::int32_t RollOverRecord(Session& session, std::int32_t machine_id, Recordset& record,
                            ChangedItem changed_item, DateTime time);

}  // namespace kx
