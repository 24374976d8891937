#include "plant/events.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "database/database_error.h"
#include "database/numeric_text.h"
#include "plant/plant.h"

namespace kx::tool {
namespace {

struct EventKind {
  std::int32_t type_code;
  std::string_view name;
  std::string_view handler;  // without "Do" and "Start" or "End"
  bool is_count;             // neither started nor ended
};

constexpr std::array<EventKind, 11> kKinds = {{{4, "logon", "Logon", false},
                                               {5, "job", "Job", false},
                                               {6, "part", "Part", false},
                                               {7, "operation", "Op", false},
                                               {8, "setup", "Setup", false},
                                               {9, "cycle", "Cycle", false},
                                               {10, "teardown", "Teardown", false},
                                               {11, "machine downtime", "MachineDowntime", false},
                                               {12, "user downtime", "UserDowntime", false},
                                               {13, "good", "GoodPartCount", true},
                                               {14, "scrap", "ScrappedPartCount", true}}};

const EventKind* FindKind(std::int32_t type_code) {
  const auto* found = std::ranges::find(kKinds, type_code, &EventKind::type_code);
  return found == kKinds.end() ? nullptr : found;
}

bool RemoveSuffix(std::string_view& text, std::string_view suffix) {
  if (!text.ends_with(suffix)) return false;
  text.remove_suffix(suffix.size());
  return true;
}

constexpr std::string_view kCustomPrefix = "custom ";

}  // namespace

NamedEvent ParseEventName(std::string_view name) {
  if (name == "refresh") return {kRefresh, 0};
  std::string_view noun = name;
  const std::int32_t time_code = RemoveSuffix(noun, " start") ? 0 : RemoveSuffix(noun, " end") ? 1 : 2;
  for (const EventKind& kind : kKinds) {
    if (kind.name == noun && kind.is_count == (time_code == 2)) return {kind.type_code, time_code % 2};
  }
  if (noun.starts_with(kCustomPrefix)) {
    noun.remove_prefix(kCustomPrefix.size());
    NamedEvent custom{kCustom, time_code};
    const auto [end, error] = std::from_chars(noun.data(), noun.data() + noun.size(), custom.command_number);
    if (error == std::errc() && end == noun.data() + noun.size()) return custom;
  }
  throw ToolError("there is no event \"" + std::string(name) + "\"");
}

std::string EventNames() {
  std::string started;
  std::string counted;
  for (const EventKind& kind : kKinds) (kind.is_count ? counted : started) += std::string(kind.name) + ", ";
  return started + "\ncustom N (N: a command), each with start or end; " + counted +
         "refresh, custom N alone";
}

std::string EventName(std::int32_t type_code, std::int32_t time_code, std::int32_t command_id) {
  if (command_id == -1) return "refresh";
  const EventKind* const kind = FindKind(type_code);
  if (kind != nullptr && kind->is_count) return std::string(kind->name);
  const std::string name =
      kind != nullptr ? std::string(kind->name) : std::string(kCustomPrefix) + std::to_string(command_id);
  if (time_code == 0) return name + " start";
  if (time_code == 1) return name + " end";
  return kind == nullptr && time_code == 2 ? name : name + " (time code " + std::to_string(time_code) + ")";
}

std::string HandlerName(std::int32_t type_code, std::int32_t time_code, std::int32_t command_id) {
  if (command_id == -1) return "HandleExpiredShifts";
  const EventKind* const kind = FindKind(type_code);
  std::string name = "Do" + std::string(kind == nullptr ? "Custom" : kind->handler);
  if (kind != nullptr && kind->is_count) return name;
  if (time_code == 0) return name + "Start";
  if (time_code == 1) return name + "End";
  return kind == nullptr && time_code == 2 ? name + "Both" : "";
}

void RequireUsableParam(std::int32_t type_code, std::string_view param) {
  RequirePlainText(param);
  const bool scrap = type_code == event::kScrapCount.type_code;
  if (!scrap && type_code != event::kGoodCount.type_code) return;
  try {
    const auto number = ParseNumericText(scrap ? param.substr(0, param.find('.')) : param);
    if (number && scrap && RoundToInt16(*number) == INT16_MIN) throw OverflowError();
    if (number) RoundToInt16(*number);
  } catch (const DatabaseError&) {
    throw ToolError("a count of \"" + std::string(param) + "\" is more than one event can report");
  }
}

}  // namespace kx::tool
