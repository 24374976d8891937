#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "database/date_time.h"
#include "plant/named_values.h"

namespace kx::tool {

class Plant;

// A place in a plant's file, counted from 1. Line 0: nowhere, as for what comes from a plant.
struct Position {
  std::uint32_t line = 0;
  std::uint32_t column = 0;
  friend auto operator<=>(const Position&, const Position&) = default;
};

// What is wrong with a description, and where. `field` names the field that is at fault, if one alone is.
struct Problem {
  Position at;
  std::string text;
  std::string field = {};
  friend auto operator<=>(const Problem&, const Problem&) = default;
};

// What all things of a plant have: they are known by a name, some of them by a number that is a text.
struct Thing {
  std::string name;
  std::string was;  // its name until now, empty: the same
  Position at;
  std::int32_t id = 0;                           // its key in the plant, 0 in a file
  std::set<std::string, std::less<>> kept = {};  // the fields that stay as the plant has them
};

// A thing with a number in the DNC system.
struct NumberedThing : Thing {
  std::optional<std::int32_t> number;
};

struct PlantCommand : NumberedThing {
  std::int32_t type_code = 0;
};

// From when to when, in seconds since the midnight that begins the weekday. What ends after the next midnight
// runs into the following day; at most 24 hours.
struct Interval {
  std::int32_t start = 0;
  std::int32_t stop = 0;

  // Reads "06:00-14:00", with seconds where there are any. A stop that is not after the start is on the
  // following day.
  static std::optional<Interval> Parse(std::string_view text);
  std::string ToText() const;
  friend bool operator==(const Interval&, const Interval&) = default;
};

// Monday to Sunday, as the fields of a shift are called.
constexpr std::array<std::string_view, 7> kDayNames = {"mon", "tue", "wed", "thu", "fri", "sat", "sun"};

struct Shift : Thing {
  std::array<std::optional<Interval>, 7> days;
  std::array<Position, 7> days_at;
  bool overlaps = false;  // it may overlap others; the operator's own shift decides then
};

// What a source's mapping may hold: which key of the input carries what, and how the input is read.
constexpr std::array<std::string_view, 9> kSourceKeys = {
    "execution", "program", "parts", "good_parts", "bad_parts", "stop", "mode", "alarm", "available"};
constexpr std::array<std::string_view, 6> kSourceSettings = {
    "part_limit", "pause_ends_cycle", "times", "device", "maintenance", "alarm_downtime"};

// How a machine's input reaches the plant, as T_SFC_SOURCE has it.
struct Source {
  std::string kind;  // "adapter", "agent", empty for recordings alone
  std::string address;
  NamedValues mapping;

  bool empty() const { return kind.empty() && mapping.empty(); }
  friend bool operator==(const Source&, const Source&) = default;
};

struct PlantMachine : NumberedThing {
  std::string department, location, group;         // empty: none
  std::optional<std::vector<std::string>> shifts;  // nothing: every shift
  Source source;
  std::optional<DateTime> start;  // of its first record, when it is added
  bool has_record = true;         // in a plant: it points at its open record
};

struct Operator : Thing {
  std::string shift;  // preferred; empty: none
};

struct Part : Thing {
  std::optional<std::int32_t> type;
};

struct Job : Thing {
  std::vector<std::string> parts;  // in order
};

// The kinds of downtime codes, as T_SFC_DOWNTIME_CODE numbers them.
constexpr std::array<std::string_view, 3> kDowntimeKinds = {"machine", "user", "both"};

struct DowntimeCode : Thing {
  std::string label;
  std::int32_t kind = 0;
  bool ignore_cycles = false;
};

struct ScrapCode : Thing {
  std::string label;
  bool is_default = false;
};

struct PlantOption {
  std::string_view name;
  std::int32_t code;
};
constexpr std::array<PlantOption, 3> kPlantOptions = {
    {{"job_starts_its_part", 1}, {"setup_ignores_cycles", 4}, {"teardown_ignores_cycles", 5}}};

// A plant's master data, from a file or from the plant. Everything refers to other things by their names.
struct PlantDescription {
  std::string plant_name;  // empty: not said
  std::vector<NumberedThing> departments, locations, groups;
  std::vector<Thing> operations;
  std::vector<Shift> shifts;
  std::vector<PlantMachine> machines;
  std::vector<Operator> operators;
  std::vector<Part> parts;
  std::vector<Job> jobs;
  std::vector<DowntimeCode> downtimes;
  std::vector<ScrapCode> scrap;
  std::vector<PlantCommand> commands;
  std::array<std::optional<bool>, 3> options;  // as kPlantOptions; nothing: not said
  std::vector<std::string> remarks;            // what a plant holds that no description can say
};

// The commands that every plant needs, by their types 4 to 14. Their numbers are those of the types.
constexpr std::int32_t kFirstStandardCommand = 4;
constexpr std::array<std::string_view, 11> kStandardCommands = {
    "Logon",         "Job",        "Part",          "Operation",
    "Setup",         "Cycle",      "Teardown",      "Machine downtime",
    "User downtime", "Good parts", "Scrapped parts"};
constexpr bool IsStandardCommand(std::int32_t type_code) {
  return type_code >= kFirstStandardCommand &&
         type_code < kFirstStandardCommand + static_cast<std::int32_t>(kStandardCommands.size());
}

// The type of a site's own commands, unless their entry says another.
constexpr std::int32_t kOwnCommand = 100;

// Whether it is one of the standard commands, with the name and the number they have.
bool IsAsEveryPlantHasIt(const PlantCommand& command);

// What would make a plant of this description fail: names that are empty or used twice, texts that would stop
// the queue, references that lead nowhere, shifts that never work or overlap, machines without a shift. With
// `partly` only a part of the file could be read, and what is not there is no problem.
std::vector<Problem> CheckDescription(const PlantDescription& description, bool partly = false);

// Calls `visit(noun, things)` for every kind of thing.
template <class Description, class Visit>
void ForEachKind(Description& description, Visit visit) {
  visit("department", description.departments);
  visit("location", description.locations);
  visit("group", description.groups);
  visit("operation", description.operations);
  visit("command", description.commands);
  visit("shift", description.shifts);
  visit("operator", description.operators);
  visit("part", description.parts);
  visit("job", description.jobs);
  visit("downtime code", description.downtimes);
  visit("scrap code", description.scrap);
  visit("machine", description.machines);
}

// The description of a plant as it is, sayable in a file or not.
PlantDescription DescribePlant(Plant& plant);

// What CheckDescription and reading the plant find in its master data.
std::vector<Problem> CheckPlant(Plant& plant);

// The commands of standard events that are missing, a sentence each.
std::vector<std::string> MissingCommands(const PlantDescription& plant);

// What is still missing before events go through, a sentence each.
std::vector<std::string> MissingForEvents(const PlantDescription& plant);

}  // namespace kx::tool
