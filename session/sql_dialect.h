#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "session/session.h"

namespace kx {

// The fragments in which the three dialects differ, each with the blanks it needs on either side. For an
// unknown dialect every fragment is empty.

// The no-lock hint that follows a table name in reads: " with (NOLOCK)" for SQL Server, an empty text for
// Oracle and Access, nothing at all for an unknown dialect. A fragment after it brings its own blank.
std::optional<std::string_view> GetNoLock(const Session& session);

// The same for splicing into a statement.
std::string_view NoLockHint(const Session& session);

std::string SqlIif(const Session& session, std::string_view condition, std::string_view if_true,
                   std::string_view if_false);

std::string SqlDateLiteral(const Session& session, DateTime time);

// The same, for Oracle on a twelve-hour clock with AM and PM.
std::string SqlTimeLiteral(const Session& session, DateTime time);

// A date expression moved by whole days.
std::string SqlDateAdd(const Session& session, std::string_view expression, std::int16_t days);

// The statement that reads the server's clock, and the fields that hold the date and the time of day.
struct ClockQuery {
  std::string_view sql;
  std::string_view date_field;
  std::string_view time_field;
};
const ClockQuery& ServerClock(const Session& session);

// How outer joins are written: "A LEFT JOIN B on condition" or "A, B where condition (+)".
bool UsesOuterJoinMarks(const Session& session);

// Raises "Type mismatch" for an unknown dialect: for the routines that open no statement then.
void RequireKnownDialect(const Session& session);

}  // namespace kx
