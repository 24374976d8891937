#include <algorithm>
#include <iostream>

#include "database/table_key.h"
#include "plant/component.h"
#include "plant/events.h"
#include "plant/platform.h"
#include "plant/temporary_folder.h"
#include "tools/commands.h"

namespace kx::tool {
namespace {

std::string Show(const Value& value) { return value.ToTextOr("NULL"); }

void PrintMachine(Plant& plant, std::int32_t machine_id) {
  const Rows rows = plant.Run(
      "select MACHINE_NAME, STATUS_CODE, STATUS_DATE, MACHINE_DATA_ID from T_SFC_MACHINE where MACHINE_ID = "
      "?",
      {machine_id});
  std::cout << "Machine: " << machine_id;
  if (rows.count() == 0) {
    std::cout << ", which does not exist\n";
  } else {
    std::cout << " (" << Show(rows.at(0, 0)) << "), " << StatusName(rows.at(0, 1)) << " since "
              << Show(rows.at(0, 2)) << ", record " << Show(rows.at(0, 3)) << '\n';
  }
}

// Prints how `table` of the plant differs from that of the attached database `old`; false when it does not.
bool PrintChanges(Plant& plant, const std::string& table) {
  const std::string key = KeyColumnOf(table);
  const std::string old_row = "select * from old." + table + " where " + key + " = ?";
  const Rows changed = plant.Run("select * from main." + table + " except select * from old." + table);
  const auto key_column =
      static_cast<std::size_t>(std::ranges::find(changed.columns, key) - changed.columns.begin());
  if (key_column == changed.columns.size()) return false;
  for (std::size_t i = 0; i < changed.count(); ++i) {
    const Value& id = changed.at(i, key_column);
    const Rows old = plant.Run(old_row, {id});
    const bool is_new = old.count() == 0;
    std::cout << table << ' ' << Show(id) << (is_new ? " is new\n" : "\n");
    for (std::size_t column = 0; column < changed.columns.size(); ++column) {
      const Value& now = changed.at(i, column);
      const Value before = is_new ? Value() : old.at(0, column);
      if (column == key_column || now == before) continue;
      std::cout << "  " << changed.columns[column] << ": " << (is_new ? "" : Show(before) + " -> ")
                << Show(now) << '\n';
    }
  }
  const Rows gone =
      plant.Run("select " + key + " from old." + table + " except select " + key + " from main." + table);
  for (std::size_t i = 0; i < gone.count(); ++i)
    std::cout << table << ' ' << Show(gone.at(i, 0)) << " is deleted\n";
  return changed.count() + gone.count() > 0;
}

bool PrintAllChanges(Plant& plant) {
  const Rows tables = plant.Run(
      "select name from main.sqlite_schema where type = 'table' and name like 'T\\_SFC\\_%' escape '\\' and "
      "name <> 'T_SFC_MDC_LOG' order by rowid");
  bool any = false;
  for (std::size_t i = 0; i < tables.count(); ++i) any |= PrintChanges(plant, tables.at(i, 0).ToText());
  return any;
}

// The copy of a plant with all that waits ahead of `event` worked in, and nothing queued behind it.
void PrepareCopy(Plant& copy, Component& component, const std::vector<QueuedEvent>& queue,
                 const QueuedEvent& event) {
  copy.Run("delete from T_SFC_MDC_LOG where MDC_LOG_ID > ?", {event.row});
  for (const QueuedEvent& ahead : queue) {
    std::string error;
    if (ahead.row == event.row) return;
    if (!component.DoNext(error))
      throw ToolError("the queue stops at " + ahead.Description() + ", ahead of it: " + error);
  }
}

// Copies the plant to `file`. False: it is no plant that can be copied.
bool CopyPlant(const PlantOptions& options, const std::string& file) {
  Plant plant(options);
  if (plant.db.target() != SqlTarget::kSqlite) return false;
  plant.Run("vacuum into ?", {file});
  return true;
}

PlantOptions InFile(const PlantOptions& options, std::string file) {
  return {std::move(file), options.library, options.dialect, false};
}

}  // namespace

std::optional<std::string> TrialError(const PlantOptions& options, std::int32_t row) {
  const TemporaryFolder folder;
  const PlantOptions copy = InFile(options, ToText(folder.path() / "copy.db"));
  if (!CopyPlant(options, copy.plant)) return std::nullopt;
  Plant(copy).Run("delete from T_SFC_MDC_LOG where MDC_LOG_ID <> ?", {row});
  std::string error;
  const bool done = Component(copy, PlantConnectionString(copy.plant)).DoNext(error);
  return done || !error.empty() ? error : "the event is applied, but its row cannot be deleted";
}

int Explain(const PlantOptions& options, std::optional<std::int32_t> row) {
  const TemporaryFolder folder;
  const PlantOptions before = InFile(options, ToText(folder.path() / "before.db"));
  const PlantOptions after = InFile(options, ToText(folder.path() / "after.db"));
  if (!CopyPlant(options, before.plant))
    throw ToolError("explain tries the event on a copy, and only an SQLite plant can be copied");
  Plant copy(before);
  const std::vector<QueuedEvent> queue = ReadQueue(copy);
  const auto event = row ? std::ranges::find(queue, *row, &QueuedEvent::row) : queue.begin();
  if (event == queue.end()) {
    if (row) throw ToolError("row " + std::to_string(*row) + " does not wait");
    std::cout << "Nothing waits.\n";
    return 0;
  }
  {
    Component component(before, PlantConnectionString(before.plant));
    PrepareCopy(copy, component, queue, *event);
  }
  copy.Run("vacuum into ?", {after.plant});

  const std::string handler = HandlerName(event->type_code, event->time_code, event->command_id);
  std::cout << "Event:   " << event->Description()
            << (event->param.empty() ? "" : ", \"" + event->param + '"')
            << "\nHandler: " << (handler.empty() ? "none" : handler) << '\n';
  PrintMachine(copy, event->machine_id);
  std::string error;
  const bool done = Component(after, PlantConnectionString(after.plant)).DoNext(error);
  Plant result(after);
  result.Run("attach ? as old", {before.plant});
  if (!PrintAllChanges(result)) std::cout << "No record changes.\n";
  std::cout << (done ? "The row leaves the queue.\n" : "The row stays in the queue: " + error + '\n');
  return 0;
}

}  // namespace kx::tool
