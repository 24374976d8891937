#include "handlers/frame.h"

#include "database/database_error.h"
#include "machinedata/lookups.h"
#include "session/messages.h"
#include "session/transaction.h"

namespace kx {

bool WithErrorLabel(std::string& error, const std::function<bool()>& body) {
  try {
    return body();
  } catch (const DatabaseError& failure) {
    error = failure.description();
    return false;
  }
}

bool InTransaction(Session& session, std::int32_t message_id, std::string& error, const Work& work) {
  const auto fail_locked = [&] {
    error = FormatResourceMessage(message_id);
    return false;
  };
  TransactionScope transaction(session);
  if (!transaction.Begin()) return fail_locked();
  try {
    switch (work()) {
      case Outcome::kDone: return transaction.Commit() || fail_locked();
      case Outcome::kNotApplicable: return false;
      case Outcome::kLocked: break;
    }
  } catch (const DatabaseError& failure) {
    if (!failure.busy()) throw;
  }
  return fail_locked();
}

bool RunHandler(Session& session, std::int32_t message_id, std::string& error, const Work& work) {
  error.clear();
  return WithErrorLabel(error, [&] { return InTransaction(session, message_id, error, work); });
}

bool StopEvents(Session& session, const MdcLogItem& item, std::initializer_list<std::int32_t> command_types) {
  for (const std::int32_t command_type : command_types) {
    const std::int32_t command_id = GetCommandIdByTypeCode(session, command_type);
    if (!StopMachineEvent(session, item.place.machine_id, command_id, item.time_stamp)) return false;
  }
  return true;
}

void StartEvent(Session& session, const MdcLogItem& item, std::int32_t command_type, std::string_view param) {
  StartMachineEvent(session, item.place, GetCommandIdByTypeCode(session, command_type), param,
                    item.time_stamp);
}

}  // namespace kx
