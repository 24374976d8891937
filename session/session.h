#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "database/connection.h"
#include "database/date_time.h"
#include "database/recordset.h"
#include "session/host.h"

namespace kx {

// The SQL dialect that the connected database is addressed in; any number is kept, these three are known.
enum class DatabaseType : std::int32_t { kOracle = 0, kAccess = 1, kSqlServer = 2 };

// One client's connection and the little that the component keeps in memory. All other state lives in the
// plant database. Every routine takes the session first. One caller at a time.
class Session {
 public:
  explicit Session(Host& host = ProcessHost())
      : connection(host.open_engine, {.pause = [&host](auto time) { WaitBriefly(host, time); }}),
        host_(host) {}

  DatabaseType database_type = DatabaseType::kOracle;
  bool trace_file_open = false;  // stays false while tracing is disabled
  Connection connection;

  // What a commit since this was last emptied left unknown; see CommitTransaction.
  std::string unknown_outcome;

  // The shifts that one machine may work, kept while one log item is processed; empty means every shift.
  std::vector<std::int32_t> machine_shift_ids;
  std::int32_t shift_cache_machine_id = -1;

  Host& host() { return host_; }

  // While one log item is processed: what was asked of the tables that the component never writes, by the
  // questions' texts. Nothing outside an item.
  std::optional<std::unordered_map<std::string, Rows>> master_data;

 private:
  Host& host_;
};

// Opens the connection under a new dialect, which stays in force when the connection fails. False: `error` is
// the database's description; on success `error` is left alone.
bool ConnectToDatabase(Session& session, std::string_view connection_string, std::int32_t database_type,
                       std::string& error);

// Whether the connection is open and the database answers a probe statement.
bool IsConnected(Session& session);

// Runs a statement; a failure is a DatabaseError.
void ExecuteSql(Session& session, std::string_view sql);

// Runs a statement. False when it fails: for the callers that judge the result themselves.
bool TryExecuteSql(Session& session, std::string_view sql);

// What came of a statement that may be tried again.
enum class Attempt {
  kDone,
  kFailed,    // nothing changed; the same can succeed later
  kHopeless,  // no further attempt helps, or it could do twice what may have been done
};

// Runs a statement in a transaction of its own. When it is not done `error` holds message 102 where no
// transaction could be begun or the link is lost, what is unknown where that is so, and is empty otherwise.
Attempt ExecuteSqlInTransaction(Session& session, std::string_view sql, std::string& error);

// A recordset on the rows of `sql`, on its first row.
Recordset OpenRecordset(Session& session, std::string_view sql);

// The same for a question about tables that the component never writes. Within one log item it is sent once;
// asked again, it has the answer that it had.
Recordset OpenMasterData(Session& session, std::string_view sql);

// Field 0 of the first row as text, empty when there is no row or the field is NULL.
std::string GetScalarText(Session& session, std::string_view sql);

// The database server's date and time; "Type mismatch" under an unknown dialect. Stored times come from here,
// never from the client's clock.
DateTime GetServerTime(Session& session);

// Waits until the clock has moved on by `milliseconds`, counted in whole seconds of the clock, and runs the
// yield hook meanwhile. A clock that is set back ends the wait.
void PauseMilliseconds(Session& session, std::int16_t milliseconds);

}  // namespace kx
