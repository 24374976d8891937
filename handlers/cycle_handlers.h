#pragma once

#include <cstdint>
#include <string>

#include "handlers/log_item.h"
#include "session/session.h"

namespace kx {

// Whether the machine's state keeps cycles from being counted: a setup or teardown when the site's options
// say so, a downtime when its code says so.
bool IsCycleLocked(Session& session, std::int32_t machine_id);

// A cycle begins: whatever ran on the machine ends, an open cycle counts as unfinished. Starts a part first
// when none runs. Message 119. Changes nothing while cycles are locked.
bool DoCycleStart(Session& session, const MdcLogItem& item, std::string& error);

// The cycle that runs is finished; the machine is idle. Message 120. Changes nothing while cycles are locked
// or none runs.
bool DoCycleEnd(Session& session, const MdcLogItem& item, std::string& error);

}  // namespace kx
