#include <algorithm>

#include "database/database_error.h"
#include "database/table_key.h"
#include "database/text.h"
#include "plant/kinds.h"
#include "plant/plant.h"
#include "plant/plant_description.h"

namespace kx::tool {
namespace {

constexpr std::int32_t kDay = 24 * 60 * 60;

// Reads the plant's tables, each in the order of its keys.
class PlantReader {
 public:
  explicit PlantReader(Plant& plant) : plant_(plant) {}

  PlantDescription Read() {
    ReadNumbered(kDepartmentKind, described_.departments);
    ReadNumbered(kLocationKind, described_.locations);
    ReadNumbered(kGroupKind, described_.groups);
    ReadNamed(kOperationKind, described_.operations);
    ReadCommands();
    ReadShifts();
    ReadOperators();
    ReadJobsAndParts();
    ReadCodes();
    ReadMachines();
    ReadSources();
    ReadOptions();
    return std::move(described_);
  }

 private:
  // Reads the key, the name and the fields of every row of a kind.
  template <class T, class Read>
  void ReadThings(const Kind& kind, std::vector<T>& things, Read read) {
    const std::string key = KeyColumnOf(kind.table);
    std::string columns = Concat(key, ", ", kind.name_column);
    for (const Field& field : FieldsOf(T())) Append(columns, ", ", field.column);
    const Rows rows = plant_.Run(Concat("select ", columns, " from ", kind.table, " order by ", key));
    things.resize(rows.count());
    for (std::size_t i = 0; i < rows.count(); ++i) {
      things[i].id = rows.at(i, 0).ToInt32();
      things[i].name = rows.at(i, 1).ToTextOr("");
      read(things[i], [&](std::size_t column) -> const Value& { return rows.at(i, column + 2); });
    }
  }

  void ReadNamed(const Kind& kind, auto& things) {
    ReadThings(kind, things, [](auto&, auto) {});
  }

  static std::optional<std::int32_t> NumberOf(const Value& value) {
    return value.IsNull() ? std::nullopt : std::optional(value.ToInt32());
  }

  void ReadNumbered(const Kind& kind, std::vector<NumberedThing>& things) {
    ReadThings(kind, things, [](NumberedThing& thing, auto column) { thing.number = NumberOf(column(0)); });
  }

  void ReadCommands() {
    ReadThings(kCommandKind, described_.commands, [](PlantCommand& command, auto column) {
      command.number = NumberOf(column(0));
      command.type_code = column(1).ToInt32Or(-1);
    });
  }

  // The name of a thing by its key; empty when there is none.
  template <class T>
  static std::string NameOf(const std::vector<T>& things, const Value& id) {
    const auto thing = std::ranges::find(things, id.ToInt32Or(-1), &T::id);
    return thing == things.end() ? std::string() : thing->name;
  }

  void ReadShifts() {
    std::map<std::int32_t, std::optional<Interval>> intervals;
    const Rows rows = plant_.Run("select INTERVAL_ID, START_TIME, STOP_TIME, IS_SWING from T_SFC_INTERVAL");
    for (std::size_t i = 0; i < rows.count(); ++i)
      intervals[rows.at(i, 0).ToInt32()] =
          IntervalOf(rows.at(i, 1), rows.at(i, 2), rows.at(i, 3).ToInt32Or(-1));
    ReadThings(kShiftKind, described_.shifts, [&](Shift& shift, auto column) {
      for (std::size_t day = 0; day < kDayNames.size(); ++day) {
        const auto interval = intervals.find(column(day).ToInt32Or(-1));
        if (interval == intervals.end()) continue;
        shift.days[day] = interval->second;
        if (shift.days[day]) continue;
        shift.kept.emplace(kDayNames[day]);
        described_.remarks.push_back(Concat("the shift \"", shift.name, "\" has on ", kDayNames[day],
                                            " the interval ", interval->first,
                                            ", whose times are no times of a day on 1970-01-01"));
      }
    });
  }

  // Nothing when the component would not read it as from when to when of a day.
  static std::optional<Interval> IntervalOf(const Value& start, const Value& stop, std::int32_t is_swing) {
    if (start.IsNull() || stop.IsNull()) return std::nullopt;
    const auto seconds = [](const Value& time) { return SecondsBetween(DateTime(), time.ToDateTime()); };
    const std::int64_t from = seconds(start);
    const std::int64_t to = seconds(stop);
    if (from < 0 || from >= kDay || to <= from || to > from + kDay) return std::nullopt;
    const bool plain = is_swing == 0 ? to <= kDay : is_swing == 1 && to >= kDay;
    if (!plain) return std::nullopt;
    return Interval{static_cast<std::int32_t>(from), static_cast<std::int32_t>(to)};
  }

  void ReadOperators() {
    ReadThings(kOperatorKind, described_.operators,
               [&](Operator& person, auto column) { person.shift = NameOf(described_.shifts, column(0)); });
  }

