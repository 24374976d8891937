#pragma once

#include <vector>

#include "views/numbers.h"

namespace kx::tool {

// What a machine did over a time, from its events and downtimes: records hold sums alone.

enum class State { kCycle, kSetup, kTeardown, kDown, kIdle, kNoData };
inline constexpr std::array kStates = {State::kDown,     State::kCycle, State::kSetup,
                                       State::kTeardown, State::kIdle,  State::kNoData};
std::string_view StateWord(State state);   // "In cycle"
std::string_view StateClass(State state);  // "cycle", in style sheets and documents

struct Segment {
  State state;
  DateTime start, stop;
  bool by_operator = false;   // of a downtime
  Reason reason{};            // likewise
  std::string Label() const;  // "Downtime: Break", "Idle"
};

struct Count {
  DateTime time;
  std::int64_t parts;
};

struct Timeline {
  // By start, downtimes after all others, which they may overlap. Together they fill the range until now.
  std::vector<Segment> segments;
  std::vector<Count> good, scrap;
  bool open = false;  // its last record runs until now or the range's end
};

// The timelines of the machines of `scope` over its range, until now.
std::map<std::int32_t, Timeline> ReadTimelines(Plant& plant, const Scope& scope,
                                               const std::vector<MachineRow>& machines,
                                               const std::vector<RecordRow>& records,
                                               const std::vector<DowntimeRow>& stops,
                                               const std::vector<ScrapRow>& scrap);

struct EventRow {
  std::int32_t id, machine_id, type_code, command_id;
  DateTime start;
  std::optional<DateTime> stop;
  std::string param;
};
// The events that began within [from, to) and, with `reach_in`, the last one of each command before that; of
// commands of `type_codes` alone unless that is empty. In the order of machine and start.
std::vector<EventRow> ReadEvents(Plant& plant, std::optional<std::int32_t> machine, DateTime from,
                                 DateTime to, bool reach_in, std::span<const std::int32_t> type_codes);

}  // namespace kx::tool
