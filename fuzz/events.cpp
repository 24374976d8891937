// Events with any parameter through all handlers, in each dialect. The first byte is the dialect; then a line
// an event: a byte each for command, time code, machine and step of time, and the parameter.

#include <algorithm>
#include <array>

#include "database/database_error.h"
#include "database/date_time.h"
#include "database/text.h"
#include "fuzz/demo_plant.h"

namespace kx::fuzz {
namespace {

constexpr int kMostEvents = 3;

std::int64_t Count(DemoPlant& plant, std::string_view what) {
  return *std::get_if<std::int64_t>(&plant.Run(what).at(0, 0).data());
}

std::int64_t Waiting(DemoPlant& plant) { return Count(plant, "select count(*) from T_SFC_MDC_LOG"); }

// Whether statements can carry a text: they take it between apostrophes.
bool IsPlain(std::string_view text) { return text.find_first_of(std::string_view("'\0", 2)) == text.npos; }

// How many rows there are that an event of the machine has no business with.
std::int64_t OtherRows(DemoPlant& plant, LONG machine) {
  std::string sql = "select 0";
  for (const char* table : {"MACHINE", "MACHINE_DATA", "EVENT", "MACHINE_EVENT"})
    kx::Append(sql, " + (select count(*) from T_SFC_", table, " where MACHINE_ID <> ", machine, ")");
  for (const char* table : {"JOB", "PART", "OP", "USER", "COMMAND", "SHIFT", "OPTION", "MDC_LOG_ASIDE"})
    kx::Append(sql, " + (select count(*) from T_SFC_", table, ")");
  return Count(plant, sql);
}

void Append(DemoPlant& plant, LONG machine, LONG command, LONG time_code, const std::string& param) {
  const std::int64_t changes = Count(plant, "select total_changes()");
  const bool done = plant.component.Append({1, 1, 1, machine, command}, param, time_code).done;
  Require(Waiting(plant) == (done ? 1 : 0), "an event is queued or not");
  Require(Count(plant, "select total_changes()") - changes == (done ? 1 : 0),
          "an append is one row's change");
  if (IsPlain(param)) {
    Require(done, "plain text is queued");
    const Value stored = plant.Run("select PARAM1 from T_SFC_MDC_LOG").at(0, 0);
    Require(command == -1 || stored.ToTextOr("") == param, "the text is queued as it is");
  }
}

void Process(DemoPlant& plant, bool plain) {
  const kxdata7::Answer answer = plant.component.Next();
  Require(!answer.neither(), "an event is applied, or there is a reason");
  Require(Waiting(plant) == (answer ? 0 : 1), "an event goes when it is applied");
  for (const char* sql_error : {"syntax error", "unrecognized token", "no such", "not exactly one"}) {
    Require(!plain || answer.error.find(sql_error) == answer.error.npos,
            "a statement with plain text is good SQL");
  }
  if (!answer) plant.Run("delete from T_SFC_MDC_LOG");
}

void RunEvents(DemoPlant& plant, std::string_view input) {
  const auto commands = plant.Run("select COMMAND_ID from T_SFC_COMMAND");
  DateTime time(2026, 1, 12, 7);
  // Records hand on the texts of earlier events.
  bool all_plain = true;
  for (int i = 0; i < kMostEvents && input.size() >= 4; ++i) {
    const std::string_view line = input.substr(0, input.find('\n'));
    input.remove_prefix(std::min(line.size() + 1, input.size()));
    if (line.size() < 4) continue;
    const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(line[at]); };
    const std::size_t pick = byte(0) % (commands.count() + 1);
    const LONG command = pick == commands.count() ? -1 : commands.at(pick, 0).ToInt32();
    const LONG machine = 1 + byte(2) % 4;
    time = time.AddSeconds(std::int64_t{byte(3)} * 200 - 1000);
    // What is no UTF-8 cannot be said in a BSTR.
    const std::string param = kxdata7::ToUtf8(kxdata7::ToOleString(line.substr(4)));
    Append(plant, machine, command, byte(1) % 4, param);
    if (Waiting(plant) == 0) {
      const Value values[] = {command == -1 ? Value() : Value(command), machine, byte(1) % 4, param};
      if (param.find('\0') != param.npos) continue;
      plant.Run(
          "insert into T_SFC_MDC_LOG (COMMAND_ID, MACHINE_ID, COMMAND_TIME_CODE, PARAM1, DEPT_ID, "
          "LOCATION_ID, GROUP_ID) values (?, ?, ?, ?, 1, 1, 1)",
          values);
    }
    const Value moment[] = {time.ToText()};
    plant.Run("update T_SFC_MDC_LOG set TIME_STAMP = ?", moment);
    all_plain = all_plain && IsPlain(param);
    const std::int64_t others = OtherRows(plant, machine);
    Process(plant, all_plain);
    Require(OtherRows(plant, machine) == others, "only the rows of the one event change");
  }
  Require(
      Count(plant,
            "select count(*) from T_SFC_MACHINE m where MACHINE_DATA_ID is not (select case count(*) when "
            "1 then max(MACHINE_DATA_ID) end from T_SFC_MACHINE_DATA d where d.MACHINE_ID = "
            "m.MACHINE_ID and STOP_TIME is null)") == 0,
      "a machine has one open record, its own");
}

}  // namespace
}  // namespace kx::fuzz

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  static auto& plant = *new kx::fuzz::DemoPlant;
  if (size == 0) return 0;
  plant.Reset();
  plant.Connect(data[0] % 3);
  kx::fuzz::RunEvents(plant, {reinterpret_cast<const char*>(data) + 1, size - 1});
  return 0;
}
