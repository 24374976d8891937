#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "kxdata7/events.h"
#include "session/session.h"

namespace kx {

// The keys behind the names and numbers that machines and terminals send. Each returns -1 when nothing is
// found, and for an empty text without asking the database. Texts compare exactly; one with an odd number of
// apostrophes is a DatabaseError.

std::int32_t GetUserID(Session& session, std::string_view user_name);
std::int32_t GetJobID(Session& session, std::string_view job_number);
std::int32_t GetOpID(Session& session, std::string_view op_number);
std::int32_t GetScrapCodeID(Session& session, std::string_view scrap_code_number);

struct PartKey {
  std::int32_t part_id = -1;
  std::int32_t part_type_id = -1;
};
PartKey GetPartID(Session& session, std::string_view part_number);

// A code of the given type, or one that serves both.
enum class DowntimeType : std::int32_t;
std::int32_t GetDowntimeCodeID(Session& session, std::string_view downtime_code_number, DowntimeType type);

// The scrap code booked when none is reported: the one of type -1, else that of type 1, else an empty text.
std::string GetDefaultScrapCodeNumber(Session& session);

// The part of a job with the lowest ORDINAL; nothing when the job has none.
std::optional<std::string> GetFirstPartNumberOfJob(Session& session, std::string_view job_number);

namespace command_type = kxdata7::command_type;

// The first command of one of these types, and the type of a command that has one. All of them are asked for
// in one question.
std::int32_t GetCommandIdByTypeCode(Session& session, std::int32_t command_type_code);
std::int32_t GetCommandTypeCode(Session& session, std::int32_t command_id);

// The internal ids behind the VELKARIS_ID numbers of the master tables.
std::int32_t GetDeptIdByVelkarisId(Session& session, std::int32_t number);
std::int32_t GetLocationIdByVelkarisId(Session& session, std::int32_t number);
std::int32_t GetGroupIdByVelkarisId(Session& session, std::int32_t number);
std::int32_t GetMachineIdByVelkarisId(Session& session, std::int32_t number);
std::int32_t GetCommandIdByVelkarisId(Session& session, std::int32_t number);

}  // namespace kx
