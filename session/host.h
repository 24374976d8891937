#pragma once

#include <chrono>
#include <functional>

#include "database/engine.h"

namespace kx {

using YieldHook = void (*)();

// What the component takes from the process it lives in. Tests replace members to run without waiting and to
// put a failing engine under the component; nothing changes it while an object is in use but the yield hook.
struct Host {
  std::function<std::chrono::sys_seconds()> now;         // the clock that pauses are counted on
  std::function<void(std::chrono::milliseconds)> sleep;  // gives up the processor
  EngineOpener open_engine;
};

// The process's host, with the system clock, a real sleep and the real engines unless a test changed it.
Host& ProcessHost();

// The function run while a pause lasts, so that the hosting process stays responsive; null for none. At first
// it dispatches the window messages of the calling thread. Any thread may set it at any time.
void SetYieldHook(YieldHook hook);
void RunYieldHook() noexcept;  // what a hook throws ends there

// Every wait of the component comes through here: runs the yield hook, then sleeps for `time`, but for 10 ms
// at most.
void WaitBriefly(const Host& host, std::chrono::milliseconds time);

}  // namespace kx
