#include "session/host.h"

#include <algorithm>
#include <atomic>
#include <thread>

#include "com/platform.h"

namespace kx {
namespace {

std::atomic<YieldHook> yield_hook = com::DispatchWindowMessages;

}  // namespace

Host& ProcessHost() {
  static Host host{
      .now = [] { return std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now()); },
      .sleep = [](std::chrono::milliseconds time) { std::this_thread::sleep_for(time); },
      .open_engine = OpenEngine,
  };
  return host;
}

void SetYieldHook(YieldHook hook) { yield_hook = hook; }

void RunYieldHook() noexcept {
  const YieldHook hook = yield_hook;
  if (hook == nullptr) return;
  try {
    hook();
  } catch (...) {
    // A hook must not throw; beneath it may be a database engine that knows no exceptions.
  }
}

void WaitBriefly(const Host& host, std::chrono::milliseconds time) {
  constexpr std::chrono::milliseconds kLongestSleep{10};
  RunYieldHook();
  host.sleep(std::min(time, kLongestSleep));
}

}  // namespace kx
