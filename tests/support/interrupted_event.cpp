#include "tests/support/interrupted_event.h"

namespace kx::test {

std::vector<HandlerCase> InterruptionCases() {
  std::vector<HandlerCase> cases(std::begin(kHandlers), std::end(kHandlers));
  cases.push_back({"", "Tue 12:00 refresh", "Refresh Machine Status", 3});
  return cases;
}

InterruptedEvent::InterruptedEvent(int database_type, const HandlerCase& handler, DatabaseKind kind)
    : plant(database_type, kind), handler_(handler) {
  Prepare(plant, handler);
  before_ = plant.Snapshot();
  plant.Save();
  plant.Execute("create temp table WAITING as select * from T_SFC_MDC_LOG");
  EXPECT_EQ(plant.component.Next(), (Outcome{true, ""}));
  after_ = plant.Snapshot();
  plant.Execute("insert into T_SFC_MDC_LOG select * from WAITING");
  applied_with_row_ = plant.Snapshot();
  Restore();
  plant.Execute("delete from T_SFC_MDC_LOG");
  dropped_ = plant.Snapshot();
  Restore();
}

bool InterruptedEvent::CheckAndFinish() {
  const std::string rows = plant.Snapshot();
  EXPECT_EQ(plant.Breaches(), "");
  if (rows == after_) return false;
  const std::string_view message = handler_.message;
  // A database error costs these two their effect, as docs/processing.md says.
  const bool row_may_go = !handler_.keeps_row || message == "Cycle Start";
  const bool row_gone = plant.Query("select count(*) from T_SFC_MDC_LOG") == "0";
  if (row_may_go && row_gone) {
    EXPECT_TRUE(rows == dropped_ || handler_.stay > 0) << rows;
    return false;
  }
  // A job's change is committed before the option for its part is read.
  const bool in_steps = handler_.stay > 0 || message.starts_with("Job");
  EXPECT_TRUE(rows == before_ || rows == applied_with_row_ || in_steps) << rows;
  EXPECT_EQ(plant.component.Next(), (Outcome{true, ""}));
  EXPECT_EQ(plant.Query("select count(*) from T_SFC_MDC_LOG"), "0");
  EXPECT_EQ(plant.Breaches(), "");
  if (rows == before_) {
    EXPECT_EQ(plant.Snapshot(), after_);
  }
  return rows == applied_with_row_;
}

}  // namespace kx::test
