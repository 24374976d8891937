#pragma once

#include <chrono>

namespace kx::tool {

// The wish that the program end in order: TERM or INT, on Windows Ctrl+C, Ctrl+Break, the closing of the
// window or the service control manager. It is caught while the object lives, of which there is one at a
// time, and forgotten with it. A second wish ends the program at once; what comes within kSameWish of the
// first is the first one, since a process and its group are often signalled together.
class StopSignal {
 public:
  enum class Hangup { kStops, kReopens };
  static constexpr std::chrono::milliseconds kSameWish{200};

  explicit StopSignal(Hangup hangup = Hangup::kStops);
  ~StopSignal();
  StopSignal(const StopSignal&) = delete;
  StopSignal& operator=(const StopSignal&) = delete;

  bool requested() const;
  bool reopen_requested() const;
  // Whether HUP came since the last call, where it reopens.
  bool TakeReopen();
  // Returns after `limit`, or earlier: once a stop is asked for, or HUP came. True: a stop is asked for. Any
  // thread may wait.
  bool WaitFor(std::chrono::milliseconds limit) const;

  // What the first signal does.
  static void Request();

#ifndef _WIN32
  // Readable once a stop is asked for, for a poll together with sockets; never read from it.
  int descriptor() const;
#endif
};

}  // namespace kx::tool
