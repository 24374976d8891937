#include "mdclog/statement_trials.h"

#include <array>

#include "database/database_error.h"
#include "database/statement_text.h"
#include "database/text.h"
#include "handlers/cycle_handlers.h"
#include "session/insert_row.h"
#include "session/sql_dialect.h"
#include "session/transaction.h"
#include "shifts/next_shift_start.h"
#include "shifts/shift_info.h"

namespace kx {
namespace {

// No machine has it, and so all shifts count.
constexpr std::int32_t kNoMachine = -1;

void TryCurrentShift(Session& session) {
  DetermineChartDateAndShiftInfo(session, GetServerTime(session), "", kNoMachine);
}

void TryNextShift(Session& session) {
  if (GetScalarText(session, "select count(*) from T_SFC_SHIFT") == "0")
    throw DatabaseError("there is no shift, and no event can be worked in without one");
  GetNextShiftStart(session, GetServerTime(session), kNoMachine);
}

void TryCycleLock(Session& session) { IsCycleLocked(session, kNoMachine); }

// A change of the new event that counts its rows, and a text that comes back as it was.
void TryChanges(Session& session, std::int32_t event_id, DateTime now) {
  const std::string sql =
      Concat("select * from T_SFC_EVENT ", NoLockHint(session), " where EVENT_ID = ", event_id);
  Recordset event = OpenRecordset(session, sql);
  event.Set("STOP_TIME", now);
  event.Update();
  constexpr std::string_view kText = "Ω ж 日";
  ExecuteSql(session,
             Concat("update T_SFC_EVENT set PARAM1 = ", Quoted(kText), " where EVENT_ID = ", event_id));
  const std::string stored = OpenRecordset(session, sql).Fields("PARAM1").ToTextOr("");
  if (stored != kText) {
    throw DatabaseError(
        Concat("a text between quotes comes back as \"", stored, "\" instead of \"", kText,
               "\": the database needs a collation or character set that holds every character"));
  }
}

// An event without an index row is read by nobody, not even by those who read what is not committed.
void TryRolledBackWrite(Session& session) {
  const DateTime now = GetServerTime(session);
  const auto count = [&](std::int32_t id) {
    return OpenRecordset(session,
                         Concat("select * from T_SFC_EVENT ", NoLockHint(session), " where EVENT_ID = ", id,
                                " and START_TIME = ", SqlDateLiteral(session, now)))
        .RecordCount();
  };
  TransactionScope transaction(session);
  if (!transaction.Begin()) throw DatabaseError("no transaction can be begun");
  const ColumnValue columns[] = {{"START_TIME", now}, {"STOP_TIME", Value()}, {"PARAM1", "trial"}};
  const std::int32_t id = InsertRow(session, "T_SFC_EVENT", columns);
  if (count(id) != 1) throw DatabaseError("the new row is not found by its key and time");
  TryChanges(session, id, now);
  transaction.Rollback();
  if (count(id) != 0) throw DatabaseError("the new row is still there after the roll back");
}

constexpr std::array<StatementTrial, 4> kTrials = {{
    {"current shift: date literals and arithmetic, unlocked reads", &TryCurrentShift},
    {"next shift: outer joins", &TryNextShift},
    {"cycle lock: choices", &TryCycleLock},
    {"new row by its key, changed, with a text of any language, rolled back", &TryRolledBackWrite},
}};

}  // namespace

const StatementTrial* FindStatementTrial(std::int32_t index) {
  const bool found = index >= 0 && static_cast<std::size_t>(index) < kTrials.size();
  return found ? &kTrials[static_cast<std::size_t>(index)] : nullptr;
}

std::string RunStatementTrial(Session& session, const StatementTrial& trial) {
  try {
    trial.run(session);
    return {};
  } catch (const DatabaseError& error) {
    return error.description();
  }
}

}  // namespace kx
