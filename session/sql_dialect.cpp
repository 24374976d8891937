#include "session/sql_dialect.h"

#include <array>

#include "database/database_error.h"
#include "database/text.h"

namespace kx {
namespace {

struct Dialect {
  std::string_view no_lock;
  std::array<std::string_view, 4> iif;           // before the condition, true text and false text, and behind
  std::array<std::string_view, 2> date_literal;  // before and behind the time
  std::array<std::string_view, 3> date_add;      // before, between and behind the operands
  bool date_add_takes_days_first;
  bool outer_join_marks;
  ClockQuery clock;
};

constexpr std::array<std::string_view, 4> kCase = {" CASE WHEN ", " THEN ", " ELSE ", " END "};

constexpr std::array<Dialect, 3> kDialects = {{
    {"",
     kCase,
     {"TO_DATE('", "', 'MM/DD/YYYY HH24:MI:SS') "},
     {" (", " + ", ")"},
     false,
     true,
     {"Select SYSDATE from DUAL", "SYSDATE", "SYSDATE"}},
    {"",
     {" IIF(", ",", ",", ")"},
     {" #", "# "},
     {" DateAdd('dd', ", ",", ")"},
     true,
     false,
     {"SELECT Date() as PDATE , Time() as PTIME ", "PDATE", "PTIME"}},
    {" with (NOLOCK)",
     kCase,
     {"CAST('", "' AS DATETIME) "},
     {" DateAdd(dd, ", ",", ")"},
     true,
     false,
     {"select CURRENT_TIMESTAMP AS PDATE ", "PDATE", "PDATE"}},
}};

constexpr Dialect kUnknownDialect{};

bool IsKnown(const Session& session) {
  const auto type = static_cast<std::int32_t>(session.database_type);
  return type >= 0 && type < static_cast<std::int32_t>(kDialects.size());
}

const Dialect& DialectOf(const Session& session) {
  return IsKnown(session) ? kDialects[static_cast<std::size_t>(session.database_type)] : kUnknownDialect;
}

}  // namespace

std::optional<std::string_view> GetNoLock(const Session& session) {
  if (!IsKnown(session)) return std::nullopt;
  return DialectOf(session).no_lock;
}

std::string_view NoLockHint(const Session& session) { return DialectOf(session).no_lock; }

std::string SqlIif(const Session& session, std::string_view condition, std::string_view if_true,
                   std::string_view if_false) {
  if (!IsKnown(session)) return {};
  const auto& iif = DialectOf(session).iif;
  return Concat(iif[0], condition, iif[1], if_true, iif[2], if_false, iif[3]);
}

std::string SqlDateLiteral(const Session& session, DateTime time) {
  if (!IsKnown(session)) return {};
  const auto& literal = DialectOf(session).date_literal;
  return Concat(literal[0], time.Format("M/d/y hh:mm:ss"), literal[1]);
}

std::string SqlTimeLiteral(const Session& session, DateTime time) {
  if (session.database_type != DatabaseType::kOracle) return SqlDateLiteral(session, time);
  const auto hour = time.clock().hours().count();
  const DateTime twelve_hour = time.AddSeconds(((hour + 11) % 12 + 1 - hour) * 3600);
  return Concat("TO_DATE('", CombineDateAndTime(time, twelve_hour).Format("MM/dd/yyyy hh:mm:ss"),
                hour < 12 ? " AM" : " PM", "', 'MM/DD/YYYY HH:MI:SS AM')");
}

std::string SqlDateAdd(const Session& session, std::string_view expression, std::int16_t days) {
  if (!IsKnown(session)) return {};
  const Dialect& dialect = DialectOf(session);
  const auto& add = dialect.date_add;
  const std::string number = std::to_string(days);
  return dialect.date_add_takes_days_first ? Concat(add[0], number, add[1], expression, add[2])
                                           : Concat(add[0], expression, add[1], number, add[2]);
}

const ClockQuery& ServerClock(const Session& session) { return DialectOf(session).clock; }

bool UsesOuterJoinMarks(const Session& session) { return DialectOf(session).outer_join_marks; }

void RequireKnownDialect(const Session& session) {
  if (!IsKnown(session)) throw TypeMismatchError();
}

}  // namespace kx
