#include "tests/support/interrupted_event.h"

#include "component/text.h"

namespace kx::test {
namespace {

constexpr EventCase kEventCases[] = {
    {"07:00 logon start anna", "08:00 logon end", false, true},
    {"07:00 part start P1", "08:00 job start J1", true},
    {"07:00 part start P1; 07:10 setup start", "14:30 cycle start", false, true},
    {"", "08:00 cycle start", true, true},
    {"07:00 part start P1; 07:10 cycle start", "08:00 down start D0"},
    {"07:00 part start P1", "08:00 scrap 3.X"},
    {"07:00 userdown start D1", "08:00 userdown end"},
    {"07:00 door start", "08:00 door both x"},
    {"", "Tue 12:00 refresh", true},
};

constexpr const char* kTables[] = {
    "MACHINE",       "MACHINE_DATA", "DT_PER_MACHINE_DATA", "SCRAP_PER_MACHINE_DATA", "EVENT",
    "MACHINE_EVENT", "MDC_LOG"};

}  // namespace

std::span<const EventCase> EventCases() { return kEventCases; }

InterruptedEvent::InterruptedEvent(int database_type, const EventCase& event)
    : plant(database_type), event_(event) {
  plant.Run(event.before);
  plant.Queue(event.event);
  for (const char* table : kTables) {
    plant.Execute(Concat("create temp table SAVED_", table, " as select * from T_SFC_", table));
  }
  plant.Execute("create temp table SAVED_SEQUENCE as select * from sqlite_sequence");
  before_ = plant.Snapshot();
  EXPECT_EQ(plant.component.Next(), (Outcome{true, ""}));
  after_ = plant.Snapshot();
  plant.Execute("insert into T_SFC_MDC_LOG select * from SAVED_MDC_LOG");
  applied_with_row_ = plant.Snapshot();
  Restore();
  plant.Execute("delete from T_SFC_MDC_LOG");
  dropped_ = plant.Snapshot();
  Restore();
}

void InterruptedEvent::Restore() {
  plant.db.Begin();
  for (const char* table : kTables) {
    plant.Execute(Concat("delete from T_SFC_", table));
    plant.Execute(Concat("insert into T_SFC_", table, " select * from SAVED_", table));
  }
  plant.Execute("delete from sqlite_sequence");
  plant.Execute("insert into sqlite_sequence select * from SAVED_SEQUENCE");
  plant.db.Commit();
}

bool InterruptedEvent::CheckAndFinish() {
  const std::string rows = plant.Snapshot();
  EXPECT_EQ(plant.Breaches(), "");
  if (rows == after_ || (event_.row_may_go && rows == dropped_)) return false;
  EXPECT_TRUE(rows == before_ || rows == applied_with_row_ || event_.commits_in_steps) << rows;
  EXPECT_EQ(plant.component.Next(), (Outcome{true, ""}));
  EXPECT_EQ(plant.Query("select count(*) from T_SFC_MDC_LOG"), "0");
  EXPECT_EQ(plant.Breaches(), "");
  if (rows == before_) {
    EXPECT_EQ(plant.Snapshot(), after_);
  }
  return rows == applied_with_row_;
}

}  // namespace kx::test
