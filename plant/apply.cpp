#include "plant/apply.h"

#include <algorithm>

#include "database/table_key.h"
#include "database/text.h"
#include "plant/kinds.h"
#include "plant/schema_version.h"

namespace kx::tool {
namespace {

std::string Shown(const Value& value) { return value.IsNull() ? "none" : Concat("\"", value.ToText(), "\""); }
std::string Listed(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names) Append(text, text.empty() ? "" : ", ", name);
  return Concat("[", text, "]");
}
std::string Listed(const std::optional<std::vector<std::string>>& names) {
  return names ? Listed(*names) : "all";
}
std::string Shown(const Source& source) {
  std::string text = source.kind.empty() ? std::string() : Concat(source.kind, " ", source.address);
  for (const auto& [name, value] : source.mapping) Append(text, text.empty() ? "" : ", ", name, "=", value);
  return text.empty() ? "none" : text;
}

class Applier {
 public:
  Applier(Plant& plant, const PlantDescription& wanted, DateTime start, bool prune)
      : plant_(plant), wanted_(wanted), present_(DescribePlant(plant)), start_(start), prune_(prune) {}

  Applied Apply() {
    ApplyKind(kDepartmentKind, wanted_.departments, present_.departments);
    ApplyKind(kLocationKind, wanted_.locations, present_.locations);
    ApplyKind(kGroupKind, wanted_.groups, present_.groups);
    ApplyKind(kOperationKind, wanted_.operations, present_.operations);
    ApplyKind(kCommandKind, wanted_.commands, present_.commands);
    ApplyKind(kShiftKind, wanted_.shifts, present_.shifts);
    ApplyKind(kOperatorKind, wanted_.operators, present_.operators);
    ApplyKind(kPartKind, wanted_.parts, present_.parts);
    ApplyKind(kJobKind, wanted_.jobs, present_.jobs);
    ApplyKind(kDowntimeCodeKind, wanted_.downtimes, present_.downtimes);
    ApplyKind(kScrapCodeKind, wanted_.scrap, present_.scrap);
    ApplyKind(kMachineKind, wanted_.machines, present_.machines);
    ApplyOptions();
    if (applied_.problems.empty()) Leave();
    return std::move(applied_);
  }

 private:
  struct Left {
    const Kind* kind;
    const Thing* thing;
  };

  template <class T>
  void ApplyKind(const Kind& kind, const std::vector<T>& wanted, const std::vector<T>& present) {
    const std::vector<const T*> matches = Match(wanted, present);
    std::vector<const T*> left;
    for (const T& thing : present) {
      if (std::ranges::count(matches, &thing) != 0) continue;
      left.push_back(&thing);
      const bool is_standard = [&] {
        if constexpr (std::is_same_v<T, PlantCommand>) return IsStandardCommand(thing.type_code);
        return false;
      }();
      if (!is_standard) left_.push_back({&kind, &thing});
    }
    for (std::size_t i = 0; i < wanted.size(); ++i) {
      CheckAgainst(kind, wanted[i], matches[i], left);
      ids_[&kind][wanted[i].name] =
          matches[i] != nullptr ? Change(kind, wanted[i], *matches[i]) : Add(kind, wanted[i]);
    }
  }

  // The present thing for every wanted one: of its name, or else of its name until now; null when it is new.
  template <class T>
  static std::vector<const T*> Match(const std::vector<T>& wanted, const std::vector<T>& present) {
    std::vector<const T*> matches(wanted.size());
    const auto find = [&](const T& thing, const std::string& name) -> const T* {
      const T* found = nullptr;
      for (const T& each : present) {
        if (each.name != name || std::ranges::count(matches, &each) != 0) continue;
        if (IsOfSameKind(thing, each)) return &each;
        if (found == nullptr) found = &each;
      }
      return found;
    };
    for (std::size_t i = 0; i < wanted.size(); ++i) matches[i] = find(wanted[i], wanted[i].name);
    for (std::size_t i = 0; i < wanted.size(); ++i) {
      if (matches[i] == nullptr && !wanted[i].was.empty()) matches[i] = find(wanted[i], wanted[i].was);
    }
    return matches;
  }

