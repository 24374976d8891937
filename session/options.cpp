#include "session/options.h"

#include "database/text.h"
#include "session/sql_dialect.h"

namespace kx {

bool GetOptionBool(Session& session) {
  const Recordset option = OpenMasterData(session, Concat("select * from T_SFC_OPTION ", NoLockHint(session),
                                                          " where APP_CODE = ", option::kApplication,
                                                          " and OPTION_CODE = ", option::kJobStartsItsPart));
  return option.Fields("BOOL_VAL").ToInt32() != 0;
}

}  // namespace kx
