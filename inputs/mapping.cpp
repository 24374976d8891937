#include "inputs/mapping.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>
#include <vector>

#include "database/ascii.h"
#include "database/text.h"
#include "plant/plant.h"

namespace kx::tool {
namespace {

struct ItemWords {
  Item item;
  std::string_view name;
  std::array<std::string_view, 4> endings;  // in lower case
  std::array<std::string_view, 6> but;      // not when the part before the ending ends with one of these
};

constexpr ItemWords kWords[] = {
    {Item::kExecution, "execution", {"execution"}, {}},
    {Item::kProgram, "program", {"program"}, {"sub", "sub_", "sub-"}},
    {Item::kParts,
     "parts",
     {"partcount", "part_count"},
     {"target", "target_", "bad", "bad_", "scrap", "scrap_"}},
    {Item::kGoodParts, "good_parts", {}, {}},
    {Item::kBadParts, "bad_parts", {}, {}},
    {Item::kStop, "stop", {"estop", "e_stop", "emergencystop", "emergency_stop"}, {}},
    {Item::kMode, "mode", {"fmode", "functionalmode", "functional_mode"}, {}},
    {Item::kAlarm, "alarm", {}, {}},
    {Item::kAvailable, "available", {"avail", "availability"}, {}},
};

constexpr std::int64_t kMostPartsAStep = 32767;  // that one event can report
constexpr std::array<std::string_view, 3> kTimes = {"utc", "plant", "arrival"};

const ItemWords& WordsOf(Item item) { return *std::ranges::find(kWords, item, &ItemWords::item); }

std::int64_t ParsePartLimit(const std::string& value) {
  std::int64_t limit = 0;
  const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), limit);
  if (error != std::errc() || end != value.data() + value.size() || limit < 1 || limit > kMostPartsAStep)
    throw ToolError(Concat("part_limit is a number from 1 to ", kMostPartsAStep, ", not \"", value, "\""));
  return limit;
}

bool ParseYes(std::string_view name, std::string_view value) {
  if (value == "yes" || value == "true") return true;
  if (value == "no" || value == "false") return false;
  throw ToolError(Concat(name, " is yes or no, not \"", value, "\""));
}

}  // namespace

std::string_view ItemName(Item item) { return WordsOf(item).name; }

std::string TakenText(const std::map<Item, std::string>& taken) {
  std::string text;
  for (const auto& [item, key] : taken) {
    if (item != Item::kAvailable) Append(text, text.empty() ? "" : ", ", ItemName(item), " from ", key);
  }
  return text;
}

Mapping Mapping::Parse(const NamedValues& values) {
  Mapping mapping;
  for (const auto& [name, value] : values) {
    const auto words = std::ranges::find(kWords, std::string_view(name), &ItemWords::name);
    if (words != std::end(kWords)) {
      if (!value.empty()) mapping.keys[words->item] = value;
    } else if (name == "device") {
      mapping.device = value;
    } else if (name == "part_limit") {
      mapping.part_limit = ParsePartLimit(value);
    } else if (name == "pause_ends_cycle") {
      mapping.pause_ends_cycle = ParseYes(name, value);
    } else if (name == "times") {
      const auto times = std::ranges::find(kTimes, std::string_view(value));
      if (times == kTimes.end())
        throw ToolError(Concat("times is utc, plant or arrival, not \"", value, "\""));
      mapping.times = static_cast<Times>(times - kTimes.begin());
    } else if (name == "maintenance") {
      mapping.maintenance = value;
    } else if (name == "alarm_downtime") {
      mapping.alarm_downtime = value;
    } else {
      throw ToolError(Concat("a mapping has no \"", name, "\""));
    }
  }
  return mapping;
}

std::string Mapping::Describe() const {
  std::string text;
  for (const ItemWords& words : kWords) {
    Append(text, words.name, "=");
    if (const auto key = keys.find(words.item); key != keys.end()) {
      Append(text, key->second);
    } else if (!words.endings[0].empty()) {
      text += "any key that ends with";
      for (const std::string_view ending : words.endings) {
        if (!ending.empty()) Append(text, ending == words.endings[0] ? " " : ", ", ending);
      }
    } else {
      text += "-";
    }
    text += '\n';
  }
  Append(text, "device=", device.empty() ? "the first one" : device, "\npart_limit=", part_limit,
         "\npause_ends_cycle=", pause_ends_cycle ? "yes" : "no",
         "\ntimes=", kTimes.at(static_cast<std::size_t>(times)),
         "\nmaintenance=", maintenance.empty() ? "-" : maintenance,
         "\nalarm_downtime=", alarm_downtime.empty() ? "-" : alarm_downtime, "\n");
  return text;
}

bool Mapping::Takes(Item item, std::string_view key) const {
  if (const auto named = keys.find(item); named != keys.end()) return named->second == key;
  return DefaultPrefix(item, key).has_value();
}

std::optional<std::string> DefaultPrefix(Item item, std::string_view key) {
  const std::string lower = ToLowerAscii(key);
  const ItemWords& words = WordsOf(item);
  for (const std::string_view ending : words.endings) {
    if (ending.empty() || !lower.ends_with(ending)) continue;
    const std::string prefix = lower.substr(0, lower.size() - ending.size());
    const bool other = std::ranges::any_of(
        words.but, [&](std::string_view but) { return !but.empty() && prefix.ends_with(but); });
    if (!other) return prefix;
  }
  return std::nullopt;
}

}  // namespace kx::tool
