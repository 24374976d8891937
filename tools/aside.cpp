#include <iostream>

#include "plant/component.h"
#include "plant/events.h"
#include "tools/commands.h"
#include "views/table.h"

namespace kx::tool {
namespace {

constexpr std::string_view kQueue = "T_SFC_MDC_LOG";
constexpr std::string_view kAside = "T_SFC_MDC_LOG_ASIDE";

// What a row has in the queue and keeps when it is set aside.
constexpr std::string_view kColumns =
    "MDC_LOG_ID, COMMAND_ID, DEPT_ID, LOCATION_ID, GROUP_ID, MACHINE_ID, COMMAND_TIME_CODE, TIME_STAMP, "
    "PARAM1";

std::string Sql(std::initializer_list<std::string_view> pieces) {
  std::string sql;
  for (const std::string_view piece : pieces) sql += piece;
  return sql;
}

// Copies row `row` by `insert`, whose last parameter it is, and deletes it from `table`, in one transaction.
// False: the row is not there, perhaps not any more, and nothing has changed.
bool Move(Plant& plant, std::int32_t row, const std::string& insert, std::initializer_list<Value> parameters,
          std::string_view table) {
  plant.db.Begin();
  if (plant.Run(insert, parameters).affected == 0 ||
      plant.Run(Sql({"delete from ", table, " where MDC_LOG_ID = ?"}), {row}).affected == 0) {
    plant.db.Rollback();
    return false;
  }
  plant.db.Commit();
  return true;
}

// Runs `work`, which needs the table of events set aside.
template <class Work>
auto WithAside(Work work) {
  try {
    return work();
  } catch (const DatabaseError& error) {
    if (!IsMissingTable(error)) throw;
    throw ToolError(Sql({"the plant has no table ", kAside, "; \"kxdata7 create\" adds it"}));
  }
}

std::string RowName(std::int32_t row) { return "row " + std::to_string(row); }

}  // namespace

int SetAside(const PlantOptions& options, std::int32_t row, const std::string& reason) {
  Plant plant(options);
  const auto event = ReadQueuedEvent(plant, row);
  if (!event) throw ToolError(RowName(row) + " does not wait");
  std::string error = reason;
  const auto first = ReadQueuedEvent(plant);
  if (error.empty() && first && first->row == row) error = TrialError(options, row).value_or("");
  const DateTime now = Component(options, PlantConnectionString(options.plant)).ServerTime();
  const bool moved = WithAside([&] {
    return Move(plant, row,
                Sql({"insert into ", kAside, " (", kColumns, ", ERROR_TEXT, ASIDE_TIME) select ", kColumns,
                     ", ?, ? from ", kQueue, " where MDC_LOG_ID = ?"}),
                {error.empty() ? Value() : Value(error), now, row}, kQueue);
  });
  if (!moved) throw ToolError(RowName(row) + " does not wait any more");
  std::cout << "Set aside " << event->Description() << (error.empty() ? "" : ": " + error) << ".\n";
  return 0;
}

int PutBack(const PlantOptions& options, std::int32_t row) {
  Plant plant(options);
  const std::string insert = Sql({"insert into ", kQueue, " (", kColumns, ") select ", kColumns, " from ",
                                  kAside, " where MDC_LOG_ID = ?"});
  if (!WithAside([&] { return Move(plant, row, insert, {row}, kAside); }))
    throw ToolError(RowName(row) + " is not set aside");
  std::cout << "Put back " << RowName(row) << ".\n";
  return 0;
}

int ListAside(const PlantOptions& options, bool csv) {
  Plant plant(options);
  const Rows rows = WithAside([&] {
    return plant.Run(
        Sql({"select a.MDC_LOG_ID, a.TIME_STAMP, a.MACHINE_ID, a.COMMAND_ID, a.COMMAND_TIME_CODE, "
             "c.COMMAND_TYPE_CODE, a.PARAM1, a.ASIDE_TIME, a.ERROR_TEXT from ",
             kAside, " a left join T_SFC_COMMAND c on c.COMMAND_ID = a.COMMAND_ID order by a.MDC_LOG_ID"}));
  });
  Table table({"row", "time", "machine", "event", "param", "set_aside", "error"});
  for (std::size_t i = 0; i < rows.count(); ++i) {
    table.Add(
        {rows.at(i, 0), rows.at(i, 1), rows.at(i, 2),
         EventName(rows.at(i, 5).ToInt32Or(-1), rows.at(i, 4).ToInt32Or(-1), rows.at(i, 3).ToInt32Or(-1)),
         rows.at(i, 6), rows.at(i, 7), rows.at(i, 8)});
  }
  table.Print(std::cout, csv);
  return 0;
}

int ShowHead(const PlantOptions& options) {
  Plant plant(options);
  const auto head = ReadQueuedEvent(plant);
  if (!head) {
    std::cout << "Nothing waits.\n";
    return 0;
  }
  const auto error = TrialError(options, head->row);
  const Rows behind = plant.Run(Sql({"select count(*) from ", kQueue, " where MDC_LOG_ID > ?"}), {head->row});
  std::cout << "First:  " << head->Description() << (head->param.empty() ? "" : ", \"" + head->param + '"')
            << "\nSince:  " << head->time << "\nBehind: " << behind.at(0, 0).ToText() << "\nError:  ";
  if (!error) {
    std::cout << "\"kxdata7 process\" shows it; only an SQLite plant can be copied for a trial\n";
  } else {
    std::cout << (error->empty() ? "none, in a trial on a copy" : *error) << '\n';
  }
  return 0;
}

void MentionAside(Plant& plant) {
  std::int32_t count = 0;
  try {
    count = plant.Run(Sql({"select count(*) from ", kAside})).at(0, 0).ToInt32();
  } catch (const DatabaseError& error) {
    if (!IsMissingTable(error)) throw;
  }
  if (count == 0) return;
  std::cout << (count == 1 ? "1 event is" : std::to_string(count) + " events are")
            << " set aside; \"kxdata7 queue --aside\" lists them.\n";
}

}  // namespace kx::tool
