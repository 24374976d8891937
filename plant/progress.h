#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string>

namespace kx::tool {

std::string Grouped(std::int64_t number);  // "12,345"

// Shows how far a long work is: on a terminal a bar with count, rate and time left, elsewhere a line every
// ten seconds.
class Progress {
 public:
  using Clock = std::function<std::chrono::steady_clock::time_point()>;

  // On the standard error. `total` 0: nobody knows.
  Progress(std::string what, std::int64_t total);
  Progress(std::string what, std::int64_t total, std::ostream& out, bool is_terminal, Clock clock);
  ~Progress();  // the bar goes
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // So much is done now. Cheap, to be called after every step.
  void Show(std::int64_t done);

 private:
  // "12,345 of 200,000 events, 1,234/s, 2 min 32 s left"
  std::string Text(std::int64_t done, std::chrono::steady_clock::duration elapsed) const;

  const std::string what_;
  const std::int64_t total_;
  std::ostream& out_;
  const bool is_terminal_;
  const Clock clock_;
  const std::chrono::steady_clock::time_point begin_;
  std::chrono::steady_clock::time_point next_;  // when something is shown again
  bool shown_ = false;
};

}  // namespace kx::tool
