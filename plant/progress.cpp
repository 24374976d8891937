#include "plant/progress.h"

#include <iostream>

#include "plant/platform.h"

namespace kx::tool {
namespace {

using std::chrono::duration;
using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

constexpr milliseconds kBetweenBars{200};
constexpr seconds kBetweenLines{10};

std::string TimeLeft(std::int64_t seconds_left) {
  std::string rest = std::to_string(seconds_left % 60) + " s left";
  if (seconds_left < 60) return rest;
  if (seconds_left < 3600) return std::to_string(seconds_left / 60) + " min " + rest;
  return std::to_string(seconds_left / 3600) + " h " + std::to_string(seconds_left / 60 % 60) + " min left";
}

}  // namespace

std::string Grouped(std::int64_t number) {
  std::string text = std::to_string(number);
  const std::size_t first = number < 0 ? 1 : 0;
  for (std::size_t at = text.size(); at > first + 3; at -= 3) text.insert(at - 3, ",");
  return text;
}

Progress::Progress(std::string what, std::int64_t total)
    : Progress(std::move(what), total, std::cerr, IsErrorATerminal(), &steady_clock::now) {}

Progress::Progress(std::string what, std::int64_t total, std::ostream& out, bool is_terminal, Clock clock)
    : what_(std::move(what)),
      total_(total),
      out_(out),
      is_terminal_(is_terminal),
      clock_(std::move(clock)),
      begin_(clock_()),
      next_(begin_ + (is_terminal ? steady_clock::duration(kBetweenBars) : kBetweenLines)) {}

Progress::~Progress() {
  if (shown_ && is_terminal_) out_ << "\r\x1b[K" << std::flush;
}

void Progress::Show(std::int64_t done) {
  const auto now = clock_();
  if (now < next_) return;
  next_ = now + (is_terminal_ ? steady_clock::duration(kBetweenBars) : kBetweenLines);
  shown_ = true;
  if (!is_terminal_) {
    out_ << "kxdata7: " << Text(done, now - begin_) << std::endl;
    return;
  }
  out_ << '\r';
  if (total_ > 0) {
    constexpr std::size_t kWidth = 25;
    const auto filled = static_cast<std::size_t>(done * std::int64_t{kWidth} / total_);
    std::string bar(std::min(filled, kWidth), '=');
    bar.resize(kWidth, ' ');
    out_ << '[' << bar << "] ";
  }
  out_ << Text(done, now - begin_) << "\x1b[K" << std::flush;
}

std::string Progress::Text(std::int64_t done, steady_clock::duration elapsed) const {
  std::string text = Grouped(done);
  if (total_ > 0) text += " of " + Grouped(total_);
  text += " " + what_;
  const double rate = static_cast<double>(done) / duration<double>(elapsed).count();
  if (rate < 1) return text;
  text += ", " + Grouped(static_cast<std::int64_t>(rate)) + "/s";
  if (total_ > done)
    text += ", " + TimeLeft(static_cast<std::int64_t>(static_cast<double>(total_ - done) / rate));
  return text;
}

}  // namespace kx::tool
