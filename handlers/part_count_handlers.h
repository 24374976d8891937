#pragma once

#include <string>

#include "handlers/log_item.h"
#include "session/session.h"

namespace kx {

// Good parts were made, as many as the parameter says: a fraction is rounded, halves to even; no number, and
// a whole number below 1, count as 1. Starts a part first when none runs. Message 121.
bool DoGoodPartCount(Session& session, const MdcLogItem& item, std::string& error);

// Parts were scrapped: "quantity" or "quantity.code". A negative quantity takes the parts from the good ones.
// An unknown code is kept as it is. Starts a part first when none runs. Message 122.
bool DoScrappedPartCount(Session& session, const MdcLogItem& item, std::string& error);

}  // namespace kx
