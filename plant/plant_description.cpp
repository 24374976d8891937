#include "plant/plant_description.h"

#include <algorithm>
#include <charconv>
#include <cstdio>

#include "database/text.h"

namespace kx::tool {
namespace {

constexpr std::int32_t kDay = 24 * 60 * 60;
constexpr std::int32_t kWeek = 7 * kDay;

// Reads "HH:MM" or "HH:MM:SS" into seconds; 24:00 is the end of a day.
std::optional<std::int32_t> ParseTimeOfDay(std::string_view text) {
  std::array<std::int32_t, 3> parts = {};
  if (text.size() != 5 && text.size() != 8) return std::nullopt;
  for (std::size_t i = 0; 3 * i < text.size(); ++i) {
    const char* const begin = text.data() + 3 * i;
    const auto [end, error] = std::from_chars(begin, begin + 2, parts[i]);
    if (error != std::errc() || end != begin + 2 || parts[i] < 0 || (i > 0 && begin[-1] != ':'))
      return std::nullopt;
  }
  const std::int32_t seconds = (parts[0] * 60 + parts[1]) * 60 + parts[2];
  if (parts[1] > 59 || parts[2] > 59 || seconds > kDay) return std::nullopt;
  return seconds;
}

std::string TimeOfDay(std::int32_t seconds) {
  std::array<char, 16> text{};
  std::snprintf(text.data(), text.size(), seconds % 60 == 0 ? "%02d:%02d" : "%02d:%02d:%02d", seconds / 3600,
                seconds / 60 % 60, seconds % 60);
  return text.data();
}

std::string Quoted(std::string_view name) { return Concat("\"", name, "\""); }

// What is wrong with a description, found kind by kind.
class Checker {
 public:
  Checker(const PlantDescription& description, bool partly) : plant_(description), partly_(partly) {}

  std::vector<Problem> Check() {
    ForEachKind(plant_, [&](std::string_view noun, const auto& things) { CheckThings(noun, things); });
    CheckCommandTypes();
    for (const DowntimeCode& code : plant_.downtimes) {
      if (code.kind < 0 || code.kind >= static_cast<std::int32_t>(kDowntimeKinds.size()))
        Add(code,
            Concat("the downtime code ", Quoted(code.name), " is of no kind: 0 machine, 1 user, 2 both"));
    }
    for (const Shift& shift : plant_.shifts) CheckDays(shift);
    CheckOverlaps();
    for (const PlantMachine& machine : plant_.machines) CheckMachine(machine);
    for (const Operator& person : plant_.operators)
      CheckReference("operator", person, "shift", person.shift, plant_.shifts);
    for (const Job& job : plant_.jobs) {
      for (const std::string& part : job.parts) CheckReference("job", job, "parts", part, plant_.parts);
    }
    return std::move(problems_);
  }

 private:
  void Add(const Thing& thing, std::string text, std::string_view field = {}) {
    problems_.push_back({thing.at, std::move(text), std::string(field)});
  }

  template <class T>
  void CheckThings(std::string_view noun, const std::vector<T>& things) {
    std::map<std::string, std::vector<const T*>, std::less<>> by_name;
    std::map<std::int32_t, const T*> by_number;
    for (const T& thing : things) {
      CheckName(noun, thing, IsNamedByEvents(thing));
      auto& same = by_name[thing.name];
      if (!thing.name.empty() &&
          std::ranges::any_of(same, [&](const T* other) { return IsSame(thing, *other); }))
        Add(thing, Concat("the ", noun, " ", Quoted(thing.name), " is there twice"));
      same.push_back(&thing);
      if constexpr (std::is_base_of_v<NumberedThing, T>) CheckNumber(noun, thing, by_number);
    }
    for (const T& thing : things) {
      if (!thing.was.empty() && by_name.contains(thing.was)) {
        Add(thing, Concat("the ", noun, " ", Quoted(thing.name), " was ", Quoted(thing.was),
                          ", but that is there, too"));
      }
    }
  }

  // Whether events or the statements of records carry the name.
  template <class T>
  static constexpr bool IsNamedByEvents(const T&) {
    return !std::is_base_of_v<NumberedThing, T> && !std::is_same_v<T, Shift>;
  }

  template <class T>
  static bool IsSame(const T& thing, const T& other) {
    if constexpr (std::is_same_v<T, DowntimeCode>)
      return thing.kind == other.kind || thing.kind == 2 || other.kind == 2;
    return true;
  }

  void CheckName(std::string_view noun, const Thing& thing, bool in_events) {
    const std::string& name = thing.name;
    if (name.find_first_not_of(' ') == std::string::npos) {
      Add(thing, Concat("a ", noun, " has no name"));
    } else if (std::ranges::any_of(name, [](char c) { return static_cast<unsigned char>(c) < ' '; })) {
      Add(thing, Concat("the ", noun, " ", Quoted(name), " has a control character in its name"));
    } else if (in_events && name.find('\'') != std::string::npos) {
      Add(thing, Concat("the ", noun, " ", Quoted(name),
                        " has an apostrophe, and events that name it would stop the queue; leave it out"));
    }
  }

