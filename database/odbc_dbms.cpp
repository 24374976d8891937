#include "database/odbc_dbms.h"

#include <algorithm>
#include <array>

#include "database/ascii.h"

namespace kx {
namespace {

// psqlodbc: parameters go within the statement's text, in one round trip with its savepoint; booleans come as
// numbers; results come whole instead of through a cursor.
constexpr std::array kPsqlodbcAttributes = {
    DriverAttribute{65540, 0},  // server-side prepare
    DriverAttribute{65545, 0},  // booleans as characters
    DriverAttribute{65539, 0},  // declare and fetch
};

constexpr std::array kSqlServerBusy = {
    1205,  // deadlock victim
    1222,  // lock wait over
    1204,  // no room for a further lock
    601,   // the rows moved under an unlocked read
};
constexpr std::array kSqlServerEnded = {
    1205,
    3930,  // the transaction cannot be committed any more
    3960,  // the row changed since the snapshot
    3998,  // such a transaction was found at the end of a batch
};

constexpr std::array kOracleBusy = {
    54,     // NOWAIT or the wait given ran out
    60,     // deadlock; the statement alone is undone
    30006,  // the wait given ran out
    1013,   // the statement's timeout
    51,     // timeout on a resource
    2049,   // timeout on a lock of a distributed transaction
};
constexpr std::array kOracleEnded = {
    2091,  // rolled back
};
constexpr std::array kOracleLost = {
    28,    1012,                // session ended, not logged on any more
    1033,  1034,  1089,  1090,  // the database starts, is down, or shuts down
    1092,  2396,                // ended with the database, idle for too long
    3113,  3114,  3135,         // end of file on the link, not connected, contact lost
    12537, 12570, 12571,        // the same, from the network layer
};

constexpr std::array kAccessBusy = {
    3008,
    3009,  // table opened exclusively, or cannot be locked
    3186,
    3187,
    3188,  // cannot save or read: locked
    3189,
    3202,  // table exclusively locked; cannot save
    3211,
    3212,  // table cannot be locked: in use
    3218,
    3260,
    3261,  // row or table locked
    // In the numbers of the database's core: row locked, file in use or locked, table in use.
    -1102,
    -1032,
    -1302,
    -1304,
    -1809,
};

constexpr std::array kSqliteBusy = {
    5,  // another connection writes
    6,  // table locked
};

constexpr std::array kSystems = {
    // Only with the statement-level rollback of protocol 7.4-2 does a failed statement leave its transaction
    // as it was; with the others a commit after a failure succeeds and keeps nothing or half.
    Dbms{.name = "PostgreSQL",
         .target = SqlTarget::kPostgres,
         .connect_option = "Protocol=7.4-2",
         .connect_option_default = "Protocol=7.4",
         .attributes = kPsqlodbcAttributes,
         .session_setup = "SET lock_timeout = '1s'; SET standard_conforming_strings = on; "
                          "SET SESSION CHARACTERISTICS AS TRANSACTION ISOLATION LEVEL READ COMMITTED",
         .brief_lock_wait = "SET lock_timeout = '10ms'",
         .usual_lock_wait = "SET lock_timeout = '1s'",
         .after_insert = " RETURNING {key}",
         .commit = "COMMIT",
         .deferring_condition = "set_config('synchronous_commit', 'off', true) = 'off'"},
    Dbms{.name = "Microsoft SQL Server",
         .session_setup = "SET LOCK_TIMEOUT 1000; SET DATEFORMAT mdy; SET NOCOUNT OFF; SET XACT_ABORT OFF",
         .brief_lock_wait = "SET LOCK_TIMEOUT 10",
         .usual_lock_wait = "SET LOCK_TIMEOUT 1000",
         .session_check = "SET NOCOUNT OFF; SELECT @@TRANCOUNT",
         .before_insert = "SET NOCOUNT ON; ",
         .after_insert = "; SELECT SCOPE_IDENTITY(); SET NOCOUNT OFF",
         .busy_codes = kSqlServerBusy,
         .ended_codes = kSqlServerEnded},
    // A literal takes 4,000 bytes and a parameter as many of national text, so a longer one could be queued
    // but
    // not worked in.
    Dbms{.name = "Oracle",
         .statement_timeout = 10,
         .key_query = "SELECT {sequence}.CURRVAL FROM DUAL",
         .longest_short_text = 2000,
         .longest_text = 2000,
         .busy_codes = kOracleBusy,
         .ended_codes = kOracleEnded,
         .lost_codes = kOracleLost},
    Dbms{.name = "ACCESS",
         .key_query = "SELECT @@IDENTITY",
         .longest_short_text = 255,
         .busy_codes = kAccessBusy},
    Dbms{.name = "SQLite",
         .target = SqlTarget::kSqlite,
         .key_query = "SELECT last_insert_rowid()",
         .commit_can_be_repeated = true,
         .time_as_text = true,
         .busy_codes = kSqliteBusy},
};

bool Contains(std::span<const std::int32_t> codes, std::int32_t code) {
  return std::ranges::find(codes, code) != codes.end();
}

void Replace(std::string& text, std::string_view marker, std::string_view value) {
  if (const std::size_t at = text.find(marker); at != std::string::npos)
    text.replace(at, marker.size(), value);
}

}  // namespace

const Dbms* FindDbms(std::string_view name) {
  const auto found =
      std::ranges::find_if(kSystems, [&](const Dbms& dbms) { return EqualsIgnoringCase(dbms.name, name); });
  return found == kSystems.end() ? nullptr : &*found;
}

std::string FillKeyNames(std::string_view text, std::string_view table, std::string_view key_column) {
  std::string filled(text);
  Replace(filled, "{key}", key_column);
  Replace(filled, "{sequence}", "S" + std::string(table.substr(1)));
  return filled;
}

bool IsBusy(const Dbms& dbms, const OdbcFailure& failure) {
  return failure.sqlstate == "55P03" || failure.sqlstate == "40P01" || failure.sqlstate == "40001" ||
         failure.sqlstate == "HYT00" || Contains(dbms.busy_codes, failure.native_code);
}

bool EndsTransaction(const Dbms& dbms, const OdbcFailure& failure) {
  return failure.sqlstate == "25P02" || Contains(dbms.ended_codes, failure.native_code);
}

// IMC…: SQL Server's driver could not make a broken link anew.
bool IsLinkLoss(const Dbms& dbms, const OdbcFailure& failure) {
  return failure.sqlstate.starts_with("08") || failure.sqlstate.starts_with("IMC") ||
         failure.sqlstate == "57P01" || failure.sqlstate == "57P02" || failure.sqlstate == "57P03" ||
         Contains(dbms.lost_codes, failure.native_code);
}

}  // namespace kx
