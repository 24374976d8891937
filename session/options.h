#pragma once

#include "session/session.h"

namespace kx {

// Whether the site wants a job start to start the job's first part, and a job end to end the running part.
// Application 2, option 1 of T_SFC_OPTION; a missing row is an error.
bool GetOptionBool(Session& session);

}  // namespace kx
