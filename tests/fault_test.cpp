// What must be withstood: each statement failing once, a busy database, and plants that are wrong.

#include <gtest/gtest.h>

#include <functional>
#include <iostream>

#include "database/text.h"
#include "tests/support/handler_cases.h"
#include "tests/support/long_run.h"

namespace kx::test {
namespace {

class FaultTest : public testing::TestWithParam<int> {
 protected:
  Plant plant{GetParam()};
};

INSTANTIATE_TEST_SUITE_P(DatabaseTypes, FaultTest, testing::ValuesIn(TestedTypes()));

// Of so many calls of a handler one fails. On a server that takes long; each type takes other ones.
int CallStride(const Plant& plant) { return plant.database.kind() == DatabaseKind::kSqlite ? 1 : Stride(3); }

// The n-th call of the engine fails: in turn by an error, a lock and the end of the link.
enum class Fault { kError, kBusy, kLinkLoss };
Fault FailNth(Plant& plant, int n, int database_type) {
  const auto fault = static_cast<Fault>((n / CallStride(plant) + database_type) % 3);
  plant.host.watch.commits_done = 0;
  if (fault == Fault::kLinkLoss) {
    plant.LoseLinkAtNth(n);
  } else {
    plant.host.watch.FailNth(n, fault == Fault::kBusy ? ErrorCategory::kBusy : ErrorCategory::kGeneral);
  }
  return fault;
}

// The component works again; a lost link is seen and made anew.
void Recover(Plant& plant, Fault fault) {
  plant.host.watch.Heal();
  if (fault != Fault::kLinkLoss || !plant.host.watch.failed) return;
  EXPECT_FALSE(plant.component.IsConnected());
  plant.Connect();
}

// Each call of the engine fails once: the plant is as it was but for what is committed before, the row waits,
// the object goes on, and the event then has its full effect.
TEST_P(FaultTest, EveryCallOfEveryHandlerFailsOnce) {
  int calls = 0;
  for (const HandlerCase& handler : kHandlers) {
    SCOPED_TRACE(handler.event);
    Plant clean(GetParam());
    const auto& watch = clean.host.watch;
    Prepare(clean, handler);
    const std::string before = clean.Snapshot();
    clean.Save();
    clean.Execute("delete from T_SFC_MDC_LOG");
    const std::string dropped = clean.Snapshot();
    clean.Restore();
    ASSERT_EQ(clean.component.Next(), (Outcome{true, ""}));
    const std::string after = clean.Snapshot();

    int n = 1 + GetParam() % CallStride(clean);
    for (;; n += CallStride(clean)) {
      SCOPED_TRACE(n);
      clean.Restore();
      const Fault fault = FailNth(clean, n, GetParam());
      const Outcome outcome = clean.component.Next();
      Recover(clean, fault);
      if (!watch.failed) break;
      SCOPED_TRACE(watch.failed_sql);
      const std::string rows = clean.Snapshot();
      if (outcome.done) {
        // Trapped where an error is no failure (the search for a new shift) or tried again (a transaction):
        // the full effect. A link that is lost is neither.
        ASSERT_EQ(outcome.error, "");
        EXPECT_NE(fault, Fault::kLinkLoss);
        if (rows != after && MayDrop(handler, watch.failed_sql) && watch.commits_done == handler.stay) {
          EXPECT_TRUE(handler.stay > 0 || rows == dropped);
          EXPECT_EQ(clean.Breaches(), "");
        } else {
          EXPECT_EQ(rows, after);
        }
        continue;
      }
      EXPECT_EQ(clean.Query("select count(*) from T_SFC_MDC_LOG"), "1");
      const bool applied = watch.failed_sql.starts_with("delete from T_SFC_MDC_LOG");
      EXPECT_TRUE(applied ? outcome.error.empty()
                          : !outcome.error.empty() || MayDrop(handler, watch.failed_sql));
      if (applied) {
        clean.Execute("delete from T_SFC_MDC_LOG");
        EXPECT_EQ(clean.Snapshot(), after);
        continue;
      }
      // Whatever the handler says: without the link its row stays.
      if (fault != Fault::kLinkLoss) {
        EXPECT_TRUE(outcome.error == kInjected || outcome.error == Locked(handler.message) ||
                    (handler.stay > 0 &&
                     (outcome.error == Locked("Part Start") || outcome.error == Locked("Part End"))))
            << outcome.error;
      }
      // What a job start has committed before it fails is made again.
      const bool repeated = handler.message == std::string_view("Job Start") && watch.commits_done == 1;
      EXPECT_TRUE(rows == before || repeated || (handler.stay > 0 && watch.commits_done == handler.stay));
      ASSERT_EQ(clean.component.Next(), (Outcome{true, ""}));
      if (!repeated) {
        EXPECT_EQ(clean.Snapshot(), after);
      }
      EXPECT_EQ(clean.Breaches(), "");
    }
    EXPECT_GT(n, 5);
    calls += (n - 1) / CallStride(clean);
  }
  std::cout << calls << " calls failed\n";
}

// Each call of the engine fails once under the methods that process nothing: done whole, or not at all and
// said so; the method works again.
TEST_P(FaultTest, EveryCallOfEveryOtherMethodFailsOnce) {
  plant.Run("07:00 job start J2; 08:00 job end");
  plant.Execute("update T_SFC_MACHINE_DATA set STATUS_CODE = 2 where STOP_TIME is not null");
  plant.Save();
  Component& component = plant.component;
  const Outcome done{true, ""};
  LONG count = 0;
  const std::function<bool()> methods[] = {
      [&] {
        return component.Append({1, 2, 3, 1, 109}, "x", 0) == done;
      },
      [&] {
        return component.Append({1, 2, 3, 1, -1}, "", 0) == done;
      },
      [&] {
        kxdata7::Bstr error;
        VARIANT_BOOL queued = VARIANT_FALSE;
        const HRESULT result = component->AppendItemToMDCLogDNC(1001, 1002, 1003, 1001, 1109, nullptr, 0,
                                                                error.inout(), &queued);
        return result == S_OK && queued == VARIANT_TRUE;
      },
      [&] { return component->GetMDCLogCount(&count) == S_OK; },
      [&] { return component->CompleteMachineDataRecord(1) == S_OK; },
      [&] { return component.IsConnected(); },
  };
  // The clock is not part of what is compared.
  const auto rows = [&] {
    plant.Execute("update T_SFC_MDC_LOG set TIME_STAMP = null");
    return plant.Snapshot();
  };
  const std::string before = rows();
  for (std::size_t method = 0; method < std::size(methods); ++method) {
    SCOPED_TRACE(method);
    plant.Restore();
    ASSERT_TRUE(methods[method]());
    const std::string after = rows();
    int n = 1;
    for (;; ++n) {
      SCOPED_TRACE(n);
      plant.Restore();
      const Fault fault = FailNth(plant, n, GetParam());
      const bool said_done = methods[method]();
      Recover(plant, fault);
      if (!plant.host.watch.failed) break;
      EXPECT_EQ(rows(), said_done ? after : before) << plant.host.watch.failed_sql;
      if (said_done) continue;
      EXPECT_TRUE(methods[method]());
      EXPECT_EQ(rows(), after);
    }
    EXPECT_GT(n, 1);
  }
}

// While nothing can be begun or committed, each handler says so in its own words after twelve attempts.
TEST_P(FaultTest, LockedDatabase) {
  for (const HandlerCase& handler : kHandlers) {
    if (!handler.keeps_row || handler.stay > 0) continue;
    SCOPED_TRACE(handler.event);
    Plant locked(GetParam());
    Prepare(locked, handler);
    const std::string before = locked.Snapshot();
    for (const EngineCall call : {EngineCall::kBegin, EngineCall::kCommit}) {
      int attempts = 0;
      locked.host.watch.before = [&](EngineCall made, std::string_view) {
        if (made != call) return;
        ++attempts;
        throw DatabaseError("locked", ErrorCategory::kBusy);
      };
      EXPECT_EQ(locked.component.Next(), (Outcome{false, Locked(handler.message)}));
      EXPECT_EQ(attempts, 12);
      EXPECT_EQ(locked.Snapshot(), before);
    }
    locked.host.watch.Heal();
    EXPECT_EQ(locked.component.Next(), (Outcome{true, ""}));
  }
}

// Another session really holds a row, a table, or keeps everybody from writing.
TEST_P(FaultTest, AnotherSessionHoldsLocks) {
  if (plant.database.kind() == DatabaseKind::kGiven) GTEST_SKIP() << "each database locks in its own way";
  const bool on_server = plant.database.kind() == DatabaseKind::kPostgres;
  std::vector<std::string> locks = {""};  // in SQLite a transaction holds the database
  if (on_server) {
    std::string all;
    for (const std::string& table : plant.database.Tables()) Append(all, all.empty() ? "" : ", ", table);
    locks = {"select * from T_SFC_MACHINE_DATA where STOP_TIME is null for update",
             "lock table T_SFC_EVENT in exclusive mode", Concat("lock table ", all, " in exclusive mode")};
  }
  for (const HandlerCase& handler : kHandlers) {
    if (!handler.keeps_row || handler.stay > 0) continue;
    SCOPED_TRACE(handler.event);
    Plant busy(GetParam());
    Prepare(busy, handler);
    busy.host.watch.after_open = [&](Engine& engine) {
      if (on_server) engine.Execute("set lock_timeout = '20ms'", {});
    };
    busy.component.Connect(busy.connection_string() + (on_server ? "" : ";Busy Timeout=0"),
                           kxdata7::Dialect{GetParam()});
    busy.Save();
    for (const std::string& lock : locks) {
      SCOPED_TRACE(lock);
      busy.Restore();
      const std::string before = busy.Snapshot();
      busy.db.Begin();
      if (!lock.empty()) busy.Execute(lock);
      const Outcome outcome = busy.component.Next();
      // Not every handler needs the record or the events.
      const bool needs_none = outcome.done && &lock != &locks.back();
      EXPECT_TRUE(needs_none || outcome == (Outcome{false, Locked(handler.message)})) << outcome.error;
      EXPECT_TRUE(busy.component.IsConnected());
      busy.db.Rollback();
      if (needs_none) continue;
      EXPECT_EQ(busy.Snapshot(), before);
      EXPECT_EQ(busy.component.Next(), (Outcome{true, ""}));
    }
  }
}

TEST_P(FaultTest, RefreshStepByStep) {
  plant.Queue("Wed 12:00 refresh");
  plant.host.watch.FailAll(EngineCall::kBegin, ErrorCategory::kBusy);
  EXPECT_EQ(plant.component.Next(), (Outcome{false, "Refresh Machine Status failed."}));
  // The third commit fails for good: two steps stay.
  int commits = 0;
  plant.host.watch.before = [&](EngineCall call, std::string_view) {
    if (call == EngineCall::kCommit && ++commits > 2) throw DatabaseError("full");
  };
  EXPECT_EQ(plant.component.Next(), (Outcome{false, "Refresh Machine Status failed."}));
  plant.host.watch.Heal();
  EXPECT_EQ(plant.Query("select count(*) from T_SFC_MACHINE_DATA where MACHINE_ID = 1"), "3");
  EXPECT_EQ(plant.Breaches(), "");
  EXPECT_EQ(plant.component.Next(), (Outcome{true, ""}));
  EXPECT_EQ(plant.Query("select max(START_TIME) from T_SFC_MACHINE_DATA where MACHINE_ID = 1"),
            "2026-01-14 06:00:00");
}

// Rows that can never be applied: a clear text, nothing changed, the object usable.
TEST_P(FaultTest, WrongPlants) {
  constexpr const char* kNoRow = "Either BOF or EOF is true, or the current record has been deleted.";
  const struct {
    const char* change;
    const char* event;
    std::string error;
  } cases[] = {
      {"update T_SFC_MACHINE set MACHINE_DATA_ID = null", "08:00 cycle start", kNoRow},
      {"update T_SFC_MACHINE set MACHINE_DATA_ID = 99", "08:00 job end", kNoRow},
      {"delete from T_SFC_MACHINE where MACHINE_ID = 1", "08:00 setup start", kNoRow},
      {"delete from T_SFC_MACHINE where MACHINE_ID = 1", "08:00 refresh", kNoRow},
      {"update T_SFC_MACHINE_DATA set SHIFT_END = null", "08:00 down start", "Invalid use of Null"},
      {"update T_SFC_MACHINE_DATA set START_TIME = null", "08:00 part end", "Invalid use of Null"},
      {"update T_SFC_MDC_LOG set MACHINE_ID = null", "08:00 part end", "Invalid use of Null"},
      {"update T_SFC_MDC_LOG set TIME_STAMP = null", "08:00 part end", "Invalid use of Null"},
      {"delete from T_SFC_SHIFT", "Tue 08:00 refresh", "Overflow: no shift ever starts for machine 1"},
      {"update T_SFC_INTERVAL set STOP_TIME = START_TIME, IS_SWING = 1", "Tue 08:00 refresh",
       "The shift calendar of machine 1 does not advance at 2026-01-12 14:00:00"},
      {"delete from T_SFC_OPTION", "08:00 job end", kNoRow},
  };
  plant.Save();
  for (const auto& test : cases) {
    SCOPED_TRACE(test.change);
    plant.Restore();
    plant.Queue(test.event);
    plant.Execute(test.change);
    const Outcome outcome = plant.component.Next();
    EXPECT_FALSE(outcome.done);
    EXPECT_EQ(outcome.error, test.error);
    EXPECT_EQ(plant.Query("select count(*) from T_SFC_MDC_LOG"), "1");
    EXPECT_EQ(plant.component.Next(), outcome);
    plant.db.Begin();  // no transaction is left open
    plant.db.Rollback();
  }
}

// Intervals of a day after the base day seem to begin before a record that has no shift, which would be cut
// there for ever; its chart day may have ended, too.
TEST_P(FaultTest, CalendarOfALaterYear) {
  plant.Execute(
      "update T_SFC_INTERVAL set START_TIME = '2000-01-01 06:00:00', STOP_TIME = '2000-01-01 14:00:00'");
  plant.Execute("update T_SFC_MACHINE_DATA set SHIFT_ID = null, SHIFT_END = null");
  for (const char* chart_date : {"2026-01-12", "2026-01-11"}) {
    plant.Execute(Concat("update T_SFC_MACHINE_DATA set CHART_DATE = '", chart_date, " 00:00:00'"));
    for (const char* event :
         {"12:00 refresh", "Tue 12:00 refresh", "12:00 op start X", "Tue 12:00 logon start anna"}) {
      SCOPED_TRACE(event);
      plant.Queue(event);
      const std::string before = plant.Snapshot();
      EXPECT_EQ(plant.component.Next(),
                (Outcome{false, "The shift calendar of machine 1 does not advance at 2026-01-12 06:00:00"}));
      EXPECT_EQ(plant.Snapshot(), before);
      plant.Execute("delete from T_SFC_MDC_LOG");
    }
  }
}

TEST_P(FaultTest, TextsWithApostrophes) {
  for (const char* event :
       {"08:00 job start O'Brien", "08:00 op start O'Brien", "08:00 part start O'Brien",
        "08:00 logon start O'Brien", "08:00 down start O'Brien", "08:00 scrap 1.O'Brien"}) {
    SCOPED_TRACE(event);
    plant.Queue("07:00 part start P1");
    plant.ProcessAll();
    plant.Queue(event);
    const std::string before = plant.Snapshot();
    const Outcome outcome = plant.component.Next();
    EXPECT_FALSE(outcome.done);
    EXPECT_FALSE(outcome.error.empty());
    EXPECT_EQ(plant.Snapshot(), before);
    plant.Execute("delete from T_SFC_MDC_LOG");
  }
}

}  // namespace
}  // namespace kx::test
