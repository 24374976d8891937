#include "plant/events.h"

#include <charconv>
#include <optional>

#include "database/database_error.h"
#include "database/numeric_text.h"
#include "database/text.h"
#include "plant/near_name.h"
#include "plant/plant.h"

namespace kx::tool {
namespace {

namespace command_type = kxdata7::command_type;
using kxdata7::Event;

constexpr std::string_view kCustomNoun = "custom";

// A command's number between "custom " and what follows it; nothing when there is none.
std::optional<std::int32_t> NumberIn(std::string_view text) {
  std::int32_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

// "custom 7 start" for "custom start".
std::string WithNumber(std::string_view custom_name, std::int32_t number) {
  return Concat(kCustomNoun, " ", number, custom_name.substr(kCustomNoun.size()));
}

const Event* FindQueued(std::int32_t type_code, std::int32_t time_code, std::int32_t command_id) {
  return kxdata7::FindEvent(command_id == -1 ? command_type::kRefresh : type_code, time_code);
}

}  // namespace

NamedEvent ParseEventName(std::string_view name) {
  for (const Event& event : kxdata7::kEvents) {
    if (event.command_type != command_type::kCustom) {
      if (event.name == name) return {event.command_type, event.time_code};
      continue;
    }
    const std::string_view ending = event.name.substr(kCustomNoun.size());
    if (!name.starts_with(kCustomNoun) || name.size() <= event.name.size() || !name.ends_with(ending))
      continue;
    const std::string_view number = name.substr(kCustomNoun.size(), name.size() - event.name.size());
    if (const auto command = number.front() == ' ' ? NumberIn(number.substr(1)) : std::nullopt)
      return {command_type::kCustom, event.time_code, *command};
  }
  std::vector<std::string> names;
  names.reserve(kxdata7::kEvents.size());
  for (const Event& event : kxdata7::kEvents) names.emplace_back(event.name);
  throw ToolError(Concat("there is no event \"", name, "\"", DidYouMean(name, names)));
}

std::string EventNames() {
  constexpr std::string_view kStart = " start";
  std::string started;
  std::string counted;
  for (const Event& event : kxdata7::kEvents) {
    if (kxdata7::IsCount(event.command_type)) {
      Append(counted, event.name, ", ");
    } else if (event.command_type != command_type::kCustom && event.name.ends_with(kStart)) {
      Append(started, event.name.substr(0, event.name.size() - kStart.size()), ", ");
    }
  }
  return Concat(started, "\ncustom N (N: a command), each with start or end; ", counted,
                "refresh, custom N alone");
}

std::string EventName(std::int32_t type_code, std::int32_t time_code, std::int32_t command_id) {
  if (const Event* const event = FindQueued(type_code, time_code, command_id))
    return event->command_type == command_type::kCustom ? WithNumber(event->name, command_id)
                                                        : std::string(event->name);
  const std::string_view start = kxdata7::FindEvent(type_code, kxdata7::time_code::kStart)->name;
  const std::string noun(start.substr(0, start.rfind(' ')));
  return Concat(noun == kCustomNoun ? WithNumber(noun, command_id) : noun, " (time code ", time_code, ")");
}

std::string HandlerName(std::int32_t type_code, std::int32_t time_code, std::int32_t command_id) {
  const Event* const event = FindQueued(type_code, time_code, command_id);
  return event == nullptr ? std::string() : std::string(event->handler);
}

void RequireUsableParam(std::int32_t type_code, std::string_view param) {
  RequirePlainText(param);
  if (!kxdata7::IsCount(type_code)) return;
  const bool scrap = type_code == command_type::kScrappedPartCount;
  try {
    const auto number = ParseNumericText(scrap ? param.substr(0, param.find('.')) : param);
    if (number && scrap && RoundToInt16(*number) == INT16_MIN) throw OverflowError();
    if (number) RoundToInt16(*number);
  } catch (const DatabaseError&) {
    throw ToolError(Concat("a count of \"", param, "\" is more than one event can report"));
  }
}

}  // namespace kx::tool
