#include "machinedata/segments.h"

namespace kx {

float Elapsed(DateTime start, DateTime stop, double unit_seconds) {
  return static_cast<float>(static_cast<double>(SecondsBetween(start, stop)) / unit_seconds);
}

bool IsRunning(const Recordset& record, const Segment& segment) {
  return !record.Fields(segment.start).IsNull();
}

bool AddElapsed(Recordset& record, const Segment& segment, DateTime stop) {
  if (!IsRunning(record, segment)) return false;
  const float elapsed = Elapsed(record.Fields(segment.start).ToDateTime(), stop, segment.unit_seconds);
  record.Set(segment.total, record.Fields(segment.total).ToFloatOr(0) + elapsed);
  return true;
}

bool CloseSegment(Recordset& record, const Segment& segment, DateTime stop) {
  if (!AddElapsed(record, segment, stop)) return false;
  record.Set(segment.start, Value());
  return true;
}

void CloseUnfinishedCycle(Recordset& record, DateTime stop) {
  if (CloseSegment(record, kCycleSegment, stop)) AddToCount(record, "UNFINISHED_CYCLES", 1);
}

void BeginIdle(Recordset& record, DateTime start) {
  if (!IsRunning(record, kIdleSegment)) record.Set(kIdleSegment.start, start);
}

void AddToCount(Recordset& record, std::string_view column, double number) {
  record.Set(column, record.Fields(column).ToDoubleOr(0) + number);
}

}  // namespace kx
