#pragma once

#include <string>
#include <string_view>

#include "handlers/log_item.h"
#include "session/session.h"

namespace kx {

// A part begins on a machine: the record is replaced, and a running cycle counts as unfinished unless a job
// start made the part start. An unknown part number is kept as it is. Message 109.
bool DoPartStart(Session& session, const MdcLogItem& item, std::string_view part_number, std::string& error,
                 bool by_job = false);

// The part ends likewise. Message 110.
bool DoPartEnd(Session& session, const MdcLogItem& item, std::string& error);

// Starts a part without a number when none runs on the machine. False: that failed, `error` says why.
bool EnsurePartRuns(Session& session, const MdcLogItem& item, std::string& error);

}  // namespace kx
