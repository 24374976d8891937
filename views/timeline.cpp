#include "views/timeline.h"

#include <algorithm>
#include <array>

#include "database/numeric_text.h"
#include "database/text.h"
#include "kxdata7/events.h"

namespace kx::tool {
namespace {

namespace command_type = kxdata7::command_type;

constexpr std::array kDrawn = {command_type::kSetup, command_type::kCycle, command_type::kTeardown,
                               command_type::kGoodPartCount};

struct Span {
  DateTime start, stop;
};

// The parts of `whole` that no span of `taken` covers.
std::vector<Span> Without(const std::vector<Span>& whole, std::vector<Span> taken) {
  std::ranges::sort(taken, {}, &Span::start);
  std::vector<Span> rest;
  for (Span span : whole) {
    for (const Span& cut : taken) {
      if (cut.stop <= span.start || cut.start >= span.stop) continue;
      if (cut.start > span.start) rest.push_back({span.start, cut.start});
      span.start = std::max(span.start, cut.stop);
    }
    if (span.start < span.stop) rest.push_back(span);
  }
  return rest;
}

// Spans in the order of their starts, those that touch or overlap made one.
std::vector<Span> Merged(std::vector<Span> spans) {
  std::ranges::sort(spans, {}, &Span::start);
  std::vector<Span> merged;
  for (const Span& span : spans) {
    if (!merged.empty() && span.start <= merged.back().stop) {
      merged.back().stop = std::max(merged.back().stop, span.stop);
    } else {
      merged.push_back(span);
    }
  }
  return merged;
}

State StateOf(std::int32_t type_code) {
  return type_code == command_type::kSetup      ? State::kSetup
         : type_code == command_type::kTeardown ? State::kTeardown
                                                : State::kCycle;
}

// How many parts a good count's event booked.
std::int64_t PartsOf(const std::string& param) {
  const auto number = ParseNumericText(param);
  return number ? RoundToInt16(*number) : 1;
}

// Builds the timeline of one machine, clipped to a time.
class Builder {
 public:
  Builder(DateTime from, DateTime to) : whole_{from, to} {}

  void Cover(DateTime start, DateTime stop) {
    if (const auto span = Clip(start, stop)) covered_.push_back(*span);
  }
  void Add(Segment segment) {
    const auto span = Clip(segment.start, segment.stop);
    if (!span) return;
    taken_.push_back(*span);
    segment.start = span->start;
    segment.stop = span->stop;
    segments_.push_back(std::move(segment));
  }
  std::vector<Segment> Finish() {
    const std::vector<Span> covered = Merged(covered_);
    for (const Span& idle : Without(covered, taken_))
      segments_.push_back({State::kIdle, idle.start, idle.stop});
    taken_.insert(taken_.end(), covered.begin(), covered.end());
    for (const Span& gap : Without({whole_}, taken_))
      segments_.push_back({State::kNoData, gap.start, gap.stop});
    std::ranges::stable_sort(segments_, {},
                             [](const Segment& s) { return std::pair(s.state == State::kDown, s.start); });
    return std::move(segments_);
  }

 private:
  std::optional<Span> Clip(DateTime start, DateTime stop) const {
    const Span span{std::max(start, whole_.start), std::min(stop, whole_.stop)};
    return span.start < span.stop ? std::optional(span) : std::nullopt;
  }

