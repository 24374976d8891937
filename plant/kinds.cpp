#include "plant/kinds.h"

#include <optional>

namespace kx::tool {
namespace {

Value NumberOrNull(const std::optional<std::int32_t>& number) { return number ? Value(*number) : Value(); }

}  // namespace

const Kind kDepartmentKind = {"department",
                              "T_SFC_DEPT",
                              "DEPT_NAME",
                              {"T_SFC_MACHINE_DATA", "T_SFC_EVENT", "T_SFC_MDC_LOG", "T_SFC_MDC_LOG_ASIDE"}};
const Kind kLocationKind = {"location", "T_SFC_LOCATION", "LOCATION_NAME", kDepartmentKind.referring};
const Kind kGroupKind = {"group", "T_SFC_GROUP", "GROUP_NAME", kDepartmentKind.referring};
const Kind kMachineKind = {
    "machine", "T_SFC_MACHINE", "MACHINE_NAME", {"T_SFC_EVENT", "T_SFC_MDC_LOG", "T_SFC_MDC_LOG_ASIDE"}};
const Kind kCommandKind = {"command",
                           "T_SFC_COMMAND",
                           "COMMAND_NAME",
                           {"T_SFC_EVENT", "T_SFC_MACHINE_EVENT", "T_SFC_MDC_LOG", "T_SFC_MDC_LOG_ASIDE"}};
const Kind kShiftKind = {
    "shift", "T_SFC_SHIFT", "SHIFT_NAME", {"T_SFC_MACHINE_DATA", "T_SFC_USER", "T_SFC_MACHINE_SHIFT"}};
const Kind kOperatorKind = {"operator", "T_SFC_USER", "USER_NAME", {"T_SFC_MACHINE_DATA"}, true};
const Kind kJobKind = {"job", "T_SFC_JOB", "JOB_NUMBER", {"T_SFC_MACHINE_DATA"}, true};
const Kind kPartKind = {
    "part", "T_SFC_PART", "PART_NUMBER", {"T_SFC_MACHINE_DATA", "T_SFC_PART_PER_JOB"}, true};
const Kind kOperationKind = {"operation", "T_SFC_OP", "OP_NUMBER", {"T_SFC_MACHINE_DATA"}, true};
const Kind kDowntimeCodeKind = {
    "downtime code", "T_SFC_DOWNTIME_CODE", "DOWNTIME_CODE_NUMBER", {"T_SFC_DT_PER_MACHINE_DATA"}, true};
const Kind kIntervalKind = {"interval", "T_SFC_INTERVAL", ""};
const Kind kScrapCodeKind = {
    "scrap code", "T_SFC_SCRAP_CODE", "SCRAP_CODE_NUMBER", {"T_SFC_SCRAP_PER_MACHINE_DATA"}};

Value TextOrNull(const std::string& text) { return text.empty() ? Value() : Value(text); }

std::vector<Field> FieldsOf(const Thing&) { return {}; }
std::vector<Field> FieldsOf(const NumberedThing& thing) {
  return {{"number", "VELKARIS_ID", NumberOrNull(thing.number)}};
}
std::vector<Field> FieldsOf(const PlantCommand& command) {
  return {{"number", "VELKARIS_ID", NumberOrNull(command.number)},
          {"type", "COMMAND_TYPE_CODE", command.type_code}};
}
std::vector<Field> FieldsOf(const Operator& person) {
  return {{"shift", "SHIFT_ID", TextOrNull(person.shift), &kShiftKind}};
}
std::vector<Field> FieldsOf(const Part& part) { return {{"type", "PART_TYPE_ID", NumberOrNull(part.type)}}; }
std::vector<Field> FieldsOf(const DowntimeCode& code) {
  return {{"name", "DOWNTIME_CODE_NAME", TextOrNull(code.label)},
          {"kind", "DOWNTIME_TYPE_CODE", code.kind},
          {"ignore_cycles", "CYCLE_STATUS_LOCK", code.ignore_cycles ? 1 : 0}};
}
std::vector<Field> FieldsOf(const ScrapCode& code) {
  return {{"name", "SCRAP_CODE_NAME", TextOrNull(code.label)},
          {"default", "SCRAP_CODE_TYPE_CODE", code.is_default ? -1 : 0}};
}
std::vector<Field> FieldsOf(const Shift& shift) {
  std::vector<Field> fields;
  for (std::size_t day = 0; day < kDayNames.size(); ++day) {
    const auto& interval = shift.days[day];
    fields.push_back(
        {kDayNames[day], kDayColumns[day], interval ? Value(interval->ToText()) : Value(), &kIntervalKind});
  }
  return fields;
}
std::vector<Field> PlaceOf(const PlantMachine& machine) {
  return {{"department", "DEPT_ID", TextOrNull(machine.department), &kDepartmentKind},
          {"location", "LOCATION_ID", TextOrNull(machine.location), &kLocationKind},
          {"group", "GROUP_ID", TextOrNull(machine.group), &kGroupKind}};
}

}  // namespace kx::tool
