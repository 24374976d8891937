// Files that fail: each read, write and sync of a call, once and for good, and a disk that is full.

#include <gtest/gtest.h>

#include <functional>

#include "database/text.h"
#include "tests/support/faulty_vfs.h"
#include "tests/support/interrupted_event.h"
#include "tests/support/long_run.h"

namespace kx::test {
namespace {

constexpr std::string_view kDurable = ";Synchronous=Full";

// Ways for a file system to fail, from the first place on to where the work goes through.
struct FaultKind {
  const char* name;
  std::function<void(FaultyVfs&, int n)> arm;
};

const FaultKind kFaults[] = {
    {"once", [](FaultyVfs& vfs, int n) { vfs.FailNth(n, false); }},
    {"for good", [](FaultyVfs& vfs, int n) { vfs.FailNth(n, true); }},
    {"full", [](FaultyVfs& vfs, int n) { vfs.LeaveSpace((n - 1) * 1500); }},
};

// The state of the files at this moment, as it stood after a loss of power: without what only the processes
// share. Returns what is wrong with it; `query` must give `expected`.
void ExpectSoundAfterPowerLoss(Plant& plant, const std::string& query, const std::string& expected) {
  const std::string copy = plant.database.file() + ".copy";
  for (const char* part : {"", "-wal"}) {
    std::filesystem::remove(copy + part);
    if (std::filesystem::exists(plant.database.file() + part)) {
      std::filesystem::copy_file(plant.database.file() + part, copy + part);
    }
  }
  Connection db;
  db.Open("Provider=SQLite;Data Source=" + copy);
  EXPECT_EQ(db.ExecuteDirect("PRAGMA integrity_check").at(0, 0).ToText(), "ok");
  EXPECT_EQ(db.ExecuteDirect(query).at(0, 0).ToTextOr("-"), expected);
}

// So that the next writes of the component make the file grow.
void EmptyJournal(Plant& plant) { plant.Query("PRAGMA wal_checkpoint(TRUNCATE)"); }

// So that the next commit copies the journal back to the file.
void FillJournal(Plant& plant) {
  plant.Execute("PRAGMA wal_autocheckpoint = 0");
  plant.Execute("create table if not exists FILLER (X)");
  plant.Execute("delete from FILLER");
  plant.Execute("insert into FILLER values (randomblob(4200000))");
}

class VfsTest : public testing::Test {
 protected:
  FaultyVfs vfs;
};

TEST_F(VfsTest, EventsGoThroughLater) {
  int faults = 0;
  int twice = 0;
  for (const HandlerCase& event : InterruptionCases()) {
    InterruptedEvent interrupted(2, event);
    Plant& plant = interrupted.plant;
    for (const FaultKind& kind : kFaults) {
      for (int n = 1;; n += Stride(9)) {
        SCOPED_TRACE(Concat(event.event, ", ", kind.name, ", ", n));
        // On a new connection every second time.
        if (n % 2 == 0)
          plant.component.Connect(plant.connection_string().append(kDurable), kxdata7::Dialect{2});
        interrupted.Restore();
        EmptyJournal(plant);
        kind.arm(vfs, n);
        const Outcome outcome = plant.component.Next();
        const bool failed = vfs.failed();
        vfs.Heal();
        if (!failed) break;
        ++faults;
        EXPECT_TRUE(!outcome.done || outcome.error.empty()) << outcome.error;
        ExpectSoundAfterPowerLoss(plant, "select count(*) from T_SFC_MACHINE", "3");
        EXPECT_EQ(plant.Query("PRAGMA integrity_check"), "ok");
        twice += interrupted.CheckAndFinish() ? 1 : 0;
        if (HasFailure()) return;
      }
    }
  }
  EXPECT_GT(faults, 300);
  RecordProperty("faults", faults);
  RecordProperty("applied_twice", twice);
}

// A backlog whose power goes at every step: no event is lost and at most one is applied twice, with only
// what was synchronised left. All together they wait for the disk once each, and once more for the last
// delete.
TEST_F(VfsTest, BacklogOutlivesALossOfPower) {
  constexpr int kEvents = 4;
  constexpr const char* kApplied =
      "select count(distinct PARAM1), count(*) - count(distinct PARAM1), (select count(*) from "
      "T_SFC_MDC_LOG) "
      "from T_SFC_EVENT where STOP_TIME is not null";
  Plant plant(2, DatabaseKind::kSqlite);
  plant.Queue("08:00 door both a; 08:01 door both b; 08:02 door both c; 08:03 door both d");
  plant.Save();
  plant.component.Connect(plant.connection_string().append(kDurable), kxdata7::Dialect{2});
  const std::string file = plant.database.file();
  const auto put_synced = [&](const std::string& part, const std::string& otherwise) {
    const std::string& source =
        std::filesystem::exists(file + part + ".synced") ? file + part + ".synced" : otherwise;
    std::filesystem::remove(file + ".lost" + part);
    if (!source.empty()) std::filesystem::copy_file(source, file + ".lost" + part);
    std::filesystem::remove(file + part + ".synced");
  };
  int repeated = 0;
  for (int n = 1;; ++n) {
    SCOPED_TRACE(n);
    plant.Restore();
    EmptyJournal(plant);
    std::filesystem::copy_file(file, file + ".before", std::filesystem::copy_options::overwrite_existing);
    vfs.KeepSyncedAndFailNth(n);
    while (plant.component.Next()) {
    }
    const bool failed = vfs.failed();
    const int syncs = vfs.syncs();
    vfs.Heal();
    put_synced("", file + ".before");
    put_synced("-wal", "");
    Component component;
    ASSERT_TRUE(component.Connect("Provider=SQLite;Data Source=" + file + ".lost", kxdata7::Dialect{2}));
    Connection lost;
    lost.Open("Provider=SQLite;Data Source=" + file + ".lost");
    const auto applied = [&] { return lost.ExecuteDirect(kApplied).values; };
    if (!failed) {
      EXPECT_EQ(applied(), (std::vector<Value>{kEvents, 0, 0}));
      EXPECT_EQ(syncs, kEvents + 2);  // the first one writes the journal's head besides
      break;
    }
    while (component.Next()) {
    }
    const std::vector<Value> finally = applied();
    EXPECT_EQ(finally[0], Value(kEvents));
    EXPECT_LE(finally[1].ToInt32(), 1);
    EXPECT_EQ(finally[2], Value(0));
    repeated += finally[1].ToInt32();
    ASSERT_FALSE(HasFailure());
  }
  EXPECT_GT(repeated, kEvents);
}

// What was acknowledged is in the log, now and after a loss of power; what was not is there at most once.
TEST_F(VfsTest, AcknowledgedAppendsStay) {
  Plant plant(2, DatabaseKind::kSqlite);
  int faults = 0;
  for (const bool full_journal : {false, true}) {
    for (const FaultKind& kind : kFaults) {
      // A full journal is copied back by thousands of calls, none of which can fail the commit before it.
      for (int n = 1;; n += 1 + (full_journal ? n / (IsLongRun() ? 20 : 3) : 0)) {
        SCOPED_TRACE(Concat(kind.name, ", ", n, full_journal ? ", full journal" : ""));
        plant.Execute("delete from T_SFC_MDC_LOG");
        EmptyJournal(plant);
        if (n % 2 == 0)
          plant.component.Connect(plant.connection_string().append(kDurable), kxdata7::Dialect{2});
        if (full_journal) FillJournal(plant);
        kind.arm(vfs, n);
        const Outcome outcome = plant.component.Append({1, 2, 3, 1, 109}, "x", 0);
        const bool failed = vfs.failed();
        vfs.Heal();
        const std::string acknowledged = outcome.done ? "1" : "0";
        EXPECT_EQ(plant.Query("select count(*) from T_SFC_MDC_LOG"), acknowledged) << outcome.error;
        EXPECT_EQ(plant.Query("PRAGMA integrity_check"), "ok");
        ExpectSoundAfterPowerLoss(plant,
                                  outcome.done ? "select count(*) from T_SFC_MDC_LOG"
                                               : "select max(count(*), 1) from T_SFC_MDC_LOG",
                                  "1");
        if (!failed) break;
        ++faults;
        ASSERT_FALSE(HasFailure());
      }
    }
  }
  EXPECT_GT(faults, 50);
  RecordProperty("faults", faults);
}

// The other calls answer as for any database error, and answer well afterwards.
TEST_F(VfsTest, OtherCallsFailClearly) {
  Plant plant(2, DatabaseKind::kSqlite);
  const kxdata7::Bstr string = kxdata7::Bstr::FromUtf8(plant.connection_string().append(kDurable));
  const auto connect = [&] {
    kxdata7::Bstr error;
    VARIANT_BOOL done = VARIANT_FALSE;
    EXPECT_EQ(plant.component->ConnectToDatabase(string.get(), 2, error.inout(), &done), S_OK);
    EXPECT_NE(done == VARIANT_TRUE, error.view().size() > 0);
    return done == VARIANT_TRUE;
  };
  const std::function<bool()> calls[] = {
      connect,
      [&] { return plant.component.IsConnected(); },
      [&] {
        LONG count = 0;
        const HRESULT result = plant.component->GetMDCLogCount(&count);
        EXPECT_EQ(result == E_FAIL, TakeThreadError() != "");
        return result == S_OK;
      },
      [&] {
        const HRESULT result = plant.component->CompleteMachineDataRecord(1);
        EXPECT_EQ(result == E_FAIL, TakeThreadError() != "");
        return result == S_OK;
      },
  };
  for (const auto& call : calls) {
    for (const bool for_good : {false, true}) {
      int n = 1;
      for (;; ++n) {
        SCOPED_TRACE(n);
        plant.component.Connect("Provider=SQLite;Data Source=:memory:", kxdata7::Dialect{2});
        plant.db.Close();  // the first connection finds the journal's index gone
        if (&call != &calls[0]) {
          ASSERT_TRUE(connect());
        }
        vfs.FailNth(n, for_good);
        const bool done = call();
        const bool failed = vfs.failed();
        vfs.Heal();
        plant.db.Open(plant.connection_string());
        EXPECT_EQ(plant.Query("PRAGMA integrity_check"), "ok");
        ASSERT_TRUE(connect());
        ASSERT_TRUE(call());
        if (!failed) {
          EXPECT_TRUE(done);
          break;
        }
      }
      EXPECT_GT(n, 1);
    }
  }
}

}  // namespace
}  // namespace kx::test