  // A downtime code of the machine and one of the operator may have the same number.
  template <class T>
  static bool IsOfSameKind(const T& a, const T& b) {
    if constexpr (std::is_same_v<T, DowntimeCode>) return a.kind == b.kind;
    return true;
  }

  // A thing must not come to have what only one may have and something that the file does not name has.
  template <class T>
  void CheckAgainst(const Kind& kind, const T& thing, const T* match, const std::vector<const T*>& left) {
    for (const T* other : left) {
      std::string what;
      if constexpr (std::is_base_of_v<NumberedThing, T>) {
        if (thing.number && thing.number == other->number &&
            (match == nullptr || match->number != thing.number))
          what = Concat("the number ", *thing.number);
      }
      if constexpr (std::is_same_v<T, PlantCommand>) {
        if (IsStandardCommand(thing.type_code) && thing.type_code == other->type_code &&
            (match == nullptr || match->type_code != thing.type_code))
          what = Concat("the type ", thing.type_code);
      }
      if (what.empty()) continue;
      applied_.problems.push_back(
          {thing.at,
           Concat("the ", kind.noun, " \"", thing.name, "\" has ", what, ", and in the plant \"", other->name,
                  "\" has it, which the file does not name; was = \"", other->name, "\" renames that")});
    }
  }

  // The value as the column holds it.
  Value Stored(const Field& field) {
    if (field.refers_to == nullptr || field.value.IsNull()) return field.value;
    if (field.refers_to == &kIntervalKind) return IntervalId(field.value.ToText());
    return ids_[field.refers_to][field.value.ToText()];
  }

  template <class T>
  std::int32_t Add(const Kind& kind, const T& thing) {
    std::int32_t id = 0;
    if constexpr (std::is_same_v<T, PlantMachine>) {
      const auto place = PlaceOf(thing);
      id = AddMachine(plant_,
                      {thing.name, thing.number, Stored(place[0]).ToInt32Or(-1),
                       Stored(place[1]).ToInt32Or(-1), Stored(place[2]).ToInt32Or(-1)},
                      thing.start.value_or(start_));
    } else {
      std::string columns(kind.name_column);
      std::string marks = "?";
      std::vector<Value> values = {thing.name};
      for (const Field& field : FieldsOf(thing)) {
        Append(columns, ", ", field.column);
        marks += ", ?";
        values.push_back(Stored(field));
      }
      id = Value(plant_.db.InsertDirect(
                     Concat("insert into ", kind.table, " (", columns, ") values (", marks, ")"), values,
                     kind.table, KeyColumnOf(kind.table)))
               .ToInt32();
    }
    applied_.changes.push_back(Concat("added the ", kind.noun, " \"", thing.name, "\""));
    AddParts(thing, id);
    return id;
  }

  template <class T>
  std::int32_t Change(const Kind& kind, const T& thing, const T& present) {
    const std::string what = Concat("the ", kind.noun, " \"", thing.name, "\"");
    const auto is_kept = [&](std::string_view label) { return thing.kept.contains(label); };
    if (thing.name != present.name) {
      Rename(kind, present.name, thing.name);
      Set(kind, present.id, kind.name_column, thing.name);
      applied_.changes.push_back(
          Concat("renamed the ", kind.noun, " \"", present.name, "\" to \"", thing.name, "\""));
    }
    const std::vector<Field> before = FieldsOf(present);
    const std::vector<Field> after = FieldsOf(thing);
    for (std::size_t i = 0; i < after.size(); ++i) {
      if (is_kept(after[i].label) || after[i].value == before[i].value) continue;
      Set(kind, present.id, after[i].column, Stored(after[i]));
      Say(what, after[i].label, Shown(before[i].value), Shown(after[i].value));
    }
    ChangeParts(what, thing, present);
    return present.id;
  }

