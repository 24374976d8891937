#include "machinedata/machine_status.h"

#include <string_view>

#include "database/text.h"
#include "session/sql_dialect.h"

namespace kx {
namespace {

Recordset OpenMachine(Session& session, std::string_view columns, std::int32_t machine_id) {
  return OpenRecordset(session, Concat("select ", columns, " from T_SFC_MACHINE ", NoLockHint(session),
                                       " where MACHINE_ID = ", machine_id));
}

}  // namespace

MachineStatus GetMachineStatus(Session& session, std::int32_t machine_id) {
  return static_cast<MachineStatus>(
      OpenMachine(session, "STATUS_CODE", machine_id).Fields("STATUS_CODE").ToInt32Or(-1));
}

void SetMachineStatus(Session& session, std::int32_t machine_id, MachineStatus status, DateTime status_date) {
  Recordset machine = OpenMachine(session, "*", machine_id);
  machine.Set("STATUS_CODE", static_cast<std::int32_t>(status));
  machine.Set("STATUS_DATE", status_date);
  machine.Update();
}

}  // namespace kx