  Span whole_;
  std::vector<Span> covered_, taken_;
  std::vector<Segment> segments_;
};

}  // namespace

std::string_view StateWord(State state) {
  constexpr std::array<std::string_view, 6> kWords = {"In cycle", "Setup", "Teardown",
                                                      "Downtime", "Idle",  "No data"};
  return kWords[static_cast<std::size_t>(state)];
}

std::string_view StateClass(State state) {
  constexpr std::array<std::string_view, 6> kClasses = {"cycle", "setup", "teardown",
                                                        "down",  "idle",  "nodata"};
  return kClasses[static_cast<std::size_t>(state)];
}

std::string Segment::Label() const {
  return state == State::kDown ? Concat(StateWord(state), ": ", reason.Text())
                               : std::string(StateWord(state));
}

std::vector<EventRow> ReadEvents(Plant& plant, std::optional<std::int32_t> machine, DateTime from,
                                 DateTime to, bool reach_in, std::span<const std::int32_t> type_codes) {
  // Machine and command lead into the index of events, one short search each, in the order of the tables
  // here.
  std::string types;
  for (const std::int32_t code : type_codes) Append(types, types.empty() ? "" : ", ", code);
  const std::string first =
      reach_in
          ? "coalesce((select max(b.START_TIME) from T_SFC_EVENT b where b.MACHINE_ID = m.MACHINE_ID and "
            "b.COMMAND_ID = c.COMMAND_ID and b.START_TIME < ?), ?)"
          : "?";
  std::vector<Value> parameters(reach_in ? 2 : 1, from);
  parameters.emplace_back(to);
  if (machine) parameters.emplace_back(*machine);
  const Rows rows = plant.db.ExecuteDirect(
      Concat("select e.EVENT_ID, e.MACHINE_ID, c.COMMAND_TYPE_CODE, c.COMMAND_ID, e.START_TIME, e.STOP_TIME, "
             "e.PARAM1 from T_SFC_MACHINE m cross join T_SFC_COMMAND c cross join T_SFC_EVENT e "
             "where e.MACHINE_ID = m.MACHINE_ID and e.COMMAND_ID = c.COMMAND_ID and e.START_TIME >= ",
             first, " and e.START_TIME < ?", machine ? " and m.MACHINE_ID = ?" : "",
             types.empty() ? "" : Concat(" and c.COMMAND_TYPE_CODE in (", types, ")"),
             " order by e.MACHINE_ID, e.START_TIME, e.EVENT_ID"),
      parameters);
  std::vector<EventRow> events;
  for (std::size_t i = 0; i < rows.count(); ++i) {
    events.push_back({rows.at(i, 0).ToInt32(), rows.at(i, 1).ToInt32(), rows.at(i, 2).ToInt32Or(-1),
                      rows.at(i, 3).ToInt32(), rows.at(i, 4).ToDateTime(),
                      rows.at(i, 5).IsNull() ? std::nullopt : std::optional(rows.at(i, 5).ToDateTime()),
                      rows.at(i, 6).ToTextOr("")});
  }
  return events;
}

std::map<std::int32_t, Timeline> ReadTimelines(Plant& plant, const Scope& scope,
                                               const std::vector<MachineRow>& machines,
                                               const std::vector<RecordRow>& records,
                                               const std::vector<DowntimeRow>& stops,
                                               const std::vector<ScrapRow>& scrap) {
  const DateTime from = scope.range.from, until = std::min(scope.range.to, scope.now);
  std::map<std::int32_t, Builder> builders;
  std::map<std::int32_t, Timeline> timelines;
  const auto builder = [&](std::int32_t id) -> Builder& {
    return builders.try_emplace(id, from, until).first->second;
  };
  for (const MachineRow& machine : machines) builder(machine.id);
  // An open record covers the time until now, whichever shift it is booked on.
  for (const RecordRow& record : ReadOpenRecords(plant, scope.now)) {
    if (!builders.contains(record.machine_id)) continue;
    builder(record.machine_id).Cover(record.start, until);
    timelines[record.machine_id].open = record.start < until;
  }
  for (const RecordRow& record : records) builder(record.machine_id).Cover(record.start, record.end);
  const std::vector<EventRow> events = ReadEvents(plant, scope.machine, from, until, true, kDrawn);
  for (std::size_t i = 0; i < events.size(); ++i) {
    const EventRow& event = events[i];
    if (event.type_code == command_type::kGoodPartCount) {
      if (event.start >= from)
        timelines[event.machine_id].good.push_back({event.start, PartsOf(event.param)});
      continue;
    }
    // One that was never stopped ends with the next of its kind.
    DateTime stop = event.stop.value_or(until);
    for (std::size_t next = i + 1; !event.stop && next < events.size(); ++next) {
      if (events[next].machine_id != event.machine_id) break;
      if (events[next].type_code == command_type::kGoodPartCount) continue;
      stop = events[next].start;
      break;
    }
    builder(event.machine_id).Add({StateOf(event.type_code), event.start, stop});
  }
  for (const DowntimeRow& stop : stops) {
    builder(stop.machine_id)
        .Add({State::kDown, stop.start, stop.stop.value_or(until), stop.by_operator, stop.reason});
  }
  for (const ScrapRow& row : scrap) timelines[row.machine_id].scrap.push_back({row.time, row.quantity});
  for (auto& [id, one] : builders) timelines[id].segments = one.Finish();
  return timelines;
}

}  // namespace kx::tool
