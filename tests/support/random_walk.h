#pragma once

#include <gtest/gtest.h>

#include <array>
#include <random>
#include <string>
#include <vector>

#include "database/date_time.h"
#include "tests/support/plant.h"

namespace kx::test {

// One random event of the walk.
struct Step {
  DateTime time;
  int machine;
  int command;
  int time_code;
  std::string param;
};

// Events of every kind on the first `machines` machines from Monday 07:00 on, mostly some minutes apart,
// divided by `pace`.
inline std::vector<Step> RandomWalk(unsigned seed, int length, int machines = 3, int pace = 1) {
  std::mt19937 random(seed);
  const auto pick = [&](std::size_t count) {
    return std::uniform_int_distribution<std::size_t>(0, count - 1)(random);
  };
  constexpr std::array kParams = {"",   "",   "J1", "J2",  "P1",   "O10", "anna", "bert", "D0",  "D1",
                                  "D2", "17", "3",  "2.5", "5.17", "-2",  "0",    "1e1",  "Zoë", "x.99"};
  std::vector<Step> walk;
  DateTime time(2026, 1, 12, 7);
  for (int i = 0; i < length; ++i) {
    // Mostly minutes, sometimes hours, now and then a small step back.
    const auto kind = pick(20);
    const auto seconds = static_cast<std::int64_t>(kind == 0   ? pick(30)
                                                   : kind == 1 ? 3600 * (1 + pick(10))
                                                               : pick(900));
    time = time.AddSeconds(kind == 0 ? -seconds : seconds / pace);
    const int type = static_cast<int>(pick(13));
    walk.push_back({time, 1 + static_cast<int>(pick(static_cast<std::size_t>(machines))),
                    type == 12   ? -1
                    : type == 11 ? 200
                                 : 104 + type,
                    static_cast<int>(pick(type == 11 ? 4 : 2)), kParams[pick(kParams.size())]});
  }
  return walk;
}

// Good and scrapped parts are what the walk's events reported, with the scrap "-2" taken as two good parts
// less.
inline void ExpectReportedCounts(Plant& plant) {
  EXPECT_EQ(plant.Number("select sum(SCRAPPED_COUNT) from T_SFC_MACHINE_DATA"),
            plant.Number("select coalesce(sum(QTY), 0) from T_SFC_SCRAP_PER_MACHINE_DATA"));
  EXPECT_EQ(plant.Number("select sum(GOOD_COUNT) from T_SFC_MACHINE_DATA"),
            plant.Number(
                "select coalesce(sum(case when COMMAND_ID = 113 then cast(PARAM1 as real) when PARAM1 = '-2' "
                "then -2 end), 0) from T_SFC_EVENT where COMMAND_ID in (113, 114)"));
}

}  // namespace kx::test
