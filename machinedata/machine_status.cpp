#include "machinedata/machine_status.h"

#include "database/database_error.h"
#include "database/text.h"
#include "session/sql_dialect.h"

namespace kx {

MachineStatus GetMachineStatus(Session& session, std::int32_t machine_id) {
  const Recordset machine =
      OpenRecordset(session, Concat("select STATUS_CODE from T_SFC_MACHINE ", NoLockHint(session),
                                    " where MACHINE_ID = ", machine_id));
  return static_cast<MachineStatus>(machine.Fields("STATUS_CODE").ToInt32Or(-1));
}

void SetMachineStatus(Session& session, std::int32_t machine_id, MachineStatus status, DateTime status_date) {
  const ColumnValue columns[] = {{"STATUS_CODE", static_cast<std::int32_t>(status)},
                                 {"STATUS_DATE", status_date}};
  if (!session.connection.UpdateRow("T_SFC_MACHINE", columns, machine_id)) throw NoCurrentRowError();
}

}  // namespace kx
