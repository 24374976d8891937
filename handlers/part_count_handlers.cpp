#include "handlers/part_count_handlers.h"

#include <functional>
#include <limits>

#include "database/database_error.h"
#include "database/numeric_text.h"
#include "database/text.h"
#include "handlers/frame.h"
#include "handlers/part_handlers.h"
#include "machinedata/lookups.h"
#include "machinedata/records.h"
#include "machinedata/segments.h"
#include "session/insert_row.h"
#include "session/messages.h"
#include "session/sql_dialect.h"
#include "shifts/current_record.h"

namespace kx {
namespace {

// What both counts share: an event that begins and ends at once with the parameter that `event_param` gives,
// and the booking on the machine's current record.
bool ReportCount(Session& session, const MdcLogItem& item, std::string& error, std::int32_t command_type,
                 std::int32_t message_id, const std::function<std::string()>& event_param,
                 const std::function<void(std::int32_t)>& book) {
  return WithErrorLabel(error, [&] {
    error.clear();
    if (!EnsurePartRuns(session, item, error)) return false;
    return InTransaction(session, message_id, error, [&] {
      const std::int32_t current = GetCurrentMachineDataID(session, item.place.machine_id, item.time_stamp);
      StartEvent(session, item, command_type, event_param());
      if (!StopEvents(session, item, {command_type})) return Outcome::kLocked;
      book(current);
      return Outcome::kDone;
    });
  });
}

std::string GoodCountText(const std::string& param) {
  const auto number = ParseNumericText(param);
  if (!number) return "1";
  const std::int16_t rounded = RoundToInt16(*number);
  if (rounded != *number) return std::to_string(rounded);
  return *number >= 1 ? param : "1";
}

struct Scrap {
  std::int16_t quantity = 1;
  std::string code_number;

  double Amount() const {
    if (quantity == std::numeric_limits<std::int16_t>::min()) throw OverflowError();
    return quantity < 0 ? -quantity : quantity;
  }
};

Scrap ParseScrap(Session& session, const std::string& param) {
  Scrap scrap;
  const std::size_t point = param.find('.');
  if (const auto number = ParseNumericText(std::string_view(param).substr(0, point))) {
    scrap.quantity = RoundToInt16(*number);
  }
  if (point != std::string::npos) scrap.code_number = param.substr(point + 1);
  if (scrap.code_number.empty()) scrap.code_number = GetDefaultScrapCodeNumber(session);
  return scrap;
}

void InsertScrapRow(Session& session, const MdcLogItem& item, std::int32_t machine_data_id,
                    const Scrap& scrap) {
  constexpr std::string_view kTable = "T_SFC_SCRAP_PER_MACHINE_DATA";
  const std::int32_t code_id = GetScrapCodeID(session, scrap.code_number);
  const bool known = code_id != -1;
  const ColumnValue columns[] = {
      {"MACHINE_DATA_ID", machine_data_id},
      {"START_TIME", item.time_stamp},
      {"QTY", scrap.Amount()},
      {"SCRAP_CODE_ID", known ? Value(code_id) : Value()},
      {"SCRAP_CODE_NUMBER", known ? Value() : Value(scrap.code_number)},
  };
  const std::int32_t row_id = InsertRow(session, kTable, columns);
  if (known) return;
  const ColumnValue own_key[] = {{"SCRAP_DATA_START_ID", row_id}};
  session.connection.UpdateRow(kTable, own_key, row_id);
}

}  // namespace

bool DoGoodPartCount(Session& session, const MdcLogItem& item, std::string& error) {
  std::string count_text;
  return ReportCount(
      session, item, error, command_type::kGoodPartCount, message::kGoodPartCount,
      [&] { return count_text = GoodCountText(item.param); },
      [&](std::int32_t machine_data_id) {
        Recordset record = OpenMachineData(session, machine_data_id);
        AddToCount(record, "GOOD_COUNT", Value(count_text).ToDouble());
        record.Update();
      });
}

bool DoScrappedPartCount(Session& session, const MdcLogItem& item, std::string& error) {
  return ReportCount(
      session, item, error, command_type::kScrappedPartCount, message::kScrappedPartCount,
      [&] { return item.param; },
      [&](std::int32_t machine_data_id) {
        const Scrap scrap = ParseScrap(session, item.param);
        Recordset record = OpenMachineData(session, machine_data_id);
        AddToCount(record, "SCRAPPED_COUNT", scrap.Amount());
        if (scrap.quantity < 0) AddToCount(record, "GOOD_COUNT", scrap.quantity);
        record.Update();
        InsertScrapRow(session, item, machine_data_id, scrap);
      });
}

}  // namespace kx
