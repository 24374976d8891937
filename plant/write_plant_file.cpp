#include <algorithm>

#include "database/text.h"
#include "plant/plant_file.h"

namespace kx::tool {
namespace {

std::string Quoted(std::string_view text) {
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') quoted += '\\';
    quoted += c;
  }
  return quoted + '"';
}

std::string Key(std::string_view name) {
  constexpr std::string_view kBare = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
  return name.find_first_not_of(kBare) == std::string_view::npos ? std::string(name) : Quoted(name);
}

std::string List(const auto& texts) {
  std::string list;
  for (const std::string& text : texts) Append(list, list.empty() ? "" : ", ", Quoted(text));
  return Concat("[", list, "]");
}

// Leaves a field to the plant. False: the thing has no such field, or is nothing without it.
bool Keep(Thing& thing, const std::string& field) {
  thing.kept.insert(field);
  return true;
}
bool Keep(NumberedThing& thing, const std::string& field) {
  thing.number.reset();
  return Keep(static_cast<Thing&>(thing), field);
}
bool Keep(Shift& shift, const std::string&) { return shift.overlaps = true; }
bool Keep(Operator& person, const std::string& field) {
  person.shift.clear();
  return Keep(static_cast<Thing&>(person), field);
}
bool Keep(Job& job, const std::string& field) {
  job.parts.clear();
  return Keep(static_cast<Thing&>(job), field);
}
bool Keep(PlantMachine& machine, const std::string& field) {
  if (field == "number") return Keep(static_cast<NumberedThing&>(machine), field);
  for (const auto& [name, place] :
       {std::pair("department", &machine.department), std::pair("location", &machine.location),
        std::pair("group", &machine.group)}) {
    if (field == name) place->clear();
  }
  if (field == "shifts") machine.shifts.reset();
  if (field == "adapter") machine.source = {};
  return Keep(static_cast<Thing&>(machine), field);
}

// Takes out what CheckDescription would not let through, with a remark for each.
void MakeSayable(PlantDescription& plant) {
  for (;;) {
    std::uint32_t count = 0;
    ForEachKind(plant, [&](std::string_view, auto& things) {
      for (auto& thing : things) thing.at = {++count, 0};
    });
    const std::vector<Problem> problems = CheckDescription(plant);
    if (problems.empty()) return;
    ForEachKind(plant, [&](std::string_view, auto& things) {
      std::erase_if(things, [&](auto& thing) {
        bool remove = false;
        for (const Problem& problem : problems) {
          if (problem.at != thing.at) continue;
          if (problem.field != "overlaps") plant.remarks.push_back(problem.text);
          remove = problem.field.empty() || !Keep(thing, problem.field) || remove;
        }
        return remove;
      });
    });
  }
}

// The text of the file, section by section.
class PlantFileWriter {
 public:
  explicit PlantFileWriter(const PlantDescription& plant) : plant_(plant) {}

  std::string Write() {
    Append(text_, "# What this file says, \"kxdata7 apply\" makes the plant agree with.\n");
    for (const std::string& remark : plant_.remarks)
      Append(text_, "# Left as it is: ", OneLine(remark), "\n");
    for (const std::string& missing : MissingForEvents(plant_))
      Append(text_, "# Missing before events go through: ", OneLine(missing), "\n");
    if (!plant_.plant_name.empty()) Append(text_, "\nname = ", Quoted(plant_.plant_name), "\n");
    WriteNumbered("departments", plant_.departments);
    WriteNumbered("locations", plant_.locations);
    WriteNumbered("groups", plant_.groups);
    if (!plant_.operations.empty()) {
      std::vector<std::string> numbers;
      for (const Thing& operation : plant_.operations) numbers.push_back(operation.name);
      Append(text_, "\noperations = ", List(numbers), "\n");
    }
    for (const Shift& shift : plant_.shifts) WriteShift(shift);
    WriteMachines();
    WriteTable("operators", plant_.operators,
               [](const Operator& person) { return Short(person, "shift", Quoted(person.shift)); });
    WriteTable("parts", plant_.parts,
               [](const Part& part) { return part.type ? std::to_string(*part.type) : std::string("{}"); });
    WriteTable("jobs", plant_.jobs, [](const Job& job) { return Short(job, "parts", List(job.parts)); });
    for (std::size_t kind = 0; kind < kDowntimeKinds.size(); ++kind) {
      std::vector<DowntimeCode> codes;
      std::ranges::copy_if(plant_.downtimes, std::back_inserter(codes), [&](const DowntimeCode& code) {
        return code.kind == static_cast<std::int32_t>(kind);
      });
      WriteTable(Concat("downtimes.", kDowntimeKinds[kind]), codes, [](const DowntimeCode& code) {
        return code.ignore_cycles ? Concat("{ name = ", Quoted(code.label), ", ignore_cycles = true }")
                                  : Quoted(code.label);
      });
    }
    WriteScrap();
    WriteCommands();
    WriteOptions();
    return std::move(text_);
  }

 private:
  static std::string OneLine(std::string text) {
    std::ranges::replace_if(
        text, [](char c) { return static_cast<unsigned char>(c) < ' '; }, ' ');
    return text;
  }

  static std::string KeepField(const Thing& thing) {
    return thing.kept.empty() ? std::string() : Concat("keep = ", List(thing.kept));
  }

  // A thing written as its main field alone, or as a table when that stays as the plant has it.
  static std::string Short(const Thing& thing, std::string_view, std::string value) {
    return thing.kept.empty() ? std::move(value) : Concat("{ ", KeepField(thing), " }");
  }

