#include "mdclog/dispatch.h"

#include <algorithm>
#include <array>
#include <span>
#include <string_view>
#include <utility>

#include "database/database_error.h"
#include "database/text.h"
#include "handlers/custom_handlers.h"
#include "handlers/cycle_handlers.h"
#include "handlers/downtime_handlers.h"
#include "handlers/job_handlers.h"
#include "handlers/logon_handlers.h"
#include "handlers/part_count_handlers.h"
#include "handlers/part_handlers.h"
#include "handlers/setup_handlers.h"
#include "kxdata7/events.h"
#include "machinedata/lookups.h"
#include "session/messages.h"
#include "session/sql_dialect.h"
#include "session/trace.h"
#include "shifts/current_record.h"

namespace kx {
namespace {

using Handler = bool (*)(Session&, const MdcLogItem&, std::string&);

bool StartPart(Session& session, const MdcLogItem& item, std::string& error) {
  return DoPartStart(session, item, item.param, error);
}

// The row of a logon end goes whatever happens: its failure is not handed back.
bool EndLogon(Session& session, const MdcLogItem& item, std::string& error) {
  std::string copy = error;
  return DoLogonEnd(session, item, copy);
}

// What works each event of the table in; a refresh has a routine of its own.
struct Route {
  std::string_view label;
  Handler handler;
};
constexpr std::array<Route, 23> kRoutes = {{
    {"DoLogonStart", &DoLogonStart},
    {"DoLogonEnd", &EndLogon},
    {"DoJobStart", &DoJobStart},
    {"DoJobEnd", &DoJobEnd},
    {"DoPartStart", &StartPart},
    {"DoPartEnd", &DoPartEnd},
    {"DoOpStart", &DoOpStart},
    {"DoOpEnd", &DoOpEnd},
    {"DoSetupStart", &DoSetupStart},
    {"DoSetupEnd", &DoSetupEnd},
    {"DoCycleStart", &DoCycleStart},
    {"DoCycleEnd", &DoCycleEnd},
    {"DoTeardownStart", &DoTeardownStart},
    {"DoTeardownEnd", &DoTeardownEnd},
    {"DoMachineDowntimeStart", &DoMachineDowntimeStart},
    {"DoMachineDowntimeEnd", &DoMachineDowntimeEnd},
    {"DoUserDowntimeStart", &DoUserDowntimeStart},
    {"DoUserDowntimeEnd", &DoUserDowntimeEnd},
    {"DoGoodPartCount", &DoGoodPartCount},
    {"DoScrappedPartCount", &DoScrappedPartCount},
    {"DoCustomStart", &DoCustomStart},
    {"DoCustomEnd", &DoCustomEnd},
    {"DoCustomBoth", &DoCustomBoth},
}};
static_assert(std::ranges::equal(kRoutes, std::span(kxdata7::kEvents).first(kRoutes.size()), {},
                                 &Route::label, &kxdata7::Event::handler));

MdcLogItem ReadItem(const Recordset& row) {
  MdcLogItem item;
  item.param = row.Fields("PARAM1").ToTextOr("");
  item.command_id = row.Fields("COMMAND_ID").ToInt32Or(-1);
  item.command_time_code = row.Fields("COMMAND_TIME_CODE").ToInt32Or(-1);
  item.time_stamp = row.Fields("TIME_STAMP").ToDateTime();
  item.place = {row.Fields("DEPT_ID").ToInt32(), row.Fields("LOCATION_ID").ToInt32(),
                row.Fields("GROUP_ID").ToInt32(), row.Fields("MACHINE_ID").ToInt32()};
  return item;
}

void Apply(Session& session, const MdcLogItem& item, std::string& error) {
  if (item.command_id == -1) {
    if (!HandleExpiredShifts(session, item.place.machine_id, item.time_stamp, true)) {
      error = FormatResourceMessage(message::kRefreshFailed);
    }
    return;
  }
  const kxdata7::Event* const event =
      kxdata7::FindEvent(GetCommandTypeCode(session, item.command_id), item.command_time_code);
  if (event == nullptr) return;  // nothing handles it: its row counts as processed
  WriteTrace(session, event->handler);
  kRoutes[static_cast<std::size_t>(event - kxdata7::kEvents.data())].handler(session, item, error);
}

// While others wait behind the row, its delete goes to the disk with the next event's commit: until then a
// loss of power repeats that one event, as it would before the delete.
bool DeleteRow(Session& session, std::int32_t log_id) {
  try {
    session.connection.ExecuteDeferred(
        Concat("delete from T_SFC_MDC_LOG where MDC_LOG_ID = ", log_id),
        Concat("select MIN(MDC_LOG_ID) from T_SFC_MDC_LOG where MDC_LOG_ID > ", log_id));
    return true;
  } catch (const DatabaseError&) {
    return false;
  }
}

bool DoNextItem(Session& session, std::string& error) {
  RequireKnownDialect(session);
  const Recordset head =
      OpenRecordset(session, Concat("select * from T_SFC_MDC_LOG ", NoLockHint(session),
                                    "  where MDC_LOG_ID IN (select MIN(MDC_LOG_ID) from T_SFC_MDC_LOG) "));
  if (head.RecordCount() == 0) return false;
  Apply(session, ReadItem(head), error);
  // The handler's result does not count: only the error text keeps a row.
  return error.empty() && DeleteRow(session, head.Fields("MDC_LOG_ID").ToInt32());
}

}  // namespace

bool DoNextItemFromMDCLog(Session& session, std::string& error) {
  WriteTrace(session, "DoNextItemFromMDCLog");
  session.shift_cache_machine_id = -1;
  // Nothing that is asked once an item outlives it.
  struct Item {
    explicit Item(Session& item_session) : session(item_session) {
      session.master_data.emplace();
      session.connection.GoAhead(true);
    }
    Item(const Item&) = delete;
    Item& operator=(const Item&) = delete;
    ~Item() {
      session.master_data.reset();
      session.connection.GoAhead(false);
    }
    Session& session;
  } const item(session);
  session.unknown_outcome.clear();
  error.clear();
  bool done = false;
  try {
    done = DoNextItem(session, error);
  } catch (const DatabaseError& failure) {
    error = failure.description();
  }
  // Done, and yet no plain success. A standby that lacks the work has the row still, and so works it in
  // later.
  if (!session.unknown_outcome.empty()) {
    Append(error, error.empty() ? "" : " ", std::exchange(session.unknown_outcome, {}));
  }
  CloseTrace(session);
  return done;
}

}  // namespace kx
