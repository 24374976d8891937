#include "inputs/agent_reader.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <iterator>

#include "database/text.h"
#include "plant/plant.h"

namespace kx::tool {
namespace {

struct ItemType {
  Item item;
  std::string_view type;
  std::array<std::string_view, 2> sub_types;  // that it may have
};
constexpr ItemType kTypes[] = {
    {Item::kExecution, "EXECUTION", {}},
    {Item::kProgram, "PROGRAM", {"", "MAIN"}},
    {Item::kParts, "PART_COUNT", {"", "ALL"}},
    {Item::kGoodParts, "PART_COUNT", {"GOOD", "GOOD"}},
    {Item::kBadParts, "PART_COUNT", {"BAD", "BAD"}},
    {Item::kStop, "EMERGENCY_STOP", {}},
    {Item::kMode, "FUNCTIONAL_MODE", {}},
    {Item::kAvailable, "AVAILABILITY", {}},
};

bool IsOfItemsType(Item item, const AgentObservation& told) {
  const auto type = std::ranges::find(kTypes, item, &ItemType::item);
  return type != std::end(kTypes) && type->type == told.type &&
         std::ranges::count(type->sub_types, told.sub_type) != 0;
}

bool Takes(const Mapping& mapping, Item item, const AgentObservation& told) {
  if (told.is_condition != (item == Item::kAlarm)) return false;
  const auto named = mapping.keys.find(item);
  if (named == mapping.keys.end()) return IsOfItemsType(item, told);
  if (named->second == told.id || named->second == told.name) return true;
  const bool is_usual = std::ranges::count(kTypes, std::string_view(named->second), &ItemType::type) != 0;
  return named->second == told.type && (!is_usual || IsOfItemsType(item, told));
}

std::optional<std::uint64_t> FindNumber(const NamedValues& values, const char* name) {
  const auto value = values.find(name);
  std::uint64_t number = 0;
  if (value == values.end() ||
      std::from_chars(value->second.data(), value->second.data() + value->second.size(), number).ec !=
          std::errc())
    return std::nullopt;
  return number;
}

// The names under which the place and the data items are kept.
constexpr const char* kInstance = "agent.instance";
constexpr const char* kNext = "agent.next";
constexpr const char* kDevice = "agent.device";
constexpr const char* kPath = "agent.path";
constexpr std::string_view kItemPrefix = "agent.item.";

}  // namespace

std::string AgentReader::NextRequest() const {
  if (!instance_) return "current";
  return Concat("sample?from=", next_, "&count=1000&interval=500&heartbeat=10000");
}

std::vector<Report> AgentReader::Read(std::string_view text, Moment arrival, std::optional<Moment> last) {
  AgentDocument document = Parse(text);
  const bool opening = !instance_;
  if (!document.error.empty() || (!opening && !GoesOn(document))) return {};
  if (opening) BeginWith(document);
  if (!opening && (document.has_more || !held_.empty())) JoinCutMoments(document);

  std::vector<std::pair<const AgentObservation*, Item>> taken;
  for (const AgentObservation& told : document.observations) {
    if (!opening && told.sequence < next_) continue;
    const auto item = ItemOf(told);
    if (!item) continue;
    if (IsPlausible(*item, told.value)) {
      taken.emplace_back(&told, *item);
    } else {
      notices_.Say(Notices::Kind::kRefused, "implausible " + told.id, ImplausibleText(*item, told.value));
    }
  }
  next_ = document.next;
  std::ranges::stable_sort(taken, {}, [](const auto& each) { return each.first->sequence; });

  const bool at_once = opening && !last;
  std::vector<Report> reports;
  std::size_t group = 0;  // the first report of the same time
  const std::string* time = nullptr;
  for (const auto& [told, item] : taken) {
    if (time == nullptr || (!at_once && *time != told->time)) {
      time = &told->time;
      const Time read = ReadTime(at_once ? document.time : told->time, arrival);
      // A clock may have been put back.
      last = std::max(last.value_or(read.moment), read.moment);
      group = reports.size();
      reports.push_back({*last, ToPlantTime(*last, read.is_plant_time), opening, {}});
    }
    AddObservation(reports, item, told->value);
    for (std::size_t i = group; item == Item::kAvailable && i < reports.size(); ++i)
      reports[i].opening = true;
  }
  return reports;
}

// A document that fails each time is left behind.
AgentDocument AgentReader::Parse(std::string_view text) {
  try {
    AgentDocument document = AgentDocument::Parse(text);
    if (document.error == "OUT_OF_RANGE" && instance_) {
      lost_from_ = next_;
      AskForAll();
    } else if (!document.error.empty()) {
      throw ToolError(Concat("the agent answered with ", document.error,
                             document.error_text.empty() ? "" : Concat(": ", document.error_text)));
    }
    failures_ = 0;
    return document;
  } catch (const ToolError&) {
    if (++failures_ >= kMostFailures && instance_) {
      lost_from_ = next_;
      AskForAll();
    }
    throw;
  }
}

// Whether a document goes on where the last one ended; if not, the agent's present state is next.
bool AgentReader::GoesOn(const AgentDocument& document) {
  if (document.instance != instance_) {
    notices_.Say(Notices::Kind::kNote, Concat("restart ", document.instance),
                 "the agent has started again; what happened meanwhile is lost, but for what holds now");
    // It may be another agent, with other data items.
    taken_.clear();
    items_.clear();
    own_device_.clear();
    own_path_.clear();
  } else if (document.next < next_ || document.next < document.first) {
    lost_from_ = next_;
  } else {
    return true;
  }
  AskForAll();
  return false;
}

void AgentReader::BeginWith(const AgentDocument& document) {
  if (lost_from_) {
    notices_.Say(
        Notices::Kind::kNote, Concat("gap ", *lost_from_),
        document.first > *lost_from_
            ? Concat(
                  document.first - *lost_from_, " observations, from number ", *lost_from_,
                  " on, were gone from the agent's memory before they were fetched: they are lost, but for "
                  "what holds now")
            : Concat("what the agent told from number ", *lost_from_,
                     " on could not be fetched: it is lost, but for what holds now"));
  }
  lost_from_.reset();
  instance_ = document.instance;
}

// What happened at one moment is taken together, though an agent may cut it: the end of a document waits for
// the next one, when that is there already.
void AgentReader::JoinCutMoments(AgentDocument& document) {
  std::vector<AgentObservation>& all = document.observations;
  all.insert(all.end(), std::make_move_iterator(held_.begin()), std::make_move_iterator(held_.end()));
  held_.clear();
  std::ranges::stable_sort(all, {}, &AgentObservation::sequence);
  // A new connection begins with what was held.
  const auto is_same = [](const AgentObservation& one, const AgentObservation& other) {
    return one.sequence == other.sequence;
  };
  all.erase(std::unique(all.begin(), all.end(), is_same), all.end());
  if (!document.has_more || all.empty()) return;
  auto cut = all.end() - 1;
  while (cut != all.begin() && (cut - 1)->time == all.back().time) --cut;
  if (cut == all.begin() || cut->sequence <= next_) return;
  document.next = cut->sequence;
  held_.assign(std::make_move_iterator(cut), std::make_move_iterator(all.end()));
  all.erase(cut, all.end());
}

AgentReader::Time AgentReader::ReadTime(const std::string& text, Moment arrival) {
  if (mapping_.times == Mapping::Times::kArrival) return {arrival, false};
  bool offset_given = false;
  const auto moment = ParseMoment(text, offset_given);
  if (moment && *moment - arrival < std::chrono::hours(24))
    return {*moment, !offset_given && mapping_.times == Mapping::Times::kPlant};
  notices_.Say(Notices::Kind::kNote, "time",
               Concat("\"", std::string_view(text).substr(0, 100), "\" is ",
                      moment ? "more than a day ahead" : "no date and time",
                      "; the time of arrival stands for it, also the next time"));
  return {arrival, false};
}

std::optional<Item> AgentReader::ItemOf(const AgentObservation& told) {
  const std::string key = Concat(told.device_uuid, " ", told.device, " ", told.id);
  if (const auto known = items_.find(key); known != items_.end()) return known->second;
  bool is_final = true;
  const auto item = FindItem(told, is_final);
  if (is_final && items_.size() < kMostItems) items_.emplace(key, item);
  return item;
}

std::optional<Item> AgentReader::FindItem(const AgentObservation& told, bool& is_final) {
  if (seen_.size() < kMostSeen) seen_.insert(Concat(told.id, " (", told.type, ")"));
  for (const Item item : kItems) {
    if (!Takes(mapping_, item, told)) continue;
    // The agent itself may be a device with an availability, and no more.
    is_final = item != Item::kAvailable || !own_device_.empty() || !mapping_.device.empty();
    if (!is_final || !IsOwnDevice(told)) return std::nullopt;
    const bool is_named = mapping_.Names(item);
    const auto taken = taken_.find(item);
    const bool other_path = !told.path.empty() && !own_path_.empty() && told.path != own_path_;
    if (taken != taken_.end() ? taken->second != told.id : !is_named && other_path) {
      notices_.Say(Notices::Kind::kNote, Concat("not taken ", told.id),
                   Concat("the data item ", told.id, " is left out, since ",
                          taken != taken_.end() ? taken->second : "the path " + own_path_,
                          " was there first; the machine's mapping can name the one that counts"));
      return std::nullopt;
    }
    if (!is_named && own_path_.empty()) own_path_ = told.path;
    taken_.emplace(item, told.id);
    return item;
  }
  return std::nullopt;
}

bool AgentReader::IsOwnDevice(const AgentObservation& told) {
  if (!mapping_.device.empty()) return mapping_.device == told.device || mapping_.device == told.device_uuid;
  const std::string& device = told.device.empty() ? told.device_uuid : told.device;
  if (own_device_.empty()) own_device_ = device;
  if (own_device_ == device) return true;
  notices_.Say(Notices::Kind::kNote, Concat("device ", device),
               Concat("the device \"", device, "\" is left out, since ", own_device_,
                      " was there first; the machine's mapping can name the device that counts"));
  return false;
}

void AgentReader::Save(NamedValues& values) const {
  if (!instance_) return;
  values[kInstance] = std::to_string(*instance_);
  values[kNext] = std::to_string(next_);
  values[kDevice] = mapping_.device.empty() ? own_device_ : mapping_.device;
  values[kPath] = own_path_;
  for (const auto& [item, id] : taken_) values[Concat(kItemPrefix, ItemName(item))] = id;
}

void AgentReader::Load(const NamedValues& values) {
  instance_ = FindNumber(values, kInstance);
  next_ = FindNumber(values, kNext).value_or(0);
  const auto text = [&](const std::string& name) {
    const auto value = values.find(name);
    return value == values.end() ? std::string() : value->second;
  };
  // A mapping that has changed since then counts.
  if (!mapping_.device.empty() && mapping_.device != text(kDevice)) return;
  own_device_ = text(kDevice);
  own_path_ = text(kPath);
  for (const Item item : kItems) {
    const std::string id = text(Concat(kItemPrefix, ItemName(item)));
    if (!id.empty() && !mapping_.Names(item)) taken_[item] = id;
  }
}

}  // namespace kx::tool
