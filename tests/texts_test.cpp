// A text never becomes a statement: whatever a client appends and whatever waits in the log, only the rows of
// the one event change.

#include <gtest/gtest.h>

#include <iostream>
#include <random>
#include <sstream>
#include <vector>

#include "database/ascii.h"
#include "database/text.h"
#include "tests/support/long_run.h"
#include "tests/support/plant.h"

namespace kx::test {
namespace {

// What random texts are made of, set apart by "|".
constexpr const char* kPieces =
    "'|''|'''|;|--|/*|*/|\\|\\'|\"|`|?|{fn |}|$$|$1|#|%|\n|(|)|,|x|J1|ü|\u2019|\U0001F527|1|.| or 1=1|')|');|"
    "delete from T_SFC_MACHINE_DATA|insert into T_SFC_MDC_LOG (MACHINE_ID) values (2)|"
    "; update T_SFC_MACHINE set STATUS_CODE = 9; --|SET NOCOUNT ON; SET DATEFORMAT MDY; INSERT INTO |"
    "; SELECT SCOPE_IDENTITY() AS [SCOPE_IDENTITY]; SET NOCOUNT OFF;";

std::vector<std::string> SplitPieces() {
  std::istringstream all(kPieces);
  std::vector<std::string> pieces;
  for (std::string piece; std::getline(all, piece, '|');) pieces.push_back(piece);
  return pieces;
}

class TextsTest : public testing::TestWithParam<int> {
 protected:
  // Every row that an event of machine 1 may not touch.
  std::string OtherRows() {
    std::string rows;
    for (const std::string& table : plant.database.Tables()) {
      const std::string name = table.substr(table.find_last_of('.') + 1);
      const auto is = [&](std::string_view one) { return EqualsIgnoringCase(name, one); };
      const bool of_machine = is("T_SFC_MACHINE") || is("T_SFC_MACHINE_DATA") || is("T_SFC_EVENT") ||
                              is("T_SFC_MACHINE_EVENT") || is("T_SFC_MDC_LOG");
      const bool of_record = is("T_SFC_DT_PER_MACHINE_DATA") || is("T_SFC_SCRAP_PER_MACHINE_DATA");
      const char* which = of_machine  ? " where MACHINE_ID <> 1"
                          : of_record ? " where MACHINE_DATA_ID in (2, 3)"
                                      : "";
      Append(rows, name, ": ", plant.Query(Concat("select * from ", table, which, " order by 1")), "\n");
    }
    return rows + plant.Query(
                      "select * from T_SFC_MACHINE_DATA where MACHINE_ID = 1 and STOP_TIME is not null "
                      "and MACHINE_DATA_ID < (select min(MACHINE_DATA_ID) + 4 from T_SFC_MACHINE_DATA) "
                      "order by 1");
  }

  std::string RandomText() {
    std::string text = random_() % 2 == 0 ? "" : "x";
    for (auto left = 1 + random_() % 6; left > 0; --left) text += pieces_[random_() % pieces_.size()];
    return text;
  }

  Plant plant{GetParam()};
  const std::vector<std::string> pieces_ = SplitPieces();
  std::mt19937 random_{static_cast<unsigned>(GetParam()) + 1};
};

INSTANTIATE_TEST_SUITE_P(DatabaseTypes, TextsTest, testing::Values(0, 1, 2));

TEST_P(TextsTest, OnlyTheRowsOfTheEventChange) {
  static constexpr int kCommands[] = {104, 105, 106, 107, 108, 109, 110, 111, 112, 113, 114, 120};
  static const std::string kMade[] = {"x'); delete from T_SFC_MACHINE_DATA; --",
                                      "x'; delete from T_SFC_MACHINE_DATA; --",
                                      "x'), (109, 1, 2, 3, 2, 0, null, 'y", "x' or JOB_NUMBER = 'J1"};
  plant.Execute("update T_SFC_OPTION set BOOL_VAL = 1 where OPTION_CODE = 1");  // jobs start their part
  plant.Run(
      "06:30 job start J1; 06:40 logon start anna; 06:50 part start P1; 07:00 #2 logon start bert; "
      "07:10 #2 down start D1; 07:20 #2 scrap 2.17; 07:30 #2 part start P1");
  plant.QueueRow(Moment("08:00"), 2, 109, 0, "behind");
  plant.Save();
  const std::string before = OtherRows();
  const bool on_server = plant.database.kind() == DatabaseKind::kPostgres;
  const int count = IsLongRun() ? 3400 : on_server ? 75 : 300;
  int appended = 0;
  int applied = 0;
  for (int i = 0; i < count; ++i) {
    plant.Restore();
    // First those that are made for it, with every command.
    const auto turn = static_cast<std::size_t>(i);
    const bool made = turn < std::size(kMade) * std::size(kCommands);
    const int command = kCommands[(made ? turn : random_()) % std::size(kCommands)];
    const int time_code = made ? 0 : static_cast<int>(random_() % 3);
    const std::string text =
        (command == 114 ? "2." : "") + (made ? kMade[turn / std::size(kCommands)] : RandomText());
    SCOPED_TRACE(Concat(command, " ", time_code, " ", text));
    const Outcome queued = plant.component.Append({1, 2, 3, 1, command}, text, time_code);
    ASSERT_EQ(OtherRows(), before);
    ASSERT_EQ(plant.Query("select COMMAND_ID, COMMAND_TIME_CODE from T_SFC_MDC_LOG where MACHINE_ID = 1"),
              queued.done ? Concat(command, "|", time_code) : "");
    ASSERT_EQ(queued.error, "");
    appended += queued.done ? 1 : 0;
    if (!queued.done) plant.QueueRow(Moment("08:00"), 1, command, time_code, text);
    plant.Execute(
        "update T_SFC_MDC_LOG set TIME_STAMP = '2026-01-12 08:00:00', MDC_LOG_ID = 0 where MACHINE_ID = 1");
    const Outcome outcome = plant.component.Next();
    ASSERT_EQ(OtherRows(), before);
    ASSERT_EQ(outcome.done, outcome.error.empty());
    ASSERT_EQ(plant.Number("select count(*) from T_SFC_MDC_LOG where MACHINE_ID = 1"), outcome.done ? 0 : 1);
    ASSERT_EQ(plant.Breaches(), "");
    applied += outcome.done ? 1 : 0;
  }
  std::cout << count << " texts: " << appended << " appended, " << applied << " applied\n";
  for (const int some : {appended, applied}) {
    EXPECT_GT(some, count / 8);
    EXPECT_LT(some, count);
  }
}

}  // namespace
}  // namespace kx::test
