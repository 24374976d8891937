#pragma once

#include <memory>

#include "database/engine.h"

namespace kx {

// Opens the SQLite database of a connection string with `Provider=SQLite`:
//   Data Source=<file>         required; ":memory:" for a database of this link alone
//   Mode=ReadWrite             or ReadWriteCreate, which makes a missing file
//   Busy Timeout=<ms>          how long one attempt inside a transaction waits for another writer; 200
//   Synchronous=Full           or Normal
// An unknown keyword or value is an error that names it. A DatabaseError says why a file cannot be used.
std::unique_ptr<Engine> OpenSqliteEngine(const ConnectionString& connection_string,
                                         const Waiting& waiting = {});

}  // namespace kx