  void Say(const std::string& what, std::string_view label, const std::string& before,
           const std::string& after) {
    applied_.changes.push_back(Concat("changed ", what, ": ", label, " from ", before, " to ", after));
  }

  void Set(const Kind& kind, std::int32_t id, std::string_view column, const Value& value) {
    plant_.Run(Concat("update ", kind.table, " set ", column, " = ? where ", KeyColumnOf(kind.table), " = ?"),
               {value, id});
  }

  // What refers to a thing in the plant refers to it by its new name.
  void Rename(const Kind& kind, const std::string& before, const std::string& after) {
    for (PlantMachine& machine : present_.machines) {
      if (&kind == &kDepartmentKind && machine.department == before) machine.department = after;
      if (&kind == &kLocationKind && machine.location == before) machine.location = after;
      if (&kind == &kGroupKind && machine.group == before) machine.group = after;
      if (&kind == &kShiftKind && machine.shifts) std::ranges::replace(*machine.shifts, before, after);
    }
    for (Operator& person : present_.operators) {
      if (&kind == &kShiftKind && person.shift == before) person.shift = after;
    }
    for (Job& job : present_.jobs) {
      if (&kind == &kPartKind) std::ranges::replace(job.parts, before, after);
    }
  }

  // The key of the interval with these times, which many shifts may share.
  Value IntervalId(const std::string& text) {
    const Interval interval = *Interval::Parse(text);
    const DateTime start = DateTime().AddSeconds(interval.start);
    const DateTime stop = DateTime().AddSeconds(interval.stop);
    const std::int32_t is_swing = stop.Date() == start.Date() ? 0 : 1;
    const Rows rows = plant_.Run(
        "select INTERVAL_ID from T_SFC_INTERVAL where START_TIME = ? and STOP_TIME = ? and IS_SWING = ? "
        "order by INTERVAL_ID",
        {start, stop, is_swing});
    if (rows.count() != 0) return rows.at(0, 0);
    const std::vector<Value> values = {start, stop, is_swing};
    return plant_.db.InsertDirect(
        "insert into T_SFC_INTERVAL (START_TIME, STOP_TIME, IS_SWING) values (?, ?, ?)", values,
        "T_SFC_INTERVAL", "INTERVAL_ID");
  }

  // What further tables keep of a thing.
  void AddParts(const Thing&, std::int32_t) {}
  void AddParts(const Job& job, std::int32_t id) { WriteParts(job, id); }
  void AddParts(const PlantMachine& machine, std::int32_t id) {
    WriteShifts(machine, id);
    if (!machine.source.empty()) WriteSource(machine.source, id);
  }

  void ChangeParts(const std::string&, const Thing&, const Thing&) {}
  void ChangeParts(const std::string& what, const Job& job, const Job& present) {
    if (job.kept.contains("parts") || job.parts == present.parts) return;
    plant_.Run("delete from T_SFC_PART_PER_JOB where JOB_ID = ?", {present.id});
    WriteParts(job, present.id);
    Say(what, "parts", Listed(present.parts), Listed(job.parts));
  }
  void ChangeParts(const std::string& what, const PlantMachine& machine, const PlantMachine& present) {
    const auto before = PlaceOf(present);
    const auto after = PlaceOf(machine);
    for (std::size_t i = 0; i < after.size(); ++i) {
      if (machine.kept.contains(after[i].label) || after[i].value == before[i].value) continue;
      if (!present.has_record) {
        applied_.problems.push_back({machine.at, Concat(what, " has no open record to hold its ",
                                                        after[i].label, "; \"kxdata7 doctor\" says more")});
        continue;
      }
      const Value place = Stored(after[i]);
      plant_.Run(Concat("update T_SFC_MACHINE_DATA set ", after[i].column,
                        " = ? where MACHINE_DATA_ID = (select MACHINE_DATA_ID from T_SFC_MACHINE where "
                        "MACHINE_ID = ?)"),
                 {place.IsNull() ? Value(-1) : place, present.id});
      Say(what, after[i].label, Shown(before[i].value), Shown(after[i].value));
    }
    if (!machine.kept.contains("shifts") && !IsSameSet(machine.shifts, present.shifts)) {
      plant_.Run("delete from T_SFC_MACHINE_SHIFT where MACHINE_ID = ?", {present.id});
      WriteShifts(machine, present.id);
      Say(what, "shifts", Listed(present.shifts), Listed(machine.shifts));
    }
    if (!machine.kept.contains("adapter") && machine.source != present.source) {
      plant_.Run("delete from T_SFC_SOURCE where MACHINE_ID = ?", {present.id});
      if (!machine.source.empty()) WriteSource(machine.source, present.id);
      Say(what, "input", Shown(present.source), Shown(machine.source));
    }
  }

