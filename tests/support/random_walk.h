#pragma once

#include <array>
#include <random>
#include <string>
#include <vector>

#include "database/date_time.h"

namespace kx::test {

// One random event of the walk.
struct Step {
  DateTime time;
  int machine;
  int command;
  int time_code;
  std::string param;
};

// Events of every kind on three machines from Monday 07:00 on.
inline std::vector<Step> RandomWalk(unsigned seed, int length) {
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
    time = time.AddSeconds(kind == 0   ? -static_cast<std::int64_t>(pick(30))
                           : kind == 1 ? static_cast<std::int64_t>(3600 * (1 + pick(10)))
                                       : static_cast<std::int64_t>(pick(900)));
    const int type = static_cast<int>(pick(13));
    walk.push_back({time, 1 + static_cast<int>(pick(3)),
                    type == 12   ? -1
                    : type == 11 ? 200
                                 : 104 + type,
                    static_cast<int>(pick(type == 11 ? 4 : 2)), kParams[pick(kParams.size())]});
  }
  return walk;
}

}  // namespace kx::test
