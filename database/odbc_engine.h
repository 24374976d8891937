#pragma once

#include <memory>

#include "database/engine.h"

namespace kx {

// Opens the database that a connection string names to ODBC: `DSN=…` or `Driver=…;Server=…;…`. The string
// goes to the driver as it stands but for `Provider`. A DatabaseError says why there is no link, without a
// password.
//
// Transactions are isolated as READ COMMITTED. Inside one a statement waits a second for another session's
// lock, where the system can be told so, and then fails as busy; outside, it is tried again for 12 seconds. A
// failed statement leaves its transaction as it was, unless the system gave the transaction up. A text that
// is not one statement is refused. A commit whose answer was lost with the link, or came with a warning that
// a standby may not have it, is an error of category kUnknownOutcome.
std::unique_ptr<Engine> OpenOdbcEngine(const ConnectionString& connection_string,
                                       const Waiting& waiting = {});

}  // namespace kx