  static bool IsSameSet(std::optional<std::vector<std::string>> a,
                        std::optional<std::vector<std::string>> b) {
    if (!a || !b) return !a && !b;
    std::ranges::sort(*a);
    std::ranges::sort(*b);
    return *a == *b;
  }

  void WriteParts(const Job& job, std::int32_t id) {
    for (std::size_t i = 0; i < job.parts.size(); ++i)
      plant_.Run("insert into T_SFC_PART_PER_JOB (JOB_ID, PART_ID, ORDINAL) values (?, ?, ?)",
                 {id, ids_[&kPartKind][job.parts[i]], static_cast<std::int32_t>(i + 1)});
  }

  void WriteShifts(const PlantMachine& machine, std::int32_t id) {
    if (!machine.shifts) return;
    for (const std::string& shift : *machine.shifts)
      plant_.Run("insert into T_SFC_MACHINE_SHIFT (MACHINE_ID, SHIFT_ID) values (?, ?)",
                 {id, ids_[&kShiftKind][shift]});
  }

  void WriteSource(const Source& source, std::int32_t id) {
    plant_.Run(
        "insert into T_SFC_SOURCE (MACHINE_ID, SOURCE_KIND, SOURCE_ADDRESS, SOURCE_MAPPING) values (?, ?, ?, "
        "?)",
        {id, TextOrNull(source.kind), TextOrNull(source.address), NamedValuesText(source.mapping)});
  }

  void ApplyOptions() {
    for (std::size_t i = 0; i < kPlantOptions.size(); ++i) {
      const auto [name, code] = kPlantOptions[i];
      if (!wanted_.options[i] || wanted_.options[i] == present_.options[i]) continue;
      const std::int32_t value = *wanted_.options[i] ? 1 : 0;
      if (plant_
              .Run("update T_SFC_OPTION set BOOL_VAL = ? where APP_CODE = 2 and OPTION_CODE = ?",
                   {value, code})
              .affected == 0)
        plant_.Run("insert into T_SFC_OPTION (APP_CODE, OPTION_CODE, BOOL_VAL) values (2, ?, ?)",
                   {code, value});
      applied_.changes.push_back(Concat("set the option ", name, " to ", value != 0 ? "true" : "false"));
    }
    if (wanted_.plant_name.empty() || wanted_.plant_name == present_.plant_name) return;
    WriteSetting(plant_, "plant_name", wanted_.plant_name);
    applied_.changes.push_back(Concat("named the plant \"", wanted_.plant_name, "\""));
  }

  // What the file does not name: machines, then what machines and jobs refer to, in the end the intervals.
  void Leave() {
    std::ranges::reverse(left_);
    for (const auto& [kind, thing] : left_) {
      const std::string what = Concat("the ", kind->noun, " \"", thing->name, "\"");
      if (!prune_) {
        applied_.stays.push_back(what);
      } else if (const std::string why = WhyNeeded(*kind, *thing); !why.empty()) {
        applied_.stays.push_back(Concat(what, ": ", why));
      } else {
        Remove(*kind, thing->id);
        applied_.changes.push_back("removed " + what);
      }
    }
    if (prune_) RemoveUnusedIntervals();
  }