  template <class T>
  void CheckNumber(std::string_view noun, const T& thing, std::map<std::int32_t, const T*>& by_number) {
    if (!thing.number) return;
    if (*thing.number < 0)
      Add(thing, Concat("the ", noun, " ", Quoted(thing.name), " has a negative number"), "number");
    const auto [other, is_new] = by_number.emplace(*thing.number, &thing);
    if (is_new) return;
    Add(thing,
        Concat("the ", noun, " ", Quoted(thing.name), " has the number ", *thing.number, " of ",
               Quoted(other->second->name)),
        "number");
  }

  void CheckCommandTypes() {
    std::map<std::int32_t, const PlantCommand*> by_type;
    for (const PlantCommand& command : plant_.commands) {
      if (!IsStandardCommand(command.type_code)) continue;
      const auto [other, is_new] = by_type.emplace(command.type_code, &command);
      if (is_new) continue;
      Add(command, Concat("the command ", Quoted(command.name), " has the type ", command.type_code, " of ",
                          Quoted(other->second->name), ", and there may be one alone"));
    }
  }

  void CheckDays(const Shift& shift) {
    const auto is_kept = [&](std::string_view day) { return shift.kept.contains(day); };
    if (!partly_ && std::ranges::none_of(shift.days, [](const auto& day) { return day.has_value(); }) &&
        std::ranges::none_of(kDayNames, is_kept))
      Add(shift, Concat("the shift ", Quoted(shift.name), " has no day"));
  }

  // A pair of shifts is a problem once, where the later of the two works first.
  void CheckOverlaps() {
    for (std::size_t i = 0; i < plant_.shifts.size(); ++i) {
      const Shift& shift = plant_.shifts[i];
      for (std::size_t j = 0; j <= i; ++j) {
        const Shift& other = plant_.shifts[j];
        if (shift.overlaps || other.overlaps || (i != j && !AreOfOneMachine(shift, other))) continue;
        const std::optional<std::size_t> day = OverlappingDay(shift, other);
        if (!day) continue;
        const Position at = shift.days_at[*day].line == 0 ? shift.at : shift.days_at[*day];
        problems_.push_back(
            {at,
             Concat("the shift ", Quoted(shift.name), " on ", kDayNames[*day], " overlaps ",
                    i == j ? "its own next one" : Quoted(other.name),
                    "; give the machines their shifts, or say overlaps = true when operators prefer theirs"),
             "overlaps"});
      }
    }
  }

  bool AreOfOneMachine(const Shift& a, const Shift& b) const {
    const auto works = [](const PlantMachine& machine, const Shift& shift) {
      return !machine.shifts || std::ranges::count(*machine.shifts, shift.name) != 0;
    };
    return plant_.machines.empty() || std::ranges::any_of(plant_.machines, [&](const PlantMachine& machine) {
             return works(machine, a) && works(machine, b);
           });
  }

  static std::optional<std::size_t> OverlappingDay(const Shift& shift, const Shift& other) {
    for (std::size_t day = 0; day < kDayNames.size(); ++day) {
      for (std::size_t other_day = 0; other_day < kDayNames.size(); ++other_day) {
        if (!shift.days[day] || !other.days[other_day] || (&shift == &other && day == other_day)) continue;
        const Interval& a = *shift.days[day];
        const Interval& b = *other.days[other_day];
        // From the start of the one to the start of the other, going forward through the week.
        const std::int32_t from_a =
            (static_cast<std::int32_t>(other_day - day) * kDay + b.start - a.start + 2 * kWeek) % kWeek;
        if (from_a < a.stop - a.start || (kWeek - from_a) % kWeek < b.stop - b.start) return day;
      }
    }
    return std::nullopt;
  }

  void CheckMachine(const PlantMachine& machine) {
    CheckReference("machine", machine, "department", machine.department, plant_.departments);
    CheckReference("machine", machine, "location", machine.location, plant_.locations);
    CheckReference("machine", machine, "group", machine.group, plant_.groups);
    if (machine.shifts) {
      for (const std::string& shift : *machine.shifts)
        CheckReference("machine", machine, "shifts", shift, plant_.shifts);
    }
    CheckSource(machine);
    const bool none =
        machine.shifts ? machine.shifts->empty() && !machine.kept.contains("shifts") : plant_.shifts.empty();
    if (none && !partly_) Add(machine, Concat("the machine ", Quoted(machine.name), " has no shift"));
  }

