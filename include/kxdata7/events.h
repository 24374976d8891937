// Every event that the component knows by itself, in one table.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>

namespace kxdata7 {

// COMMAND_TYPE_CODE of T_SFC_COMMAND for the events that the component itself works into records; any other
// value is a command of the site's own.
namespace command_type {
inline constexpr std::int32_t kRefresh =
    -2;  // queued without a command: brings the machine's shifts up to date
inline constexpr std::int32_t kCustom = 0;  // stands for all of the site's own in the table of events
inline constexpr std::int32_t kLogon = 4;
inline constexpr std::int32_t kJob = 5;
inline constexpr std::int32_t kPart = 6;
inline constexpr std::int32_t kOperation = 7;
inline constexpr std::int32_t kSetup = 8;
inline constexpr std::int32_t kCycle = 9;
inline constexpr std::int32_t kTeardown = 10;
inline constexpr std::int32_t kMachineDowntime = 11;
inline constexpr std::int32_t kUserDowntime = 12;
inline constexpr std::int32_t kGoodPartCount = 13;
inline constexpr std::int32_t kScrappedPartCount = 14;
}  // namespace command_type

// COMMAND_TIME_CODE: what an event says of the thing that it names.
namespace time_code {
inline constexpr std::int32_t kStart = 0;
inline constexpr std::int32_t kEnd = 1;
inline constexpr std::int32_t kBoth = 2;
}  // namespace time_code

struct Event {
  std::string_view name;  // as an operator calls it
  std::int32_t command_type;
  std::int32_t time_code;    // what it is queued with; a count and a refresh are handled under any
  std::string_view handler;  // the routine of the component that works it in
};

inline constexpr std::array<Event, 24> kEvents = {{
    {"logon start", command_type::kLogon, 0, "DoLogonStart"},
    {"logon end", command_type::kLogon, 1, "DoLogonEnd"},
    {"job start", command_type::kJob, 0, "DoJobStart"},
    {"job end", command_type::kJob, 1, "DoJobEnd"},
    {"part start", command_type::kPart, 0, "DoPartStart"},
    {"part end", command_type::kPart, 1, "DoPartEnd"},
    {"operation start", command_type::kOperation, 0, "DoOpStart"},
    {"operation end", command_type::kOperation, 1, "DoOpEnd"},
    {"setup start", command_type::kSetup, 0, "DoSetupStart"},
    {"setup end", command_type::kSetup, 1, "DoSetupEnd"},
    {"cycle start", command_type::kCycle, 0, "DoCycleStart"},
    {"cycle end", command_type::kCycle, 1, "DoCycleEnd"},
    {"teardown start", command_type::kTeardown, 0, "DoTeardownStart"},
    {"teardown end", command_type::kTeardown, 1, "DoTeardownEnd"},
    {"machine downtime start", command_type::kMachineDowntime, 0, "DoMachineDowntimeStart"},
    {"machine downtime end", command_type::kMachineDowntime, 1, "DoMachineDowntimeEnd"},
    {"user downtime start", command_type::kUserDowntime, 0, "DoUserDowntimeStart"},
    {"user downtime end", command_type::kUserDowntime, 1, "DoUserDowntimeEnd"},
    {"good", command_type::kGoodPartCount, 0, "DoGoodPartCount"},
    {"scrap", command_type::kScrappedPartCount, 0, "DoScrappedPartCount"},
    {"custom start", command_type::kCustom, 0, "DoCustomStart"},
    {"custom end", command_type::kCustom, 1, "DoCustomEnd"},
    {"custom", command_type::kCustom, 2, "DoCustomBoth"},
    {"refresh", command_type::kRefresh, 0, "HandleExpiredShifts"},
}};

// Whether events of a type are neither started nor ended.
constexpr bool IsCount(std::int32_t command_type) {
  return command_type == command_type::kGoodPartCount || command_type == command_type::kScrappedPartCount;
}

// The event of a queued command, by its type in T_SFC_COMMAND (kRefresh: queued without a command); null when
// nothing handles it.
constexpr const Event* FindEvent(std::int32_t type, std::int32_t time_code) {
  const bool known = std::ranges::find(kEvents, type, &Event::command_type) != kEvents.end();
  const bool any_time_code = IsCount(type) || type == command_type::kRefresh;
  for (const Event& event : kEvents) {
    if (event.command_type == (known ? type : command_type::kCustom) &&
        (any_time_code || event.time_code == time_code))
      return &event;
  }
  return nullptr;
}

}  // namespace kxdata7
