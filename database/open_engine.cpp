#include "database/ascii.h"
#include "database/database_error.h"
#include "database/engine.h"
#include "database/odbc_engine.h"
#include "database/sqlite_engine.h"

namespace kx {

std::unique_ptr<Engine> OpenEngine(const ConnectionString& connection_string, const Waiting& waiting) {
  const std::string* const provider = connection_string.Find("provider");
  if (provider != nullptr && EqualsIgnoringCase(*provider, "SQLite"))
    return OpenSqliteEngine(connection_string, waiting);
  if (provider != nullptr && !EqualsIgnoringCase(*provider, "MSDASQL")) throw UnknownProviderError();
  return OpenOdbcEngine(connection_string, waiting);
}

}  // namespace kx
