#include "mdclog/dispatch.h"

#include <algorithm>
#include <array>
#include <string_view>

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

constexpr std::int32_t kAny = -2;

struct Route {
  std::int32_t command_type;
  std::int32_t time_code;
  std::string_view label;
  Handler handler;
};

constexpr std::array<Route, 20> kRoutes = {{
    {command_type::kLogon, 0, "DoLogonStart", &DoLogonStart},
    {command_type::kLogon, 1, "DoLogonEnd", &EndLogon},
    {command_type::kJob, 0, "DoJobStart", &DoJobStart},
    {command_type::kJob, 1, "DoJobEnd", &DoJobEnd},
    {command_type::kPart, 0, "DoPartStart", &StartPart},
    {command_type::kPart, 1, "DoPartEnd", &DoPartEnd},
    {command_type::kOperation, 0, "DoOpStart", &DoOpStart},
    {command_type::kOperation, 1, "DoOpEnd", &DoOpEnd},
    {command_type::kSetup, 0, "DoSetupStart", &DoSetupStart},
    {command_type::kSetup, 1, "DoSetupEnd", &DoSetupEnd},
    {command_type::kCycle, 0, "DoCycleStart", &DoCycleStart},
    {command_type::kCycle, 1, "DoCycleEnd", &DoCycleEnd},
    {command_type::kTeardown, 0, "DoTeardownStart", &DoTeardownStart},
    {command_type::kTeardown, 1, "DoTeardownEnd", &DoTeardownEnd},
    {command_type::kMachineDowntime, 0, "DoMachineDowntimeStart", &DoMachineDowntimeStart},
    {command_type::kMachineDowntime, 1, "DoMachineDowntimeEnd", &DoMachineDowntimeEnd},
    {command_type::kUserDowntime, 0, "DoUserDowntimeStart", &DoUserDowntimeStart},
    {command_type::kUserDowntime, 1, "DoUserDowntimeEnd", &DoUserDowntimeEnd},
    {command_type::kGoodPartCount, kAny, "DoGoodPartCount", &DoGoodPartCount},
    {command_type::kScrappedPartCount, kAny, "DoScrappedPartCount", &DoScrappedPartCount},
}};

// The site's own commands: every command type that has no route above.
constexpr std::array<Route, 3> kCustomRoutes = {{
    {kAny, 0, "DoCustomStart", &DoCustomStart},
    {kAny, 1, "DoCustomEnd", &DoCustomEnd},
    {kAny, 2, "DoCustomBoth", &DoCustomBoth},
}};

template <std::size_t N>
const Route* Find(const std::array<Route, N>& routes, std::int32_t command_type, std::int32_t time_code) {
  const auto matches = [&](const Route& route) {
    return (route.command_type == kAny || route.command_type == command_type) &&
           (route.time_code == kAny || route.time_code == time_code);
  };
  const auto found = std::ranges::find_if(routes, matches);
  return found == routes.end() ? nullptr : &*found;
}

// Null when nothing handles the event; its row counts as processed then.
const Route* RouteOf(std::int32_t command_type, std::int32_t time_code) {
  const bool custom = std::ranges::find(kRoutes, command_type, &Route::command_type) == kRoutes.end();
  return custom ? Find(kCustomRoutes, command_type, time_code) : Find(kRoutes, command_type, time_code);
}

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
  const Route* const route = RouteOf(GetCommandTypeCode(session, item.command_id), item.command_time_code);
  if (route == nullptr) return;
  WriteTrace(session, route->label);
  route->handler(session, item, error);
}

bool DoNextItem(Session& session, std::string& error) {
  RequireKnownDialect(session);
  const Recordset head =
      OpenRecordset(session, Concat("select * from T_SFC_MDC_LOG ", NoLockHint(session),
                                    "  where MDC_LOG_ID IN (select MIN(MDC_LOG_ID) from T_SFC_MDC_LOG) "));
  if (head.RecordCount() == 0) return false;
  Apply(session, ReadItem(head), error);
  // The handler's result does not count: only the error text keeps a row.
  return error.empty() && TryExecuteSql(session, Concat("delete from T_SFC_MDC_LOG where MDC_LOG_ID = ",
                                                        head.Fields("MDC_LOG_ID").ToInt32()));
}

}  // namespace

bool DoNextItemFromMDCLog(Session& session, std::string& error) {
  WriteTrace(session, "DoNextItemFromMDCLog");
  session.shift_cache_machine_id = -1;
  error.clear();
  bool done = false;
  try {
    done = DoNextItem(session, error);
  } catch (const DatabaseError& failure) {
    error = failure.description();
  }
  CloseTrace(session);
  return done;
}

}  // namespace kx
