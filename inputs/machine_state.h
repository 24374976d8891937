#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "inputs/mapping.h"
#include "inputs/observation.h"
#include "plant/events.h"

namespace kx::tool {

struct MachineEvent {
  DateTime time;
  NamedEvent event;
  std::string param;
};

// What one machine told last, and what a further report makes of it: the one place where observations become
// events, whatever they came through. Only what differs from the values known is an event. A first value is
// one, too, unless it stands in an opening report; of those only the program is.
class MachineState {
 public:
  explicit MachineState(const Mapping& mapping) : mapping_(mapping) {}

  // The events of a report, in the order in which things happen on a machine when it tells several at once:
  // cycle end, parts, setup and teardown ends, downtime, their starts, part start, cycle start.
  std::vector<MachineEvent> Apply(const Report& report, Notices& notices);

  // Its values, to go on from after a restart.
  void Save(NamedValues& values) const;
  void Load(const NamedValues& values);

 private:
  void ApplyCycleEnd(const Report& report);
  void ApplyParts(const Report& report, Notices& notices);
  void CountParts(const Report& report, Item item, bool is_base, Notices& notices);
  void ApplyModeAndDowntime(const Report& report);
  void ApplyProgramAndStart(const Report& report);
  void NoteAlarm(const std::string& value);
  void Emit(NamedEvent event, std::string param = {}) { events_.push_back({time_, event, std::move(param)}); }
  const std::string& Known(Item item) const;
  bool IsPaused() const;
  bool ChangesProgram(const Report& report) const;

  const Mapping mapping_;
  std::map<Item, std::string> values_;  // as told last; empty: unavailable
  std::map<Item, std::int64_t> bases_;  // from which parts are counted
  std::set<std::string> alarms_;        // the native codes of those that are on
  bool cycle_runs_ = false;
  bool is_down_ = false;
  bool cycle_since_count_ = false;    // one ran since the counter moved last
  bool program_since_count_ = false;  // another program was loaded since then
  DateTime time_;
  std::vector<MachineEvent> events_;
};

}  // namespace kx::tool
