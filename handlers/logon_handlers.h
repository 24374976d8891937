#pragma once

#include <string>

#include "handlers/log_item.h"
#include "session/session.h"

namespace kx {

// An operator logs on or off: the record is replaced, and takes the shift that the calendar gives for that
// operator, or for nobody. An unknown name is kept as it is. Messages 103 and 104.
bool DoLogonStart(Session& session, const MdcLogItem& item, std::string& error);
bool DoLogonEnd(Session& session, const MdcLogItem& item, std::string& error);

}  // namespace kx
