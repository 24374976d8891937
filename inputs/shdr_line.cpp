#include "inputs/shdr_line.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <tuple>

#include "database/ascii.h"
#include "database/text.h"
#include "plant/plant.h"

namespace kx::tool {
namespace {

constexpr std::string_view kBlanks = " \t\r\n";
constexpr std::string_view kMultiline = "--multiline--";
constexpr std::size_t kMostMultilines = 100'000;
constexpr std::size_t kMostFields = 10'000;

std::string_view Trim(std::string_view text) {
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

// The length of a quoted field at the beginning of `text`, 0 when there is none.
std::size_t QuotedLength(std::string_view text) {
  if (!text.starts_with('"')) return 0;
  for (std::size_t i = 1; i < text.size(); ++i) {
    if (text[i] == '\\') {
      ++i;
    } else if (text[i] == '"') {
      const std::size_t next = std::min(text.find_first_not_of(" \t", i + 1), text.size());
      return next == text.size() || text[next] == '|' ? i + 1 : 0;
    } else if (text[i] == '|') {
      return 0;
    }
  }
  return 0;
}

std::string Unquote(std::string_view quoted) {
  std::string text;
  for (std::size_t i = 1; i + 1 < quoted.size(); ++i) {
    if (quoted[i] == '\\' && quoted[i + 1] == '|') ++i;
    text += quoted[i];
  }
  return text;
}

bool IsNumber(std::string_view text) {
  return text.find_first_not_of("0123456789.") == std::string_view::npos;
}

// Whether a condition stands at `i`: a key, its level, native code, severity, qualifier and text.
bool IsCondition(const std::vector<std::string>& fields, std::size_t i) {
  if (i + 5 >= fields.size()) return false;
  const auto is = [&](std::size_t at, std::string_view word) {
    return EqualsIgnoringCase(fields[i + at], word);
  };
  if (is(1, "UNAVAILABLE")) return is(2, "") && is(3, "") && is(4, "") && is(5, "");
  return (is(1, "NORMAL") || is(1, "WARNING") || is(1, "FAULT")) &&
         (is(4, "") || is(4, "HIGH") || is(4, "LOW"));
}

// The digits of a key's prefix tell its path: "p1", "path2_".
std::string PathOf(std::string_view prefix) {
  std::string digits;
  for (const char c : prefix) {
    if (c >= '0' && c <= '9') digits += c;
  }
  return digits;
}

}  // namespace

std::vector<std::string> SplitFields(std::string_view line) {
  std::vector<std::string> fields;
  while (fields.size() < kMostFields) {
    line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
    const std::size_t quoted = QuotedLength(line);
    const std::size_t end = line.find('|', quoted);
    const std::string_view field = Trim(line.substr(0, end));
    fields.push_back(quoted == 0 ? std::string(field) : Unquote(line.substr(0, quoted)));
    if (end == std::string_view::npos) break;
    line.remove_prefix(end + 1);
  }
  return fields;
}

std::vector<Report> ShdrReader::Read(std::string_view sent, std::optional<Moment> arrival, bool opening) {
  if (sent.size() >= kLongestLine) {
    notices_.Say(Notices::Kind::kRefused, "long line", "the line is too long; its end is left out");
    sent = sent.substr(0, sent.rfind('|'));  // of 123 there may be 12
  }
  const std::string plain = PlainText(sent);
  const std::string_view line = Trim(plain);
  if (!multiline_end_.empty()) {
    if (line == multiline_end_ || ++multiline_lines_ > kMostMultilines) multiline_end_.clear();
    return {};
  }
  if (line.empty() || IsCommand(line)) return {};
  const std::vector<std::string> fields = SplitFields(line);
  if (fields.back().starts_with(kMultiline)) {
    multiline_end_ = fields.back();
    multiline_lines_ = 0;
  }
  if (fields.size() > 1 && fields[1].starts_with('@')) return {};  // about an asset
  const Time time = ReadTime(fields[0], arrival);
  last_ = time.moment;
  if (fields.size() == 1) {
    notices_.Say(Notices::Kind::kRefused, "no key", "a key and its value are missing");
    return {};
  }
  std::vector<Report> reports(1);
  reports[0].moment = time.moment;
  reports[0].opening = opening;
  ReadFields(fields, reports);
  if (reports[0].observations.empty()) return {};
  for (Report& report : reports) {
    report.time = ToPlantTime(time.moment, time.is_plant_time);
    report.opening = opening || reports[0].Find(Item::kAvailable) != nullptr;
  }
  return reports;
}

void ShdrReader::Reconnect() {
  device_.clear();
  items_.clear();
  multiline_end_.clear();
  first_arrival_.reset();
  first_relative_.reset();
}

bool ShdrReader::IsCommand(std::string_view line) {
  if (line.front() != '*') return false;
  constexpr std::string_view kDevice = "device:";
  const std::string_view command = Trim(line.substr(1));
  if (command.size() > kDevice.size() && EqualsIgnoringCase(command.substr(0, kDevice.size()), kDevice)) {
    device_ = Trim(command.substr(kDevice.size()));
    items_.clear();
  }
  return true;
}

ShdrReader::Time ShdrReader::ReadTime(std::string_view text, std::optional<Moment> arrival) {
  text = Trim(text.substr(0, text.find('@')));  // a duration may follow
  if (!arrival) arrival = last_;
  const auto at_arrival = [&]() -> Time {
    if (!arrival) throw ToolError("the line has no time, and none came before it");
    return {*arrival, false};
  };
  if (text.empty() || (mapping_.times == Mapping::Times::kArrival && arrival)) return at_arrival();
  if (IsNumber(text) && text.size() < 18) {
    double milliseconds = 0;
    std::from_chars(text.data(), text.data() + text.size(), milliseconds);
    if (!first_arrival_ || !first_relative_) {
      first_arrival_ = at_arrival().moment;
      first_relative_ = milliseconds;
    }
    const double since = std::clamp(milliseconds - *first_relative_, -1e12, 1e12);
    return {*first_arrival_ + std::chrono::microseconds(static_cast<std::int64_t>(since * 1000)), false};
  }
  bool offset_given = false;
  const auto moment = ParseMoment(text, offset_given);
  if (!moment) throw ToolError(Concat("\"", text.substr(0, 100), "\" is no date and time"));
  return {*moment, !offset_given && mapping_.times == Mapping::Times::kPlant};
}

// Items have one value or several, which only the device's own file tells. Of the ways to read the line the
// one is taken that leaves nothing over, then the one that gives the mapped keys values they can have, then
// the one with the most of them.
void ShdrReader::ReadFields(const std::vector<std::string>& fields, std::vector<Report>& reports) {
  struct Way {
    int left_over = 0;
    int implausible = 0;
    int not_mapped = 0;
    std::size_t length = 1;
    auto Cost() const { return std::tuple(left_over, implausible, not_mapped); }
  };
  std::vector<std::optional<Item>> items(fields.size());
  bool any = false;
  for (std::size_t i = 1; i < fields.size(); ++i) {
    items[i] = ItemOf(fields[i]);
    any |= items[i].has_value();
    if (i % 2 == 1 && seen_.size() < kMostKeysSeen) seen_.insert(fields[i]);
  }
  if (!any) return;
  std::vector<Way> ways(fields.size() + 1);
  for (std::size_t i = fields.size() - 1; i > 0; --i) {
    const auto take = [&](std::size_t length) {
      Way way = ways[i + length];
      way.length = length;
      if (items[i]) {
        way.implausible += length == 2 && !IsPlausible(*items[i], fields[i + 1]) ? 1 : 0;
        --way.not_mapped;
      }
      return way;
    };
    if (i + 1 == fields.size()) {
      ways[i].left_over = fields[i].empty() ? 0 : 1;
      continue;
    }
    if (IsCondition(fields, i)) {
      ways[i] = take(6);
      continue;
    }
    ways[i] = take(2);
    if (items[i]) continue;
    if (i + 3 <= fields.size() && take(3).Cost() < ways[i].Cost()) ways[i] = take(3);  // a message
    const bool is_series = i + 4 <= fields.size() && IsNumber(fields[i + 1]) && IsNumber(fields[i + 2]);
    if (is_series && take(4).Cost() < ways[i].Cost()) ways[i] = take(4);
  }
  for (std::size_t i = 1; i < fields.size(); i += ways[i].length) {
    const std::string& key = fields[i];
    if (ways[i].length == 1) {
      if (!key.empty())
        notices_.Say(Notices::Kind::kRefused, "left over " + key,
                     Concat("the key \"", key, "\" has no value"));
    } else if (items[i] && !IsPlausible(*items[i], fields[i + 1])) {
      notices_.Say(Notices::Kind::kRefused, "implausible " + key, ImplausibleText(*items[i], fields[i + 1]));
    } else if (items[i]) {
      const bool coded = *items[i] == Item::kAlarm && ways[i].length == 6 && !fields[i + 2].empty();
      AddObservation(reports, *items[i], coded ? Concat(fields[i + 1], " ", fields[i + 2]) : fields[i + 1]);
    }
  }
}

std::optional<Item> ShdrReader::ItemOf(std::string_view key) {
  if (const auto known = items_.find(std::string(key)); known != items_.end()) return known->second;
  const auto item = key.empty() ? std::nullopt : FindItem(key);
  if (items_.size() < kMostKeys && !IsNumber(key)) items_.emplace(key, item);
  return item;
}

std::optional<Item> ShdrReader::FindItem(std::string_view full_key) {
  const std::size_t colon = full_key.find(':');
  const std::string_view key = colon == std::string_view::npos ? full_key : full_key.substr(colon + 1);
  const std::string device(colon == std::string_view::npos ? std::string_view(device_)
                                                           : full_key.substr(0, colon));
  for (const Item item : kItems) {
    if (!mapping_.Takes(item, key) && !mapping_.Takes(item, full_key)) continue;
    const auto taken = taken_.find(item);
    if (!IsOwnDevice(device, full_key)) return std::nullopt;
    if (taken != taken_.end() ? taken->second != key : !IsOwnPath(item, key)) {
      const std::string_view instead = taken != taken_.end() ? std::string_view(taken->second) : own_path_;
      notices_.Say(Notices::Kind::kNote, Concat("not taken ", key),
                   Concat("the key ", key, " is left out, since ", instead,
                          " was there first; the machine's mapping can name the key that counts"));
      return std::nullopt;
    }
    taken_.emplace(item, key);
    return item;
  }
  return std::nullopt;
}

bool ShdrReader::IsOwnDevice(const std::string& device, std::string_view key) {
  if (!mapping_.device.empty()) return device.empty() || device == mapping_.device;
  if (!own_device_) own_device_ = device;
  if (*own_device_ == device) return true;
  notices_.Say(Notices::Kind::kNote, Concat("device ", device),
               Concat("the key ", key, " is of the device \"", device, "\" and is left out, since ",
                      own_device_->empty() ? "keys without a device were" : *own_device_ + " was",
                      " there first; the machine's mapping can name the device that counts"));
  return false;
}

bool ShdrReader::IsOwnPath(Item item, std::string_view key) {
  if (mapping_.Names(item)) return true;
  const std::string path = PathOf(DefaultPrefix(item, key).value_or(""));
  if (path.empty()) return true;
  if (own_path_.empty()) own_path_ = path;
  return own_path_ == path;
}

void ShdrReader::Save(NamedValues& values) const {
  for (const auto& [item, key] : taken_) values[Concat("key.", ItemName(item))] = key;
  if (own_device_) values["device"] = *own_device_;
  if (!own_path_.empty()) values["path"] = own_path_;
}

void ShdrReader::Load(const NamedValues& values) {
  for (const Item item : kItems) {
    const auto key = values.find(Concat("key.", ItemName(item)));
    // A mapping that has changed since then counts.
    if (key != values.end() && mapping_.Takes(item, key->second)) taken_[item] = key->second;
  }
  if (const auto device = values.find("device"); device != values.end()) own_device_ = device->second;
  if (const auto path = values.find("path"); path != values.end()) own_path_ = path->second;
}

std::string ShdrReader::KeysSeen() const {
  std::string text;
  for (const std::string& key : seen_) Append(text, text.empty() ? "" : ", ", key);
  return seen_.size() < kMostKeysSeen ? text : text + ", …";
}

}  // namespace kx::tool
