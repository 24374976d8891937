#pragma once

#include <string>

#include "session/session.h"

namespace kx {

// Takes the oldest waiting event and works it into the plant's tables. True: applied, its row deleted. False:
// nothing waits, or the event stays at the head of the log and `error` says why; an empty text while rows
// wait means that it was applied but its row could not be deleted.
bool DoNextItemFromMDCLog(Session& session, std::string& error);

}  // namespace kx
