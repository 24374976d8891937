#pragma once

#include <string>

#include "handlers/log_item.h"
#include "session/session.h"

namespace kx {

// A job or operation begins or ends: the record is replaced. An unknown number is kept as it is. Messages 105
// to 108. With the site's option set a job start also starts the job's first part, after the job change is
// committed, and a job end first ends the running part.
bool DoJobStart(Session& session, const MdcLogItem& item, std::string& error);
bool DoJobEnd(Session& session, const MdcLogItem& item, std::string& error);
bool DoOpStart(Session& session, const MdcLogItem& item, std::string& error);
bool DoOpEnd(Session& session, const MdcLogItem& item, std::string& error);

}  // namespace kx