  // As many parts as one event can report.
  static bool IsPartLimit(const std::string& value) {
    std::int32_t limit = 0;
    const char* const end = value.data() + value.size();
    return std::from_chars(value.data(), end, limit).ptr == end && limit >= 1 && limit <= 32767;
  }

  void CheckSource(const PlantMachine& machine) {
    const Source& source = machine.source;
    const auto add = [&](std::string_view what) {
      Add(machine, Concat("the machine ", Quoted(machine.name), " has ", what), "adapter");
    };
    const bool is_http = source.address.starts_with("http://");
    const bool is_url = source.address.find("://") != std::string::npos;
    if (source.kind == "adapter" ? source.address.empty() || is_url : source.kind == "agent" && !is_http) {
      add(Concat("the ", source.kind, " ", Quoted(source.address), ", which must be an address like ",
                 source.kind == "agent" ? "http://10.0.1.5:5000/Lathe3" : "10.0.1.21:7878"));
    } else if (source.kind.empty() ? !source.address.empty()
                                   : source.kind != "adapter" && source.kind != "agent") {
      add(Concat("a source of the unknown kind ", Quoted(source.kind)));
    }
    for (const auto& [name, value] : source.mapping) {
      const bool is_known =
          std::ranges::count(kSourceKeys, name) != 0 || std::ranges::count(kSourceSettings, name) != 0;
      const bool is_good = name == "pause_ends_cycle" ? value == "true" || value == "false"
                           : name == "times"      ? value == "plant" || value == "utc" || value == "arrival"
                           : name == "part_limit" ? IsPartLimit(value)
                           : name == "maintenance" || name == "alarm_downtime"
                               ? value.find('\'') == std::string::npos
                               : value.find('\n') == std::string::npos;
      if (!is_known || !is_good || value.empty())
        add(Concat("for its input ", name, " = ", Quoted(value), ", which does not go"));
    }
  }

  template <class T>
  void CheckReference(std::string_view noun, const Thing& from, std::string_view field,
                      const std::string& name, const std::vector<T>& things) {
    if (name.empty() || partly_ || std::ranges::count(things, name, &T::name) != 0) return;
    Add(from,
        Concat("the ", noun, " ", Quoted(from.name), " names ", Quoted(name), " under ", field,
               ", which is not there"),
        field);
  }

  const PlantDescription& plant_;
  const bool partly_;
  std::vector<Problem> problems_;
};

}  // namespace

std::optional<Interval> Interval::Parse(std::string_view text) {
  std::string plain(text);
  std::erase(plain, ' ');
  const std::size_t dash = plain.find('-');
  if (dash == std::string::npos) return std::nullopt;
  const auto start = ParseTimeOfDay(std::string_view(plain).substr(0, dash));
  const auto stop = ParseTimeOfDay(std::string_view(plain).substr(dash + 1));
  if (!start || !stop || *start == kDay) return std::nullopt;
  return Interval{*start, *stop > *start ? *stop : *stop + kDay};
}

std::string Interval::ToText() const {
  return Concat(TimeOfDay(start), "-", TimeOfDay(stop > kDay ? stop - kDay : stop));
}

bool IsAsEveryPlantHasIt(const PlantCommand& command) {
  return IsStandardCommand(command.type_code) && command.number == command.type_code &&
         command.name ==
             kStandardCommands[static_cast<std::size_t>(command.type_code - kFirstStandardCommand)];
}

std::vector<Problem> CheckDescription(const PlantDescription& description, bool partly) {
  return Checker(description, partly).Check();
}

std::vector<std::string> MissingCommands(const PlantDescription& plant) {
  std::vector<std::string> missing;
  for (std::size_t i = 0; i < kStandardCommands.size(); ++i) {
    const std::int32_t type = kFirstStandardCommand + static_cast<std::int32_t>(i);
    if (std::ranges::count(plant.commands, type, &PlantCommand::type_code) == 0)
      missing.push_back(
          Concat("a command of type ", type, " (", kStandardCommands[i], "); \"kxdata7 create\" adds it"));
  }
  return missing;
}

std::vector<std::string> MissingForEvents(const PlantDescription& plant) {
  std::vector<std::string> missing = MissingCommands(plant);
  for (std::size_t i = 0; i < kPlantOptions.size(); ++i) {
    if (!plant.options[i])
      missing.push_back(Concat("the option ", kPlantOptions[i].name, "; \"kxdata7 create\" adds it"));
  }
  if (plant.shifts.empty()) missing.emplace_back("a shift; \"kxdata7 apply\" adds it from a file");
  if (plant.machines.empty())
    missing.emplace_back("a machine; \"kxdata7 apply\" adds it from a file, or \"kxdata7 machine add\"");
  for (const PlantMachine& machine : plant.machines) {
    if (!machine.has_record)
      missing.push_back(Concat("the open record of the machine ", Quoted(machine.name)));
  }
  return missing;
}

}  // namespace kx::tool
