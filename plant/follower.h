#pragma once

#include <chrono>
#include <cstdint>
#include <ctime>
#include <functional>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>

#include "plant/idle_shifts.h"
#include "plant/processor.h"
#include "plant/service_notify.h"
#include "plant/stop_signal.h"

namespace kx::tool {

struct FollowOptions {
  using Clock = std::chrono::steady_clock;

  // How long an event may fail before it is set aside; nothing: it stays first until somebody acts.
  std::optional<std::chrono::minutes> set_aside_after;

  // The processor's own time: its pauses, and when it says something again.
  std::function<Clock::time_point()> now = &Clock::now;
  std::function<void(const StopSignal&, std::chrono::milliseconds)> rest =
      [](const StopSignal& stop, std::chrono::milliseconds limit) { stop.WaitFor(limit); };
};

// Works a plant off as events come, until a stop is asked for: a processor that stays. What it does is a line
// a minute on `out`, what keeps it from that a line on `errors`.
class Follower {
 public:
  using Clock = FollowOptions::Clock;

  // Reads the options anew each time the plant is opened again.
  Follower(std::function<PlantOptions()> plant, const FollowOptions& options, std::ostream& out,
           std::ostream& errors);

  // Returns when a stop is asked for and the event in flight is done. An exception when the plant cannot be
  // opened at the beginning, and a GuardError when it is this process's no more.
  void Run();

 private:
  // The event that keeps failing.
  struct Failure {
    std::int32_t row = -1;
    Clock::time_point since{}, said{};
    std::string text;         // as it was said last
    Clock::duration pause{};  // before the next attempt
  };

  void Open();
  void Turn();
  void OnApplied();
  void OnFailure();
  // Moves the event that fails aside when it has failed long enough.
  bool SetFailedAside();
  // Tries until the plant is open again or a stop is asked for.
  void OpenAgain(const std::string& why);
  void Wait(Clock::duration pause);
  void Report(bool at_once);
  void Say(std::ostream& stream, const std::string& text);

  const std::function<PlantOptions()> plant_options_;
  const FollowOptions options_;
  std::ostream& out_;
  std::ostream& errors_;
  StopSignal stop_{StopSignal::Hangup::kReopens};
  ServiceNotify service_;

  std::unique_ptr<Processor> processor_;
  IdleShifts idle_shifts_;
  Failure failure_;
  Clock::time_point next_shifts_{}, next_status_{}, next_summary_{};
  std::int64_t applied_ = 0, summed_up_ = 0;
  bool changed_ = true;  // since the last status
  std::time_t last_applied_ = 0;
};

}  // namespace kx::tool
