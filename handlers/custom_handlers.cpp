#include "handlers/custom_handlers.h"

#include "handlers/frame.h"
#include "machinedata/machine_events.h"
#include "session/messages.h"

namespace kx {
namespace {

Outcome Stop(Session& session, const MdcLogItem& item) {
  return StopMachineEvent(session, item.place.machine_id, item.command_id, item.time_stamp)
             ? Outcome::kDone
             : Outcome::kLocked;
}

void Start(Session& session, const MdcLogItem& item) {
  StartMachineEvent(session, item.place, item.command_id, item.param, item.time_stamp);
}

}  // namespace

bool DoCustomStart(Session& session, const MdcLogItem& item, std::string& error) {
  return RunHandler(session, message::kCustomStart, error, [&] {
    const Outcome outcome = Stop(session, item);
    if (outcome == Outcome::kDone) Start(session, item);
    return outcome;
  });
}

bool DoCustomEnd(Session& session, const MdcLogItem& item, std::string& error) {
  return RunHandler(session, message::kCustomEnd, error, [&] { return Stop(session, item); });
}

bool DoCustomBoth(Session& session, const MdcLogItem& item, std::string& error) {
  return RunHandler(session, message::kCustomBoth, error, [&] {
    Start(session, item);
    return Stop(session, item);
  });
}

}  // namespace kx
