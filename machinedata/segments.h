#pragma once

#include <string_view>

#include "session/session.h"

namespace kx {

// A stretch of work that a record times: the column with the start of the running stretch, NULL when none
// runs, and the column with the total, in units of so many seconds.
struct Segment {
  std::string_view start;
  std::string_view total;
  double unit_seconds;
};

constexpr double kSecondsPerMinute = 60;
constexpr double kSecondsPerHour = 3600;

// Cycle times are kept in minutes, all others in hours.
constexpr Segment kCycleSegment{"CYCLE_START_TIME", "CYCLE_TIME", kSecondsPerMinute};
constexpr Segment kSetupSegment{"SETUP_START_TIME", "SETUP_TIME", kSecondsPerHour};
constexpr Segment kTeardownSegment{"TEARDOWN_START_TIME", "TEARDOWN_TIME", kSecondsPerHour};
constexpr Segment kIdleSegment{"IDLE_START_TIME", "IDLE_TIME", kSecondsPerHour};

// Whole seconds from `start` to `stop` in units of `unit_seconds`, in single precision; negative when time
// ran backwards.
float Elapsed(DateTime start, DateTime stop, double unit_seconds);

bool IsRunning(const Recordset& record, const Segment& segment);

// Adds a running segment's time until `stop` to its total, which counts as 0 when NULL. The segment keeps
// running. False when none runs.
bool AddElapsed(Recordset& record, const Segment& segment, DateTime stop);

// The same, and the segment runs no longer.
bool CloseSegment(Recordset& record, const Segment& segment, DateTime stop);

// Ends a running cycle that did not come to its own end.
void CloseUnfinishedCycle(Recordset& record, DateTime stop);

// Idle time runs from `start` on, unless it runs already.
void BeginIdle(Recordset& record, DateTime start);

// Raises a count, which counts as 0 when NULL.
void AddToCount(Recordset& record, std::string_view column, double number);

}  // namespace kx
