#pragma once

#include "shifts/shift_info.h"

namespace kx {

// DetermineChartDateAndShiftInfo by three queries and a list in memory instead of one union: the same answer,
// but that shifts which begin at the same time come by SHIFT_ID, and that a user's own shift counts even
// where the machine may not work it. Nothing calls it but the tests, which hold the two against each other.
ShiftInfo DetermineShiftFromCandidateList(Session& session, DateTime moment, std::string_view user_name,
                                          std::int32_t machine_id);

}  // namespace kx
