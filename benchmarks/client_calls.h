#pragma once

#include <chrono>
#include <cstdint>

#include "benchmarks/plants.h"

namespace kx::bench {

// A component that is connected to a plant and driven through its interface. Every call must succeed.
class ConnectedComponent {
 public:
  explicit ConnectedComponent(const std::string& connection) { component_.Connect(connection).OrThrow(); }

  // Works in the next event; the time that it took in nanoseconds.
  std::int64_t TimeNext() {
    return Time([&] { component_.Next().OrThrow(); });
  }
  // Queues a good part, or what else is left to be told of a machine.
  std::int64_t TimeAppend() {
    return Time([&] { component_.Append({1, 2, 3, 1, 113}, "1", 0).OrThrow(); });
  }
  // Asks how many events wait.
  std::int64_t TimeCount(LONG& count) {
    return Time([&] { count = component_.Count(); });
  }

 private:
  template <class Call>
  std::int64_t Time(Call call) {
    const auto begin = std::chrono::steady_clock::now();
    call();
    return std::chrono::nanoseconds(std::chrono::steady_clock::now() - begin).count();
  }

  test::Component component_;
};

}  // namespace kx::bench
