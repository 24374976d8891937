#include "machinedata/machine_status.h"

#include "database/database_error.h"

namespace kx {
void SetMachineStatus(Session& session, std::int32_t machine_id, MachineStatus status, DateTime status_date) {
  const ColumnValue columns[] = {{"STATUS_CODE", static_cast<std::int32_t>(status)},
                                 {"STATUS_DATE", status_date}};
  if (!session.connection.UpdateRow("T_SFC_MACHINE", columns, machine_id)) throw NoCurrentRowError();
}

}  // namespace kx
