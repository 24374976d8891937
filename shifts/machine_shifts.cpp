#include "shifts/machine_shifts.h"

#include <algorithm>

#include "database/text.h"
#include "session/sql_dialect.h"

namespace kx {

void LoadMachineShifts(Session& session, std::int32_t machine_id) {
  if (machine_id == session.shift_cache_machine_id) return;
  Recordset shifts = OpenMasterData(
      session,
      Concat("select * from T_SFC_MACHINE_SHIFT  where MACHINE_ID = ", machine_id, " order by SHIFT_ID "));
  session.machine_shift_ids.clear();
  for (; !shifts.IsEof(); shifts.MoveNext()) {
    session.machine_shift_ids.push_back(shifts.Fields("SHIFT_ID").ToInt32());
  }
  session.shift_cache_machine_id = machine_id;
}

bool IsShiftAllowedForMachine(const Session& session, std::int32_t shift_id) {
  const auto& allowed = session.machine_shift_ids;
  return allowed.empty() || std::ranges::find(allowed, shift_id) != allowed.end();
}

std::string AddMachineShiftFilter(const Session& session, std::string_view sql, std::int32_t machine_id) {
  const std::string_view hint = NoLockHint(session);
  const std::string any_row = Concat("(select count(*) from T_SFC_MACHINE_SHIFT ms ", hint,
                                     " where ms.MACHINE_ID=", machine_id, ") > 0");
  const std::string own_row =
      Concat("(select count(*) from T_SFC_MACHINE_SHIFT ms where ms.MACHINE_ID=", machine_id,
             " and ms.SHIFT_ID=s.SHIFT_ID)");
  return Concat("select s.* from (", sql, ") s left join (select ", SqlIif(session, any_row, own_row, "1"),
                " as valid_shift, SHIFT_ID from T_SFC_SHIFT s", hint,
                " ) v on v.SHIFT_ID = s.SHIFT_ID where valid_shift >=1");
}

}  // namespace kx
