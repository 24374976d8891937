#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "plant/named_values.h"

namespace kx::tool {

// What a machine tells that becomes events.
enum class Item { kExecution, kProgram, kParts, kGoodParts, kBadParts, kStop, kMode, kAlarm, kAvailable };
inline constexpr Item kItems[] = {Item::kExecution, Item::kProgram,  Item::kParts,
                                  Item::kGoodParts, Item::kBadParts, Item::kStop,
                                  Item::kMode,      Item::kAlarm,    Item::kAvailable};
// "execution", "good_parts": its name in a mapping.
std::string_view ItemName(Item item);
// "execution from pexecution, parts from ppartcount", of keys or ids by what they carry; empty: nothing is
// taken.
std::string TakenText(const std::map<Item, std::string>& taken);

// How the input of one machine is read. What is not named goes by common endings of keys, in an agent's
// documents by the types of the data items.
struct Mapping {
  enum class Times { kUtc, kPlant, kArrival };

  std::map<Item, std::string> keys;  // a key, or a data item's id or type; "-": not taken
  std::string device;                // of a stream that tells of several; empty: the first one
  std::int64_t part_limit = 100;     // parts that one step of a counter can be
  bool pause_ends_cycle = false;
  Times times = Times::kUtc;   // what a time without an offset is
  std::string maintenance;     // the downtime code of the functional mode MAINTENANCE; empty: no event
  std::string alarm_downtime;  // the downtime code of an alarm

  // A ToolError that names what is unknown or wrong.
  static Mapping Parse(const NamedValues& values);
  static Mapping Parse(std::string_view text) { return Parse(ParseNamedValues(text)); }
  // All of it, defaults included, a line each.
  std::string Describe() const;

  // Whether a key is that of `item`, by its name or by the default endings.
  bool Takes(Item item, std::string_view key) const;
  // Whether the mapping itself names a key for `item`.
  bool Names(Item item) const { return keys.contains(item); }
};

// The part of a key before a default ending of `item`, in lower case: "p1" for p1execution. Nothing when the
// key has no such ending.
std::optional<std::string> DefaultPrefix(Item item, std::string_view key);

}  // namespace kx::tool