  void ReadJobsAndParts() {
    ReadThings(kPartKind, described_.parts, [](Part& part, auto column) { part.type = NumberOf(column(0)); });
    ReadNamed(kJobKind, described_.jobs);
    const Rows rows = plant_.Run(
        "select b.JOB_ID, p.PART_NUMBER from T_SFC_PART_PER_JOB b, T_SFC_PART p where b.PART_ID = p.PART_ID "
        "order by b.ORDINAL, p.PART_NUMBER");
    for (std::size_t i = 0; i < rows.count(); ++i) {
      const auto job = std::ranges::find(described_.jobs, rows.at(i, 0).ToInt32Or(-1), &Job::id);
      if (job != described_.jobs.end()) job->parts.push_back(rows.at(i, 1).ToTextOr(""));
    }
  }

  void ReadCodes() {
    ReadThings(kDowntimeCodeKind, described_.downtimes, [&](DowntimeCode& code, auto column) {
      code.label = column(0).ToTextOr("");
      code.kind = column(1).ToInt32Or(-1);
      code.ignore_cycles = column(2).ToInt32Or(0) != 0;
    });
    std::vector<std::int32_t> types;
    ReadThings(kScrapCodeKind, described_.scrap, [&](ScrapCode& code, auto column) {
      code.label = column(0).ToTextOr("");
      types.push_back(column(1).ToInt32Or(0));
    });
    // The first one with -1 is the default, without any the first one with 1.
    for (const std::int32_t type : {-1, 1}) {
      const auto found = std::ranges::find(types, type);
      if (found == types.end()) continue;
      described_.scrap[static_cast<std::size_t>(found - types.begin())].is_default = true;
      break;
    }
  }

  void ReadMachines() {
    ReadThings(kMachineKind, described_.machines, [](PlantMachine& machine, auto column) {
      machine.number = NumberOf(column(0));
      machine.has_record = false;
    });
    const Rows records = plant_.Run(
        "select m.MACHINE_ID, d.DEPT_ID, d.LOCATION_ID, d.GROUP_ID from T_SFC_MACHINE m, "
        "T_SFC_MACHINE_DATA d where d.MACHINE_DATA_ID = m.MACHINE_DATA_ID");
    for (std::size_t i = 0; i < records.count(); ++i) {
      PlantMachine& machine = *FindMachine(records.at(i, 0));
      machine.has_record = true;
      machine.department = NameOf(described_.departments, records.at(i, 1));
      machine.location = NameOf(described_.locations, records.at(i, 2));
      machine.group = NameOf(described_.groups, records.at(i, 3));
    }
    const Rows shifts = plant_.Run("select MACHINE_ID, SHIFT_ID from T_SFC_MACHINE_SHIFT order by SHIFT_ID");
    for (std::size_t i = 0; i < shifts.count(); ++i) {
      PlantMachine* const machine = FindMachine(shifts.at(i, 0));
      if (machine == nullptr) continue;
      if (!machine->shifts) machine->shifts.emplace();
      const auto shift = std::ranges::find(described_.shifts, shifts.at(i, 1).ToInt32Or(-1), &Shift::id);
      if (shift != described_.shifts.end() && std::ranges::count(*machine->shifts, shift->name) == 0)
        machine->shifts->push_back(shift->name);
    }
  }

  PlantMachine* FindMachine(const Value& id) {
    const auto machine = std::ranges::find(described_.machines, id.ToInt32Or(-1), &PlantMachine::id);
    return machine == described_.machines.end() ? nullptr : &*machine;
  }

  // A plant of an older tool has neither sources nor settings.
  void ReadSources() {
    try {
      const Rows rows =
          plant_.Run("select MACHINE_ID, SOURCE_KIND, SOURCE_ADDRESS, SOURCE_MAPPING from T_SFC_SOURCE");
      for (std::size_t i = 0; i < rows.count(); ++i) {
        PlantMachine* const machine = FindMachine(rows.at(i, 0));
        if (machine == nullptr) continue;
        machine->source.kind = rows.at(i, 1).ToTextOr("");
        machine->source.address = rows.at(i, 2).ToTextOr("");
        machine->source.mapping = ParseNamedValues(rows.at(i, 3).ToTextOr(""));
      }
      const Rows name =
          plant_.Run("select SETTING_VALUE from T_SFC_SETTING where SETTING_NAME = 'plant_name'");
      if (name.count() != 0) described_.plant_name = name.at(0, 0).ToTextOr("");
    } catch (const DatabaseError& error) {
      if (!IsMissingTable(error)) throw;
    }
  }

  void ReadOptions() {
    const Rows rows = plant_.Run("select OPTION_CODE, BOOL_VAL from T_SFC_OPTION where APP_CODE = 2");
    for (std::size_t i = 0; i < rows.count(); ++i) {
      for (std::size_t option = 0; option < kPlantOptions.size(); ++option) {
        if (rows.at(i, 0).ToInt32Or(-1) == kPlantOptions[option].code && !rows.at(i, 1).IsNull())
          described_.options[option] = rows.at(i, 1).ToInt32() != 0;
      }
    }
  }

  Plant& plant_;
  PlantDescription described_;
};

}  // namespace

PlantDescription DescribePlant(Plant& plant) { return PlantReader(plant).Read(); }

std::vector<Problem> CheckPlant(Plant& plant) {
  const PlantDescription description = DescribePlant(plant);
  std::vector<Problem> problems = CheckDescription(description);
  for (const std::string& remark : description.remarks) problems.push_back({{}, remark});
  return problems;
}

}  // namespace kx::tool
