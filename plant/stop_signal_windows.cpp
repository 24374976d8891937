#include <windows.h>

#include <atomic>

#include "plant/stop_signal.h"

namespace kx::tool {
namespace {

std::atomic<bool> stop_requested;
std::atomic<ULONGLONG> requested_at;  // milliseconds
// Stays to the end of the program, since the handler runs on a thread of its own.
HANDLE stop_event = nullptr;

BOOL WINAPI OnStop(DWORD) {
  if (!stop_requested) {
    StopSignal::Request();
    return TRUE;
  }
  const auto same_wish = static_cast<ULONGLONG>(StopSignal::kSameWish.count());
  return GetTickCount64() - requested_at > same_wish ? FALSE : TRUE;  // FALSE: the system ends the program
}

}  // namespace

StopSignal::StopSignal(Hangup) {
  if (stop_event == nullptr) stop_event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  SetConsoleCtrlHandler(OnStop, TRUE);
}

StopSignal::~StopSignal() {
  SetConsoleCtrlHandler(OnStop, FALSE);
  stop_requested = false;
  ResetEvent(stop_event);
}

bool StopSignal::requested() const { return stop_requested; }

bool StopSignal::reopen_requested() const { return false; }

bool StopSignal::TakeReopen() { return false; }

bool StopSignal::WaitFor(std::chrono::milliseconds limit) const {
  WaitForSingleObject(stop_event, static_cast<DWORD>(limit.count()));
  return stop_requested;
}

void StopSignal::Request() {
  requested_at = GetTickCount64();
  stop_requested = true;
  if (stop_event != nullptr) SetEvent(stop_event);
}

}  // namespace kx::tool
