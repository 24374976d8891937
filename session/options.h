#pragma once

#include "session/session.h"

namespace kx {

// OPTION_CODE of T_SFC_OPTION, with the APP_CODE of this component. The rows must exist.
namespace option {
constexpr std::int32_t kApplication = 2;
constexpr std::int32_t kJobStartsItsPart = 1;
constexpr std::int32_t kSetupLocksCycles = 4;
constexpr std::int32_t kTeardownLocksCycles = 5;
}  // namespace option

// Whether the site wants a job start to start the job's first part, and a job end to end the running part.
// A missing row is an error.
bool GetOptionBool(Session& session);

}  // namespace kx
