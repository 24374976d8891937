#include "session/session.h"

#include <utility>

#include "database/database_error.h"
#include "session/messages.h"
#include "session/sql_dialect.h"
#include "session/transaction.h"

namespace kx {

bool ConnectToDatabase(Session& session, std::string_view connection_string, std::int32_t database_type,
                       std::string& error) {
  session.database_type = static_cast<DatabaseType>(database_type);
  try {
    session.connection.Open(connection_string);
    return true;
  } catch (const DatabaseError& failure) {
    error = failure.description();
    return false;
  }
}

bool IsConnected(Session& session) {
  return session.connection.IsOpen() && TryExecuteSql(session, "select * from T_KXES_PTYPE");
}

void ExecuteSql(Session& session, std::string_view sql) { session.connection.Execute(sql); }

bool TryExecuteSql(Session& session, std::string_view sql) {
  try {
    ExecuteSql(session, sql);
    return true;
  } catch (const DatabaseError&) {
    return false;
  }
}

Attempt ExecuteSqlInTransaction(Session& session, std::string_view sql, std::string& error) {
  error.clear();
  session.unknown_outcome.clear();
  TransactionScope transaction(session);
  const bool begun = transaction.Begin();
  const bool done = begun && TryExecuteSql(session, sql) && transaction.Commit();
  if (!session.unknown_outcome.empty()) {
    error = std::exchange(session.unknown_outcome, {});
    return Attempt::kHopeless;
  }
  if (done) return Attempt::kDone;
  const bool has_link = session.connection.IsOpen();
  if (!begun || !has_link) error = FormatResourceMessage(message::kAppendNoTransaction);
  return has_link ? Attempt::kFailed : Attempt::kHopeless;
}

Recordset OpenRecordset(Session& session, std::string_view sql) { return {session.connection, sql}; }

Recordset OpenMasterData(Session& session, std::string_view sql) {
  // An item over very many shifts asks about each of them, and never again.
  constexpr std::size_t kMostAnswers = 64;
  auto& answers = session.master_data;
  if (!answers) return OpenRecordset(session, sql);
  std::string question(sql);
  const auto known = answers->find(question);
  if (known != answers->end()) return {session.connection, sql, known->second};
  if (answers->size() == kMostAnswers) answers->clear();
  Rows rows = session.connection.Execute(sql);
  return {session.connection, sql, answers->emplace(std::move(question), std::move(rows)).first->second};
}

std::string GetScalarText(Session& session, std::string_view sql) {
  const Rows rows = session.connection.Execute(sql);
  return rows.count() == 0 ? std::string() : rows.at(0, 0).ToTextOr("");
}

DateTime GetServerTime(Session& session) {
  RequireKnownDialect(session);
  const ClockQuery& clock = ServerClock(session);
  const Recordset now = OpenRecordset(session, clock.sql);
  return CombineDateAndTime(now.Fields(clock.date_field).ToDateTime(),
                            now.Fields(clock.time_field).ToDateTime());
}

void PauseMilliseconds(Session& session, std::int16_t milliseconds) {
  const std::chrono::milliseconds time(milliseconds);
  const Host& host = session.host();
  const auto start = host.now();
  for (;;) {  // until the clock says so, whichever way it goes
    const std::chrono::seconds passed = host.now() - start;
    if (passed < std::chrono::seconds::zero() || passed >= time) return;
    WaitBriefly(host, time);
  }
}

}  // namespace kx
