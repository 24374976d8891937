#pragma once

#include <string>

#include "handlers/log_item.h"
#include "session/session.h"

namespace kx {

// A command of the site's own starts, ends, or starts and ends at once. Only the machine's events change.
// Messages 123 to 125.
bool DoCustomStart(Session& session, const MdcLogItem& item, std::string& error);
bool DoCustomEnd(Session& session, const MdcLogItem& item, std::string& error);
bool DoCustomBoth(Session& session, const MdcLogItem& item, std::string& error);

}  // namespace kx
