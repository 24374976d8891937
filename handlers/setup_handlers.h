#pragma once

#include <string>

#include "handlers/log_item.h"
#include "session/session.h"

namespace kx {

// A setup or teardown begins, ending whatever ran on the machine, downtimes of every type included; or ends,
// leaving the machine idle. An end changes nothing unless its start set the machine's status. Messages 111 to
// 114.
bool DoSetupStart(Session& session, const MdcLogItem& item, std::string& error);
bool DoSetupEnd(Session& session, const MdcLogItem& item, std::string& error);
bool DoTeardownStart(Session& session, const MdcLogItem& item, std::string& error);
bool DoTeardownEnd(Session& session, const MdcLogItem& item, std::string& error);

}  // namespace kx