  // What refers to a thing, empty when nothing does. A machine's first record alone is no reference.
  std::string WhyNeeded(const Kind& kind, const Thing& thing) {
    std::string why;
    const auto count = [&](std::string_view table, std::string_view column, const Value& value,
                           std::int32_t free) {
      const std::int32_t rows =
          plant_.Run(Concat("select count(*) from ", table, " where ", column, " = ?"), {value})
              .at(0, 0)
              .ToInt32();
      if (rows > free)
        Append(why, why.empty() ? "" : ", ", rows, rows == 1 ? " row of " : " rows of ", table);
    };
    const std::string key = KeyColumnOf(kind.table);
    for (const std::string_view table : kind.referring) count(table, key, thing.id, 0);
    if (&kind == &kMachineKind) count("T_SFC_MACHINE_DATA", key, thing.id, 1);
    if (kind.in_events) {
      for (const std::string_view table : {"T_SFC_MDC_LOG", "T_SFC_MDC_LOG_ASIDE"})
        count(table, "PARAM1", thing.name, 0);
    }
    return why;
  }

  void Remove(const Kind& kind, std::int32_t id) {
    const std::string key = KeyColumnOf(kind.table);
    const auto remove_from = [&](std::string_view table) {
      plant_.Run(Concat("delete from ", table, " where ", key, " = ?"), {id});
    };
    remove_from(kind.table);
    if (&kind == &kJobKind) remove_from("T_SFC_PART_PER_JOB");
    if (&kind == &kMachineKind) {
      for (const auto* table : {"T_SFC_MACHINE_DATA", "T_SFC_MACHINE_SHIFT", "T_SFC_SOURCE"})
        remove_from(table);
    }
  }

  void RemoveUnusedIntervals() {
    std::string used;
    for (const std::string_view column : kDayColumns)
      Append(used, used.empty() ? "" : " or ", "T_SFC_SHIFT.", column, " = T_SFC_INTERVAL.INTERVAL_ID");
    const std::int64_t removed =
        plant_
            .Run(Concat("delete from T_SFC_INTERVAL where not exists (select 1 from T_SFC_SHIFT where ", used,
                        ")"))
            .affected;
    if (removed > 0)
      applied_.changes.push_back(Concat("removed ", removed, " intervals that no shift works"));
  }

  Plant& plant_;
  const PlantDescription& wanted_;
  PlantDescription present_;
  const DateTime start_;
  const bool prune_;
  Applied applied_;
  std::map<const Kind*, std::map<std::string, std::int32_t>> ids_;
  std::vector<Left> left_;
};

}  // namespace

Applied ApplyDescription(Plant& plant, const PlantDescription& description, DateTime start, bool prune) {
  RequireCurrentVersion(plant);
  return Applier(plant, description, start, prune).Apply();
}

void AddStandardCommands(Plant& plant) {
  for (std::size_t i = 0; i < kStandardCommands.size(); ++i) {
    const std::int32_t type = kFirstStandardCommand + static_cast<std::int32_t>(i);
    plant.Run(
        "insert into T_SFC_COMMAND (VELKARIS_ID, COMMAND_NAME, COMMAND_TYPE_CODE) select ?, ?, ? "
        "where not exists (select 1 from T_SFC_COMMAND where COMMAND_TYPE_CODE = ?)",
        {type, kStandardCommands[i], type, type});
  }
}

void RequireGoodMachine(Plant& plant, const NewMachine& machine) {
  PlantDescription description = DescribePlant(plant);
  PlantMachine& added = description.machines.emplace_back();
  added.name = machine.name;
  added.number = machine.dnc_number;
  added.at = {1, 1};
  const bool has_shift = !description.shifts.empty();
  for (const Problem& problem : CheckDescription(description, !has_shift)) {
    if (problem.at == added.at) throw ToolError(problem.text);
  }
}

}  // namespace kx::tool
