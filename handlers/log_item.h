#pragma once

#include <cstdint>
#include <string>

#include "database/date_time.h"
#include "machinedata/machine_events.h"

namespace kx {

// One queued event as the dispatcher hands it to a handler.
struct MdcLogItem {
  MachinePlace place;
  std::int32_t command_id = -1;
  std::int32_t command_time_code = -1;  // 0 start, 1 end, 2 both
  std::string param;
  DateTime time_stamp;
};

}  // namespace kx
