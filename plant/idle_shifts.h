#pragma once

#include <cstdint>
#include <map>
#include <utility>

#include "plant/client.h"

namespace kx::tool {

// Queues a refresh for machines whose shift ended, or whose next one began, while they reported nothing, so
// that their records are closed in time.
class IdleShifts {
 public:
  // By the plant's clock. Each end of a shift is queued once. Returns how many events were queued; what keeps
  // one from being queued is a ToolError.
  int Queue(Plant& plant, kxdata7::Client& component);

 private:
  using Due = std::pair<std::int32_t, DateTime>;  // the record, and when its time was up
  std::map<std::int32_t, Due> queued_;            // by machine
};

}  // namespace kx::tool
