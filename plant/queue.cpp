#include "plant/queue.h"

#include "database/text.h"

namespace kx::tool {
namespace {

constexpr std::string_view kQueue = "T_SFC_MDC_LOG";
constexpr std::string_view kAside = "T_SFC_MDC_LOG_ASIDE";

// What a row has in the queue and keeps when it is set aside.
constexpr std::string_view kColumns =
    "MDC_LOG_ID, COMMAND_ID, DEPT_ID, LOCATION_ID, GROUP_ID, MACHINE_ID, COMMAND_TIME_CODE, TIME_STAMP, "
    "PARAM1";

// The columns of a QueuedEvent from a row `l` of `table`.
std::string SelectEvents(std::string_view table, std::string_view more_columns = "") {
  return Concat(
      "select l.MDC_LOG_ID, l.COMMAND_ID, c.COMMAND_TYPE_CODE, l.COMMAND_TIME_CODE, l.MACHINE_ID, "
      "l.TIME_STAMP, l.PARAM1",
      more_columns, " from ", table, " l left join T_SFC_COMMAND c on c.COMMAND_ID = l.COMMAND_ID");
}

constexpr std::string_view kInOrder = " order by l.MDC_LOG_ID";

QueuedEvent EventOfRow(const Rows& rows, std::size_t index) {
  return {rows.at(index, 0).ToInt32(),     rows.at(index, 1).ToInt32Or(-1), rows.at(index, 2).ToInt32Or(-1),
          rows.at(index, 3).ToInt32Or(-1), rows.at(index, 4).ToInt32Or(-1), rows.at(index, 5).ToTextOr(""),
          rows.at(index, 6).ToTextOr("")};
}

// Copies row `row` by `insert`, whose last parameter it is, and deletes it from `table`.
bool Move(Plant& plant, std::int32_t row, const std::string& insert, std::initializer_list<Value> parameters,
          std::string_view table) {
  plant.db.Begin();
  if (plant.Run(insert, parameters).affected == 0 ||
      plant.Run(Concat("delete from ", table, " where MDC_LOG_ID = ?"), {row}).affected == 0) {
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
    throw ToolError(Concat("the plant has no table ", kAside, "; \"kxdata7 create\" adds it"));
  }
}

// Deletes a row. False: the database does not.
bool CanDelete(Plant& plant, std::int32_t row) {
  try {
    return plant.Run(Concat("delete from ", kQueue, " where MDC_LOG_ID = ?"), {row}).affected == 1;
  } catch (const DatabaseError&) {
    return false;
  }
}

// With more columns and their values.
void InsertEvent(Plant& plant, const Machine& machine, const NamedEvent& event, const std::string& param,
                 DateTime time, std::string_view columns, std::string_view values) {
  Value command_id;
  Value time_code;
  if (event.type_code != kxdata7::command_type::kRefresh) {
    const Command command = plant.FindCommand(event);
    RequireUsableParam(command.type_code, param);
    command_id = command.id;
    time_code = event.time_code;
  }
  plant.Run(Concat("insert into ", kQueue, " (", columns,
                   "COMMAND_ID, DEPT_ID, LOCATION_ID, GROUP_ID, MACHINE_ID, COMMAND_TIME_CODE, TIME_STAMP, "
                   "PARAM1) values (",
                   values, "?, ?, ?, ?, ?, ?, ?, ?)"),
            {command_id, machine.dept_id, machine.location_id, machine.group_id, machine.id, time_code, time,
             param.empty() ? Value() : Value(param)});
}

}  // namespace

std::string QueuedEvent::Name() const { return EventName(type_code, time_code, command_id); }

std::string QueuedEvent::Description() const {
  return Concat("row ", row, " (", Name(), ", machine ", machine_id, ", ", time, ")");
}

std::vector<QueuedEvent> ReadQueue(Plant& plant) {
  const Rows rows = plant.Run(Concat(SelectEvents(kQueue), kInOrder));
  std::vector<QueuedEvent> events;
  for (std::size_t i = 0; i < rows.count(); ++i) events.push_back(EventOfRow(rows, i));
  return events;
}

std::optional<QueuedEvent> ReadQueuedEvent(Plant& plant, std::optional<std::int32_t> row) {
  const std::string select = SelectEvents(kQueue);
  const Rows rows =
      row ? plant.Run(Concat(select, " where l.MDC_LOG_ID = ?"), {*row})
          : plant.Run(Concat(select, " where l.MDC_LOG_ID in (select min(MDC_LOG_ID) from ", kQueue, ")"));
  return rows.count() == 0 ? std::nullopt : std::optional(EventOfRow(rows, 0));
}

std::int32_t CountBehind(Plant& plant, std::int32_t row) {
  return plant.Run(Concat("select count(*) from ", kQueue, " where MDC_LOG_ID > ?"), {row})
      .at(0, 0)
      .ToInt32();
}

std::string MissingFor(Plant& plant, const QueuedEvent& event) {
  if (event.command_id != -1 && event.type_code == -1)
    return Concat("Command ", event.command_id, " is not in the plant's list.");
  const Rows machine = plant.Run(
      "select d.MACHINE_DATA_ID from T_SFC_MACHINE m left join T_SFC_MACHINE_DATA d "
      "on d.MACHINE_DATA_ID = m.MACHINE_DATA_ID where m.MACHINE_ID = ?",
      {event.machine_id});
  if (machine.count() == 0) return Concat("The plant has no machine ", event.machine_id, ".");
  if (machine.at(0, 0).IsNull())
    return Concat("Machine ", event.machine_id, " has no open record; \"kxdata7 doctor\" says more.");
  for (const std::int32_t option : {1, 4, 5}) {
    if (plant.Run("select OPTION_ID from T_SFC_OPTION where APP_CODE = 2 and OPTION_CODE = ?", {option})
            .count() == 0)
      return Concat("The option 2, ", option, " is missing; \"kxdata7 create\" adds it.");
  }
  if (plant.Run("select count(*) from T_SFC_SHIFT").at(0, 0).ToInt32() == 0)
    return "The plant has no shifts.";
  return "";
}

void QueueEvent(Plant& plant, const Machine& machine, const NamedEvent& event, const std::string& param,
                DateTime time) {
  InsertEvent(plant, machine, event, param, time, "", "");
}

void TryToQueue(Plant& plant, const Machine& machine, const NamedEvent& event, const std::string& param) {
  if (plant.db.target() == SqlTarget::kNative) return;
  try {
    plant.db.Begin();
    InsertEvent(plant, machine, event, param, DateTime(2000, 1, 1), "MDC_LOG_ID, ", "-1, ");
    // A file shows only in a commit that its disk is full.
    if (plant.db.target() == SqlTarget::kSqlite && CanDelete(plant, -1)) plant.db.Commit();
  } catch (const DatabaseError& error) {
    plant.db.Rollback();
    if (error.category() != ErrorCategory::kBusy) throw;
  }
  plant.db.Rollback();
}

std::vector<AsideEvent> ReadAside(Plant& plant) {
  const Rows rows = WithAside(
      [&] { return plant.Run(Concat(SelectEvents(kAside, ", l.ASIDE_TIME, l.ERROR_TEXT"), kInOrder)); });
  std::vector<AsideEvent> events;
  for (std::size_t i = 0; i < rows.count(); ++i)
    events.push_back({EventOfRow(rows, i), rows.at(i, 7).ToTextOr(""), rows.at(i, 8).ToTextOr("")});
  return events;
}

std::int32_t CountAside(Plant& plant) {
  try {
    return plant.Run(Concat("select count(*) from ", kAside)).at(0, 0).ToInt32();
  } catch (const DatabaseError& error) {
    if (!IsMissingTable(error)) throw;
    return 0;
  }
}

bool SetAside(Plant& plant, std::int32_t row, const std::string& error, DateTime now) {
  return WithAside([&] {
    return Move(plant, row,
                Concat("insert into ", kAside, " (", kColumns, ", ERROR_TEXT, ASIDE_TIME) select ", kColumns,
                       ", ?, ? from ", kQueue, " where MDC_LOG_ID = ?"),
                {error.empty() ? Value() : Value(error), now, row}, kQueue);
  });
}

bool PutBack(Plant& plant, std::int32_t row) {
  const std::string insert = Concat("insert into ", kQueue, " (", kColumns, ") select ", kColumns, " from ",
                                    kAside, " where MDC_LOG_ID = ?");
  return WithAside([&] { return Move(plant, row, insert, {row}, kAside); });
}

}  // namespace kx::tool
