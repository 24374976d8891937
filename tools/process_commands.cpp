#include <algorithm>
#include <chrono>
#include <cstdio>
#include <iostream>
#include <memory>

#include "database/table_key.h"
#include "plant/client.h"
#include "plant/follower.h"
#include "plant/plant_settings.h"
#include "plant/platform.h"
#include "plant/processor.h"
#include "plant/progress.h"
#include "plant/queue.h"
#include "plant/stop_signal.h"
#include "plant/trial.h"
#include "plant/trial_folder.h"
#include "tools/command_line.h"
#include "views/listings.h"

namespace kx::tool {
namespace {

// Works off the first event or, with `all`, all that wait when it begins; what arrives meanwhile is left to
// the next run.
int Process(const PlantOptions& options, bool all) {
  const StopSignal stop;
  Processor processor(options);
  const std::int32_t waiting = processor.component().Count();
  const auto first = ReadQueuedEvent(processor.plant());
  if (!first) {
    std::cout << "Nothing waits.\n";
    return 0;
  }
  const std::int32_t total = all ? waiting : 1;
  const auto begin = std::chrono::steady_clock::now();
  std::int32_t done = 0;
  auto outcome = Processor::Outcome::kApplied;
  {
    Progress progress("events", total);
    while (done < total && !stop.requested() &&
           (outcome = processor.Next()) == Processor::Outcome::kApplied) {
      progress.Show(++done);
      Warn(processor.Warning());
    }
  }
  if (all) {
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - begin;
    char time[32];
    std::snprintf(time, sizeof time, "%.1f", seconds.count());
    std::cout << "Applied " << done << " of " << waiting << " events in " << time << " s.\n";
  } else if (done == total) {
    std::cout << "Applied " << first->Description() << ".\n";
  }
  if (outcome == Processor::Outcome::kFailed) throw ToolError(processor.FailureText());
  if (done < total && stop.requested()) throw ToolError("stopped by a signal; the other events wait");
  return 0;
}

int Follow(const PlantOptions& options, const FollowOptions& follow) {
  Follower([&] { return CurrentOptions(options); }, follow, std::cout, std::cerr).Run();
  return 0;
}

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
void PrepareCopy(Plant& copy, kxdata7::Client& component, const std::vector<QueuedEvent>& queue,
                 const QueuedEvent& event) {
  copy.Run("delete from T_SFC_MDC_LOG where MDC_LOG_ID > ?", {event.row});
  const StopSignal stop;
  const auto total = std::ranges::find(queue, event.row, &QueuedEvent::row) - queue.begin();
  Progress progress("events ahead", total);
  for (std::int64_t done = 0; const QueuedEvent& ahead : queue) {
    if (ahead.row == event.row) return;
    if (stop.requested()) throw ToolError("stopped by a signal; the plant is as it was");
    progress.Show(done++);
    if (const kxdata7::Answer answer = component.Next(); !answer)
      throw ToolError("the queue stops at " + ahead.Description() + ", ahead of it: " + answer.error);
  }
}

// Shows what the event in row `row` of the queue, or the first one, will change, by a trial on a copy.
int Explain(const PlantOptions& options, std::optional<std::int32_t> row) {
  const TrialFolder folder({"before.db", "after.db"});
  const PlantOptions before = InFile(options, folder.File("before.db"));
  const PlantOptions after = InFile(options, folder.File("after.db"));
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
    kxdata7::Client component = ConnectComponent(before);
    PrepareCopy(copy, component, queue, *event);
  }
  copy.Run("vacuum into ?", {after.plant});

  const std::string handler = HandlerName(event->type_code, event->time_code, event->command_id);
  std::cout << "Event:   " << event->Description()
            << (event->param.empty() ? "" : ", \"" + event->param + '"')
            << "\nHandler: " << (handler.empty() ? "none" : handler) << '\n';
  PrintMachine(copy, event->machine_id);
  const kxdata7::Answer answer = ConnectComponent(after).Next();
  Plant result(after);
  result.Run("attach ? as old", {before.plant});
  if (!PrintAllChanges(result)) std::cout << "No record changes.\n";
  std::cout << (answer ? "The row leaves the queue.\n"
                       : "The row stays in the queue: " + answer.error + '\n');
  return 0;
}

}  // namespace

void AddProcessCommands(CommandLine& line) {
  const auto all = std::make_shared<bool>();
  const auto follow = std::make_shared<bool>();
  const auto minutes = std::make_shared<std::optional<int>>();
  CLI::App* const process =
      line.Command("process", "Works the first event of the queue into the records", [=, &line] {
        if (!*follow) return Process(line.plant, *all);
        FollowOptions options;
        if (*minutes) options.set_aside_after = std::chrono::minutes(**minutes);
        return Follow(line.plant, options);
      });
  CLI::Option* const all_flag =
      process->add_flag("--all", *all, "All events that wait when it begins; it stops at one that fails");
  CLI::Option* const follow_flag = process->add_flag(
      "--follow", *follow,
      "Stays, and works events in as they come, until it is told to stop; closes the shifts of\n"
      "idle machines, too. An event that fails stays first and is tried again");
  follow_flag->excludes(all_flag);
  process
      ->add_option("--set-aside-after", *minutes,
                   "With --follow: an event that has failed for so many minutes is set aside")
      ->type_name("MINUTES")
      ->check(CLI::Range(1, 100'000))
      ->needs(follow_flag);

  const auto row = std::make_shared<std::optional<std::int32_t>>();
  line.Command("explain", "Shows what an event will change, by a trial on a copy of the plant",
               [&line, row] { return Explain(line.plant, *row); })
      ->add_option("ROW", *row,
                   "Its row in the queue, the first one when not given; those ahead of it go before");
}

}  // namespace kx::tool
