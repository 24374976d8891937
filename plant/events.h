#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace kx::tool {

// What an operator or a file calls an event: "cycle start", "scrap", "custom 100 end", "refresh".
struct NamedEvent {
  // The command type, or one of the two below.
  std::int32_t type_code;
  std::int32_t time_code;           // 0 start, 1 end, 2 both
  std::int32_t command_number = 0;  // of a custom event

  friend bool operator==(const NamedEvent&, const NamedEvent&) = default;
};
inline constexpr std::int32_t kRefresh = -1;  // brings the machine's shifts up to date
inline constexpr std::int32_t kCustom = 0;    // a command by its number

namespace event {
inline constexpr NamedEvent kPartStart{6, 0};
inline constexpr NamedEvent kCycleStart{9, 0};
inline constexpr NamedEvent kCycleEnd{9, 1};
inline constexpr NamedEvent kMachineDowntimeStart{11, 0};
inline constexpr NamedEvent kMachineDowntimeEnd{11, 1};
inline constexpr NamedEvent kGoodCount{13, 0};
inline constexpr NamedEvent kScrapCount{14, 0};
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
