#include "plant/idle_shifts.h"

#include <algorithm>

namespace kx::tool {
namespace {

// The last moment before `now` at which a shift could begin on some day; long ago when there is no shift.
DateTime LastShiftStart(Plant& plant, DateTime now) {
  const Rows starts =
      plant.Run("select distinct START_TIME from T_SFC_INTERVAL where START_TIME is not null");
  DateTime last;
  for (std::size_t i = 0; i < starts.count(); ++i) {
    const DateTime today = CombineDateAndTime(now, starts.at(i, 0).ToDateTime());
    last = std::max(last, today < now ? today : today.AddDays(-1));
  }
  return last;
}

}  // namespace

int IdleShifts::Queue(Plant& plant, kxdata7::Client& component) {
  const DateTime now = ServerTime(component);
  const DateTime last_start = LastShiftStart(plant, now);
  // With a shift until that ends; without one until one could have begun.
  const Rows records = plant.Run(
      "select m.MACHINE_ID, d.MACHINE_DATA_ID, d.DEPT_ID, d.LOCATION_ID, d.GROUP_ID, d.SHIFT_ID, "
      "d.SHIFT_END, "
      "d.START_TIME from T_SFC_MACHINE m inner join T_SFC_MACHINE_DATA d on d.MACHINE_DATA_ID = "
      "m.MACHINE_DATA_ID "
      "where d.SHIFT_END < ? or (d.SHIFT_ID is null and d.START_TIME < ?) order by m.MACHINE_ID",
      {now, last_start});
  int queued = 0;
  for (std::size_t i = 0; i < records.count(); ++i) {
    const auto number = [&](std::size_t column) { return records.at(i, column).ToInt32Or(-1); };
    const Due due{number(1), number(5) == -1 ? last_start : records.at(i, 6).ToDateTimeOr(last_start)};
    const auto [known, is_new] = queued_.try_emplace(number(0), due);
    if (!is_new && known->second == due) continue;
    const kxdata7::Answer answer = component.Append({number(2), number(3), number(4), number(0), -1}, "", 0);
    if (!answer) {
      queued_.erase(known);
      throw ToolError("the end of a shift could not be queued: " + answer.error);
    }
    known->second = due;
    ++queued;
  }
  return queued;
}

}  // namespace kx::tool
