#pragma once

#include <cstdint>
#include <string>

#include "session/session.h"

namespace kx {

// An event as a client queues it. Ids are those of the master tables; command -1 asks for a status refresh.
struct LogEntry {
  std::int32_t dept_id = -1;
  std::int32_t location_id = -1;
  std::int32_t group_id = -1;
  std::int32_t machine_id = -1;
  std::int32_t command_id = -1;
  std::string param;
  std::int32_t command_time_code = -1;
};

// Queues one event with the server's time, trying up to twenty times while the database is busy. At most one
// refresh waits per machine. False: not queued; `error` says why, and is empty when the statement itself kept
// failing.
bool AppendItemToMDCLog(Session& session, const LogEntry& entry, std::string& error);

// The same for the external numbers (VELKARIS_ID) of the master tables; an unknown number becomes -1. A
// failing translation is a DatabaseError.
bool AppendItemToMDCLogDNC(Session& session, LogEntry numbers, std::string& error);

// How many events wait. Errors reach the caller.
std::int32_t GetMDCLogCount(Session& session);

}  // namespace kx
