#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "database/date_time.h"
#include "inputs/mapping.h"

namespace kx::tool {

// A moment of the input: UTC, or plant time where the mapping says so.
using Moment = std::chrono::sys_time<std::chrono::microseconds>;

inline Moment Now() {
  return std::chrono::floor<std::chrono::microseconds>(std::chrono::system_clock::now());
}

// One value that a machine told; an empty one is unavailable.
struct Observation {
  Item item;
  std::string value;
};

// What a machine told at one moment, each item once.
struct Report {
  Moment moment;
  DateTime time;         // the moment in plant time
  bool opening = false;  // what holds when a connection opens, not a change
  std::vector<Observation> observations;

  const std::string* Find(Item item) const;
};

// What a source sent as a text that everything can hold: on one line, without control characters, U+FFFD for
// what is not UTF-8.
std::string PlainText(std::string_view text);

// Adds an observation to the last of `reports`, or to a new one like it when its item has a value there.
void AddObservation(std::vector<Report>& reports, Item item, std::string_view value);

// Whether `value` can be one of `item`'s; nothing that names none of its words or numbers.
bool IsPlausible(Item item, std::string_view value);
// What is wrong with a value that cannot.
std::string ImplausibleText(Item item, std::string_view value);
// The number of a part count, with or without ":RESET" behind it.
struct PartCount {
  std::int64_t count;
  bool reset;
};
std::optional<PartCount> ParsePartCount(std::string_view value);

// What a reader has to say to people, each matter once.
class Notices {
 public:
  enum class Kind { kNote, kRefused };
  using Sink = std::function<void(Kind, const std::string&)>;

  explicit Notices(Sink sink) : sink_(std::move(sink)) {}
  void Say(Kind kind, std::string_view matter, const std::string& text);
  void Forget(std::string_view matter) { said_.erase(std::string(matter)); }

 private:
  static constexpr std::size_t kMostMatters = 1000;

  Sink sink_;
  std::set<std::string> said_;
};

// A moment `YYYY-MM-DDTHH:MM:SS.ffffff`, with a Z or an offset at its end or without. `offset_given` tells
// which. Nothing when the text is no such moment.
std::optional<Moment> ParseMoment(std::string_view text, bool& offset_given);

// The plant time of a moment, which is UTC, or plant time itself.
DateTime ToPlantTime(Moment moment, bool is_plant_time);

}  // namespace kx::tool
