#include <chrono>
#include <cstdio>
#include <iostream>

#include "database/database_error.h"
#include "plant/component.h"
#include "plant/events.h"
#include "plant/platform.h"
#include "tools/commands.h"

namespace kx::tool {
namespace {

// A bar on the standard error as long as that is a terminal.
class ProgressBar {
 public:
  explicit ProgressBar(std::int32_t total) : total_(total), shown_(IsErrorATerminal()) {}
  ~ProgressBar() {
    if (shown_) std::fputs("\r\x1b[K", stderr);
  }
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;

  void Show(std::int32_t done) {
    constexpr int kWidth = 50;
    const int filled = static_cast<int>(std::int64_t{done} * kWidth / total_);
    if (!shown_ || filled == filled_) return;
    filled_ = filled;
    const std::string bar(static_cast<std::size_t>(filled), '=');
    std::fprintf(stderr, "\r[%-*s] %d of %d", kWidth, bar.c_str(), done, total_);
  }

 private:
  std::int32_t total_;
  bool shown_;
  int filled_ = -1;
};

// Why the first event did not go through.
std::string FailureText(Plant& plant, const std::string& error) {
  std::string event = "the first event";
  try {
    if (const auto first = ReadQueuedEvent(plant)) event = first->Description();
  } catch (const DatabaseError&) {
    // What the component reported says more than a failure to read the row.
  }
  if (!error.empty()) return event + ": " + error;
  return event + " was applied, but its row could not be deleted; the next run applies it again";
}

}  // namespace

int Append(const PlantOptions& options, const AppendOptions& append) {
  const NamedEvent event = ParseEventName(append.event);
  Plant plant(options);
  const Machine machine = plant.FindMachine(append.machine);
  const auto number = [&](const char* table, std::optional<std::int32_t> given, std::int32_t id) {
    if (given) plant.FindId(table, *given);
    return given ? *given : plant.NumberOf(table, id);
  };
  EventNumbers numbers{number("T_SFC_DEPT", append.dept, machine.dept_id),
                       number("T_SFC_LOCATION", append.location, machine.location_id),
                       number("T_SFC_GROUP", append.group, machine.group_id), append.machine, -1};
  if (event.type_code != kRefresh) {
    const Command command = event.type_code == kCustom ? plant.FindCommand(event.command_number)
                                                       : plant.FindCommandOfType(event.type_code);
    RequireUsableParam(command.type_code, append.param);
    numbers.command = plant.NumberOf("T_SFC_COMMAND", command.id);
  }
  Component(options, PlantConnectionString(options.plant))
      .Append(numbers, options.by_dnc, append.param, event.time_code);
  std::cout << "Queued " << append.event << " for " << machine.name << ".\n";
  return 0;
}

int Process(const PlantOptions& options, bool all) {
  Plant plant(options);
  Component component(options, PlantConnectionString(options.plant));
  // The events that arrive meanwhile are left to the next run. Within the count a False is a failure, unless
  // the queue is empty because others were set aside meanwhile.
  const std::int32_t waiting = component.Count();
  if (waiting == 0) {
    std::cout << "Nothing waits.\n";
    return 0;
  }
  const std::int32_t total = all ? waiting : 1;
  const std::string first = all ? "" : ReadQueuedEvent(plant).value().Description();
  const auto begin = std::chrono::steady_clock::now();
  std::int32_t done = 0;
  std::string error;
  {
    ProgressBar bar(total);
    while (done < total && component.DoNext(error)) bar.Show(++done);
  }
  if (all) {
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - begin;
    char time[32];
    std::snprintf(time, sizeof time, "%.1f", seconds.count());
    std::cout << "Applied " << done << " of " << waiting << " events in " << time << " s.\n";
  } else if (done == total) {
    std::cout << "Applied " << first << ".\n";
  }
  if (done < total && !(error.empty() && component.Count() == 0)) throw ToolError(FailureText(plant, error));
  return 0;
}

}  // namespace kx::tool
