#pragma once

#include <array>
#include <chrono>
#include <string>

namespace kx {

// Places beside a file that one process at a time can be in, whichever it is; the operating system keeps
// those in order who wait for one, and a process that dies leaves it. Nothing but the wait for a place can
// fail.
class TurnPlaces {
 public:
  enum Place : unsigned short { kTurn, kNext, kLine };
  static constexpr std::size_t kCount = 3;

  explicit TurnPlaces(std::string path) : path_(std::move(path)) {}
  ~TurnPlaces();
  TurnPlaces(const TurnPlaces&) = delete;
  TurnPlaces& operator=(const TurnPlaces&) = delete;

  enum class Entered { kYes, kNotYet, kNever };
  // Waits for `time` at most. Never: the system has no places for this file or this account.
  Entered Enter(Place place, std::chrono::milliseconds time = {}) noexcept;
  void Leave(Place place) noexcept;

 private:
  bool Open() noexcept;

  const std::string path_;
#ifdef _WIN32
  std::array<void*, kCount> places_{};
#else
  int places_ = -1;
#endif
};

}  // namespace kx
