#include "inputs/machine_state.h"

#include <algorithm>

#include "database/text.h"

namespace kx::tool {
namespace {

using kxdata7::time_code::kEnd;

constexpr std::array<std::string_view, 4> kPauses = {"INTERRUPTED", "FEED_HOLD", "OPTIONAL_STOP", "WAIT"};

struct Phase {
  std::string_view mode;
  NamedEvent start, end;
};
constexpr Phase kPhases[] = {{"SETUP", {event::kSetup}, {event::kSetup, kEnd}},
                             {"TEARDOWN", {event::kTeardown}, {event::kTeardown, kEnd}}};

bool IsPause(std::string_view execution) { return std::ranges::find(kPauses, execution) != kPauses.end(); }

// The names under which the flags and bases are kept.
constexpr std::string_view kValuePrefix = "value.";
constexpr std::string_view kBasePrefix = "base.";
constexpr std::string_view kAlarmPrefix = "alarm.";

}  // namespace

std::vector<MachineEvent> MachineState::Apply(const Report& report, Notices& notices) {
  events_.clear();
  time_ = report.time;
  ApplyCycleEnd(report);
  ApplyParts(report, notices);
  ApplyModeAndDowntime(report);
  ApplyProgramAndStart(report);
  for (const Observation& told : report.observations) {
    // What is unavailable leaves a program and a mode as they are; execution has ended.
    const bool keeps = told.item != Item::kExecution && told.value.empty();
    if (!keeps) values_[told.item] = told.value;
  }
  return std::move(events_);
}

void MachineState::ApplyCycleEnd(const Report& report) {
  const std::string* const execution = report.Find(Item::kExecution);
  const bool pauses = execution != nullptr && IsPause(*execution);
  const bool ends = execution != nullptr && *execution != "ACTIVE" && (!pauses || mapping_.pause_ends_cycle);
  const bool replaced = IsPaused() && ChangesProgram(report);
  if (!cycle_runs_ || (!ends && !replaced)) return;
  Emit(event::kCycleEnd);
  cycle_runs_ = false;
}

// A machine that counts good parts has them counted; its count of all parts is left aside then.
void MachineState::ApplyParts(const Report& report, Notices& notices) {
  // A counter that moves together with the program, without a cycle in between, is the other program's.
  const bool is_base = values_.contains(Item::kExecution) && !cycle_since_count_ &&
                       (program_since_count_ || ChangesProgram(report));
  if (report.Find(Item::kGoodParts) != nullptr || bases_.contains(Item::kGoodParts)) {
    CountParts(report, Item::kGoodParts, is_base, notices);
  } else {
    CountParts(report, Item::kParts, is_base, notices);
  }
  CountParts(report, Item::kBadParts, is_base, notices);
}

void MachineState::CountParts(const Report& report, Item item, bool is_base, Notices& notices) {
  const std::string* const value = report.Find(item);
  const auto told = value == nullptr ? std::nullopt : ParsePartCount(*value);
  if (!told) return;
  const auto base = bases_.find(item);
  const std::int64_t count = told->count;
  // Counts of both signs may lie too far apart for a difference.
  const bool rises = base != bases_.end() && count > base->second && !told->reset && !is_base;
  const bool beyond = rises && static_cast<std::uint64_t>(count) - static_cast<std::uint64_t>(base->second) >
                                   static_cast<std::uint64_t>(mapping_.part_limit);
  if (beyond) {
    notices.Say(Notices::Kind::kNote, Concat("jump.", count),
                Concat("the part count jumps from ", base->second, " to ", count, ", more than part_limit ",
                       mapping_.part_limit, ": no parts are counted, and it goes on from there"));
  } else if (rises) {
    Emit({item == Item::kBadParts ? event::kScrappedPartCount : event::kGoodPartCount},
         std::to_string(count - base->second));
  }
  if (base != bases_.end() && base->second == count) return;
  bases_[item] = count;
  cycle_since_count_ = cycle_runs_;
  program_since_count_ = false;
}

void MachineState::ApplyModeAndDowntime(const Report& report) {
  if (const std::string* const alarm = report.Find(Item::kAlarm)) NoteAlarm(*alarm);
  const auto now = [&](Item item) -> const std::string& {
    const std::string* const told = report.Find(item);
    return told != nullptr && !told->empty() ? *told : Known(item);
  };
  const std::string& mode = now(Item::kMode);
  const std::string& mode_before = Known(Item::kMode);
  const bool only_sets = report.opening && mode_before.empty();
  for (const Phase& phase : kPhases) {
    if (mode_before == phase.mode && mode != phase.mode) Emit(phase.end);
  }
  const bool stopped = now(Item::kStop) == "TRIGGERED";
  const bool maintained = mode == "MAINTENANCE" && !mapping_.maintenance.empty();
  const bool down = stopped || maintained || !alarms_.empty();
  const bool first = report.opening && Known(Item::kStop).empty() && mode_before.empty();
  if (down && !is_down_ && !first) {
    Emit(event::kMachineDowntimeStart, stopped      ? ""
                                       : maintained ? mapping_.maintenance
                                                    : mapping_.alarm_downtime);
    cycle_runs_ = false;  // a downtime closes it
  } else if (!down && is_down_) {
    Emit(event::kMachineDowntimeEnd);
  }
  is_down_ = down;
  for (const Phase& phase : kPhases) {
    if (mode != phase.mode || mode_before == phase.mode || only_sets) continue;
    Emit(phase.start);
    cycle_runs_ = false;
  }
}

void MachineState::ApplyProgramAndStart(const Report& report) {
  const std::string* const program = report.Find(Item::kProgram);
  if (program != nullptr && !program->empty() && *program != Known(Item::kProgram)) {
    if (!Known(Item::kProgram).empty()) program_since_count_ = true;
    Emit(event::kPartStart, *program);
  }
  const std::string* const execution = report.Find(Item::kExecution);
  if (execution == nullptr || *execution != "ACTIVE" || cycle_runs_ || Known(Item::kExecution) == "ACTIVE")
    return;
  if (values_.contains(Item::kExecution) || !report.opening) Emit(event::kCycleStart);
  cycle_runs_ = true;
  cycle_since_count_ = true;
}

// "FAULT code", "NORMAL code" or "NORMAL", which takes all back; a warning is none.
void MachineState::NoteAlarm(const std::string& value) {
  const std::size_t blank = value.find(' ');
  const std::string level = value.substr(0, blank);
  const std::string code = blank == std::string::npos ? "" : value.substr(blank + 1);
  constexpr std::size_t kMostAlarms = 100;
  if (level == "FAULT") {
    if (alarms_.size() < kMostAlarms) alarms_.insert(code);
  } else if (code.empty()) {
    alarms_.clear();
  } else {
    alarms_.erase(code);
  }
}

const std::string& MachineState::Known(Item item) const {
  static const std::string kNothing;
  const auto value = values_.find(item);
  return value == values_.end() ? kNothing : value->second;
}

bool MachineState::IsPaused() const { return IsPause(Known(Item::kExecution)); }

bool MachineState::ChangesProgram(const Report& report) const {
  const std::string* const program = report.Find(Item::kProgram);
  const std::string& known = Known(Item::kProgram);
  return program != nullptr && !program->empty() && !known.empty() && *program != known;
}

void MachineState::Save(NamedValues& values) const {
  for (const auto& [item, value] : values_) values[Concat(kValuePrefix, ItemName(item))] = value;
  for (const auto& [item, base] : bases_) values[Concat(kBasePrefix, ItemName(item))] = std::to_string(base);
  std::size_t number = 0;
  for (const std::string& alarm : alarms_) values[Concat(kAlarmPrefix, ++number)] = alarm;
  for (const auto& [name, flag] : {std::pair("cycle", cycle_runs_), std::pair("down", is_down_),
                                   std::pair("cycle_since_count", cycle_since_count_),
                                   std::pair("program_since_count", program_since_count_)}) {
    values[name] = flag ? "yes" : "no";
  }
}

void MachineState::Load(const NamedValues& values) {
  const auto is_set = [&](const char* name) {
    const auto value = values.find(name);
    return value != values.end() && value->second == "yes";
  };
  cycle_runs_ = is_set("cycle");
  is_down_ = is_set("down");
  cycle_since_count_ = is_set("cycle_since_count");
  program_since_count_ = is_set("program_since_count");
  for (const Item item : kItems) {
    if (const auto value = values.find(Concat(kValuePrefix, ItemName(item))); value != values.end())
      values_[item] = value->second;
    const auto base = values.find(Concat(kBasePrefix, ItemName(item)));
    if (base == values.end()) continue;
    if (const auto count = ParsePartCount(base->second)) bases_[item] = count->count;
  }
  for (const auto& [name, value] : values) {
    if (name.starts_with(kAlarmPrefix)) alarms_.insert(value);
  }
}

}  // namespace kx::tool