  template <class T, class Value>
  void WriteTable(std::string_view name, const std::vector<T>& things, Value value) {
    if (!things.empty()) Append(text_, "\n[", name, "]\n");
    for (const T& thing : things) Append(text_, Key(thing.name), " = ", value(thing), "\n");
  }

  static std::string NumberAndName(const NumberedThing& thing) {
    std::string text = thing.number ? Concat("number = ", *thing.number, ", ") : std::string();
    Append(text, "name = ", Quoted(thing.name));
    if (!thing.kept.empty()) Append(text, ", ", KeepField(thing));
    return text;
  }

  void WriteNumbered(std::string_view key, const std::vector<NumberedThing>& things) {
    if (things.empty()) return;
    Append(text_, "\n", key, " = [\n");
    for (const NumberedThing& thing : things) Append(text_, "  { ", NumberAndName(thing), " },\n");
    text_ += "]\n";
  }

  void WriteShift(const Shift& shift) {
    Append(text_, "\n[shifts.", Key(shift.name), "]\n");
    const std::size_t days = kDayNames.size();
    const auto same = [&](std::size_t a, std::size_t b) {
      return shift.days[a % days] == shift.days[b % days];
    };
    for (std::size_t day = 0; day < days; ++day) {
      if (!shift.days[day] || (same(day, day + days - 1) && !(day == 0 && IsDaily(shift)))) continue;
      std::size_t last = day;
      while (last + 1 < day + days && same(day, last + 1)) ++last;
      Append(text_, kDayNames[day], last == day ? "" : Concat("-", kDayNames[last % days]), " = ",
             Quoted(shift.days[day]->ToText()), "\n");
    }
    if (shift.overlaps) text_ += "overlaps = true\n";
    if (!shift.kept.empty()) Append(text_, KeepField(shift), "\n");
  }

  static bool IsDaily(const Shift& shift) {
    return std::ranges::all_of(shift.days, [&](const auto& day) { return day == shift.days[0]; });
  }

  // What machines of one entry have in common.
  static std::string Common(const PlantMachine& machine) {
    std::string text;
    for (const auto& [key, place] :
         {std::pair("department", &machine.department), std::pair("location", &machine.location),
          std::pair("group", &machine.group)}) {
      if (!place->empty()) Append(text, key, " = ", Quoted(*place), "\n");
    }
    if (machine.shifts) Append(text, "shifts = ", List(*machine.shifts), "\n");
    text += MappingText(machine.source.mapping);
    return text;
  }

  void WriteMachines() {
    for (auto first = plant_.machines.begin(); first != plant_.machines.end();) {
      const std::string common = Common(*first);
      Append(text_, "\n[[machines]]\n", common, "each = [\n");
      for (; first != plant_.machines.end() && Common(*first) == common; ++first) {
        Append(text_, "  { ", NumberAndName(*first));
        if (!first->source.kind.empty())
          Append(text_, ", ", first->source.kind, " = ", Quoted(first->source.address));
        text_ += " },\n";
      }
      text_ += "]\n";
    }
  }

  void WriteScrap() {
    if (plant_.scrap.empty()) return;
    text_ += "\n[scrap]\n";
    for (const ScrapCode& code : plant_.scrap) {
      if (code.is_default) Append(text_, "default = ", Quoted(code.name), "\n");
    }
    for (const ScrapCode& code : plant_.scrap) Append(text_, Key(code.name), " = ", Quoted(code.label), "\n");
  }

  void WriteCommands() {
    std::vector<PlantCommand> commands;
    std::ranges::copy_if(plant_.commands, std::back_inserter(commands), [](const PlantCommand& command) {
      return !command.kept.empty() || !IsAsEveryPlantHasIt(command);
    });
    WriteTable("commands", commands, [](const PlantCommand& command) {
      std::string text = command.number ? Concat("number = ", *command.number) : std::string();
      if (command.type_code != kOwnCommand)
        Append(text, text.empty() ? "" : ", ", "type = ", command.type_code);
      if (!command.kept.empty()) Append(text, text.empty() ? "" : ", ", KeepField(command));
      return text.empty() ? std::string("{}") : Concat("{ ", text, " }");
    });
  }

  void WriteOptions() {
    std::string options;
    for (std::size_t i = 0; i < kPlantOptions.size(); ++i) {
      if (plant_.options[i])
        Append(options, kPlantOptions[i].name, " = ", *plant_.options[i] ? "true" : "false", "\n");
    }
    if (!options.empty()) Append(text_, "\n[options]\n", options);
  }

  const PlantDescription& plant_;
  std::string text_;
};

}  // namespace

std::string MappingText(const NamedValues& mapping) {
  std::string text;
  std::string keys;
  for (const std::string_view name : kSourceKeys) {
    const auto key = mapping.find(std::string(name));
    if (key != mapping.end()) Append(keys, keys.empty() ? "" : ", ", name, " = ", Quoted(key->second));
  }
  if (!keys.empty()) Append(text, "keys = { ", keys, " }\n");
  for (const std::string_view name : kSourceSettings) {
    const auto setting = mapping.find(std::string(name));
    if (setting == mapping.end()) continue;
    const bool is_text = name != "part_limit" && name != "pause_ends_cycle";
    Append(text, name, " = ", is_text ? Quoted(setting->second) : setting->second, "\n");
  }
  return text;
}

std::string WritePlantFile(PlantDescription plant) {
  MakeSayable(plant);
  return PlantFileWriter(plant).Write();
}

}  // namespace kx::tool
