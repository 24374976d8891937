#include "handlers/job_handlers.h"

#include "handlers/frame.h"
#include "handlers/part_handlers.h"
#include "machinedata/lookups.h"
#include "machinedata/records.h"
#include "session/messages.h"
#include "session/options.h"
#include "shifts/current_record.h"

namespace kx {
namespace {

// In what jobs and operations differ.
struct Assignment {
  std::int32_t command_type;
  ChangedItem changed_item;
  std::int32_t (*find_id)(Session&, std::string_view);
  std::string_view id_column;
  std::string_view number_column;
  std::string_view data_start_column;
  std::int32_t start_message;
  std::int32_t end_message;
};

constexpr Assignment kJob{command_type::kJob, ChangedItem::kJob,   &GetJobID,          "JOB_ID",
                          "JOB_NUMBER",       "JOB_DATA_START_ID", message::kJobStart, message::kJobEnd};
constexpr Assignment kOperation{
    command_type::kOperation, ChangedItem::kOperation, &GetOpID, "OP_ID", "OP_NUMBER", "OP_DATA_START_ID",
    message::kOperationStart, message::kOperationEnd};

bool Start(Session& session, const MdcLogItem& item, std::string& error, const Assignment& kind) {
  return InTransaction(session, kind.start_message, error, [&] {
    const std::int32_t machine_id = item.place.machine_id;
    const std::int32_t current = GetCurrentMachineDataID(session, machine_id, item.time_stamp);
    if (!StopEvents(session, item, {kind.command_type})) return Outcome::kLocked;
    StartEvent(session, item, kind.command_type, item.param);
    ReplaceRecord(session, machine_id, current, kind.changed_item, item.time_stamp,
                  [&](Recordset& next, std::int32_t next_id) {
                    const std::int32_t id = kind.find_id(session, item.param);
                    if (id != -1) {
                      next.Set(kind.id_column, id);
                    } else {
                      next.Set(kind.number_column, item.param);
                      next.Set(kind.data_start_column, next_id);
                    }
                  });
    return Outcome::kDone;
  });
}

bool End(Session& session, const MdcLogItem& item, std::string& error, const Assignment& kind) {
  return InTransaction(session, kind.end_message, error, [&] {
    const std::int32_t machine_id = item.place.machine_id;
    const std::int32_t current = GetCurrentMachineDataID(session, machine_id, item.time_stamp);
    if (!StopEvents(session, item, {kind.command_type})) return Outcome::kLocked;
    ReplaceRecord(session, machine_id, current, kind.changed_item, item.time_stamp, nullptr);
    return Outcome::kDone;
  });
}

}  // namespace

bool DoJobStart(Session& session, const MdcLogItem& item, std::string& error) {
  error.clear();
  return WithErrorLabel(error, [&] {
    if (!Start(session, item, error, kJob)) return false;
    if (!GetOptionBool(session)) return true;
    const auto part_number = GetFirstPartNumberOfJob(session, item.param);
    return !part_number || DoPartStart(session, item, *part_number, error, true);
  });
}

bool DoJobEnd(Session& session, const MdcLogItem& item, std::string& error) {
  error.clear();
  return WithErrorLabel(error, [&] {
    if (GetOptionBool(session) && MachineEventExists(session, item.place.machine_id)) {
      DoPartEnd(session, item, error);
      if (!error.empty()) return false;
    }
    return End(session, item, error, kJob);
  });
}

bool DoOpStart(Session& session, const MdcLogItem& item, std::string& error) {
  error.clear();
  return WithErrorLabel(error, [&] { return Start(session, item, error, kOperation); });
}

bool DoOpEnd(Session& session, const MdcLogItem& item, std::string& error) {
  error.clear();
  return WithErrorLabel(error, [&] { return End(session, item, error, kOperation); });
}

}  // namespace kx
