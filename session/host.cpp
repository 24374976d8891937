#include "session/host.h"

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

void RunYieldHook() {
  if (const YieldHook hook = yield_hook) hook();
}

}  // namespace kx
