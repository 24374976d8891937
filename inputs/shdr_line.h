#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "inputs/observation.h"

namespace kx::tool {

inline constexpr std::size_t kLongestLine = 1 << 20;  // of an adapter, in bytes; the rest is left out

// The lines `time|key|value|…` of one adapter, as one machine hears them: keys of another device or path than
// the one that counts are left out, and said once.
class ShdrReader {
 public:
  ShdrReader(const Mapping& mapping, Notices& notices) : mapping_(mapping), notices_(notices) {}

  // What a line tells, in which no item stands twice; often nothing. `arrival` stands for a time that is
  // missing, and counts the times that are relative; without it the line before does. `opening`: the
  // connection has just been opened, which a line with the availability says of itself. A ToolError for a
  // line without a time.
  std::vector<Report> Read(std::string_view line, std::optional<Moment> arrival, bool opening = false);
  // A new connection: no device is set, nothing half read.
  void Reconnect();

  // The keys that are taken, to be the same ones next time.
  void Save(NamedValues& values) const;
  void Load(const NamedValues& values);

  const std::map<Item, std::string>& taken() const { return taken_; }
  std::string KeysSeen() const;

 private:
  struct Time {
    Moment moment;
    bool is_plant_time;
  };
  Time ReadTime(std::string_view text, std::optional<Moment> arrival);
  bool IsCommand(std::string_view line);
  void ReadFields(const std::vector<std::string>& fields, std::vector<Report>& reports);
  std::optional<Item> ItemOf(std::string_view key);
  std::optional<Item> FindItem(std::string_view full_key);
  bool IsOwnDevice(const std::string& device, std::string_view key);
  bool IsOwnPath(Item item, std::string_view key);

  static constexpr std::size_t kMostKeys = 10'000;
  static constexpr std::size_t kMostKeysSeen = 40;

  const Mapping mapping_;
  Notices& notices_;
  std::map<Item, std::string> taken_;
  std::optional<std::string> own_device_;                       // whose keys are taken
  std::string own_path_;                                        // the prefix of its keys: "p1"
  std::string device_;                                          // that the lines are about
  std::unordered_map<std::string, std::optional<Item>> items_;  // of keys under the device set
  std::set<std::string> seen_;                                  // keys of any kind
  std::string multiline_end_;                                   // what ends an asset that spans lines
  std::size_t multiline_lines_ = 0;
  std::optional<Moment> first_arrival_;
  std::optional<double> first_relative_;
  std::optional<Moment> last_;
};

// The fields of a line between bars, trimmed. A bar stands in a field that is quoted, behind a backslash.
std::vector<std::string> SplitFields(std::string_view line);

}  // namespace kx::tool
