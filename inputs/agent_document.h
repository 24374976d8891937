#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kx::tool {

inline constexpr std::size_t kLargestDocument = 64 << 20;  // of an agent, in bytes

// What an agent tells of one data item at one moment.
struct AgentObservation {
  std::uint64_t sequence = 0;
  std::string time;
  std::string id, name, type, sub_type;  // the type as in PART_COUNT
  std::string device, device_uuid;
  std::string path;   // the component of the kind "Path" that it belongs to; empty: none
  std::string value;  // a condition's: its level and, where there is one, its native code
  bool is_condition = false;
};

// A document of an agent: what it tells, or what went wrong.
struct AgentDocument {
  std::string error, error_text;               // "OUT_OF_RANGE"; empty: none
  std::uint64_t instance = 0;                  // another one: the agent has started again
  std::uint64_t first = 0;                     // the oldest observation that the agent still has
  std::uint64_t next = 0;                      // where the next document goes on
  bool has_more = false;                       // the agent has told more already than the document holds
  std::string time;                            // the agent's own, when it wrote this
  std::vector<AgentObservation> observations;  // as they stand, by device and component

  // A ToolError for a text that is no such document, or too large.
  static AgentDocument Parse(std::string_view text);
};

}  // namespace kx::tool
