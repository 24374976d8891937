#pragma once

#include <KXData7.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace kx::tool {

// What an operator or a file calls an event: "cycle start", "scrap", "custom 100 end", "refresh".
struct NamedEvent {
  std::int32_t type_code;  // of kxdata7::command_type
  std::int32_t time_code = kxdata7::time_code::kStart;
  std::int32_t command_number = 0;  // of a custom event

  friend bool operator==(const NamedEvent&, const NamedEvent&) = default;
};

namespace event {
using namespace kxdata7::command_type;
inline constexpr NamedEvent kPartStart{kPart};
inline constexpr NamedEvent kCycleStart{kCycle};
inline constexpr NamedEvent kCycleEnd{kCycle, kxdata7::time_code::kEnd};
inline constexpr NamedEvent kMachineDowntimeStart{kMachineDowntime};
inline constexpr NamedEvent kMachineDowntimeEnd{kMachineDowntime, kxdata7::time_code::kEnd};
inline constexpr NamedEvent kGoodCount{kGoodPartCount};
}  // namespace event

// The event of a name; a ToolError when there is none.
NamedEvent ParseEventName(std::string_view name);

// The names to choose from, for a help text.
std::string EventNames();

// How a queued command is called, and the name of the routine that handles it, empty when none does.
// `command_id` -1: a refresh. `type_code` -1: the command is gone.
std::string EventName(std::int32_t type_code, std::int32_t time_code, std::int32_t command_id);
std::string HandlerName(std::int32_t type_code, std::int32_t time_code, std::int32_t command_id);

// Raises a ToolError for a parameter that could never be worked in and would stop the queue: a text that no
// statement can carry, a count beyond 16 bits.
void RequireUsableParam(std::int32_t type_code, std::string_view param);

}  // namespace kx::tool
