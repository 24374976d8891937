#pragma once

#include <string>

#include "handlers/log_item.h"
#include "session/session.h"

namespace kx {

// A downtime begins, closing whatever ran on the machine; or ends. A machine downtime is a status of the
// machine and its end changes nothing in any other status; a user downtime is booked beside it. The parameter
// of a start is the number of a downtime code; an unknown one is kept as it is. Messages 115 to 118.
bool DoMachineDowntimeStart(Session& session, const MdcLogItem& item, std::string& error);
bool DoMachineDowntimeEnd(Session& session, const MdcLogItem& item, std::string& error);
bool DoUserDowntimeStart(Session& session, const MdcLogItem& item, std::string& error);
bool DoUserDowntimeEnd(Session& session, const MdcLogItem& item, std::string& error);

}  // namespace kx
