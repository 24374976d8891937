#pragma once

#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "database/value.h"
#include "plant/plant_description.h"

namespace kx::tool {

// Where the things of a kind are kept, and which tables refer to them by the column of their key.
struct Kind {
  std::string_view noun;
  std::string_view table;
  std::string_view name_column;
  std::vector<std::string_view> referring = {};
  bool in_events = false;  // events that wait name it
};

extern const Kind kDepartmentKind, kLocationKind, kGroupKind, kMachineKind, kCommandKind, kShiftKind,
    kOperatorKind, kJobKind, kPartKind, kOperationKind, kDowntimeCodeKind, kIntervalKind, kScrapCodeKind;

// The columns of a shift's intervals, Monday to Sunday.
constexpr std::array<std::string_view, 7> kDayColumns = {
    "MON_INTERVAL_ID", "TUE_INTERVAL_ID", "WED_INTERVAL_ID", "THU_INTERVAL_ID",
    "FRI_INTERVAL_ID", "SAT_INTERVAL_ID", "SUN_INTERVAL_ID"};

// A field as the plant keeps it. One that refers to another thing holds the thing's name, empty for none.
struct Field {
  std::string_view label;
  std::string_view column;
  Value value;
  const Kind* refers_to = nullptr;
};

// What the plant keeps of a thing beside its name, in the row of the thing itself.
std::vector<Field> FieldsOf(const Thing&);
std::vector<Field> FieldsOf(const NumberedThing& thing);
std::vector<Field> FieldsOf(const PlantCommand& command);
std::vector<Field> FieldsOf(const Operator& person);
std::vector<Field> FieldsOf(const Part& part);
std::vector<Field> FieldsOf(const DowntimeCode& code);
std::vector<Field> FieldsOf(const ScrapCode& code);
std::vector<Field> FieldsOf(const Shift& shift);
// What its open record keeps of a machine.
std::vector<Field> PlaceOf(const PlantMachine& machine);

Value TextOrNull(const std::string& text);

}  // namespace kx::tool
