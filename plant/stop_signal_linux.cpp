#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <ctime>

#include "plant/stop_signal.h"

namespace kx::tool {
namespace {

using std::chrono::milliseconds;

constexpr std::array kSignals = {SIGTERM, SIGINT, SIGHUP};

// What the handler reaches. The descriptors stay open to the end of the program.
std::atomic<bool> stop_requested;
std::atomic<std::int64_t> requested_at;  // milliseconds of a clock that only runs forward
std::atomic<bool> hung_up;
int stop_event = -1;
int reopen_event = -1;
std::array<struct sigaction, kSignals.size()> previous;

std::int64_t Now() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

void Wake(int event) {
  const std::uint64_t one = 1;
  [[maybe_unused]] const auto written = write(event, &one, sizeof one);
}

void OnStop(int signal) {
  const int error = errno;
  if (!stop_requested) {
    StopSignal::Request();
  } else if (Now() - requested_at > StopSignal::kSameWish.count()) {
    std::signal(signal, SIG_DFL);
    raise(signal);  // takes effect when the handler returns
  }
  errno = error;
}

void OnHangup(int) {
  const int error = errno;
  hung_up = true;
  Wake(reopen_event);
  errno = error;
}

}  // namespace

StopSignal::StopSignal(Hangup hangup) {
  if (stop_event == -1) {
    stop_event = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    reopen_event = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
  }
  for (std::size_t i = 0; i < kSignals.size(); ++i) {
    struct sigaction action {};
    const bool reopens = kSignals[i] == SIGHUP && hangup == Hangup::kReopens;
    action.sa_handler = reopens ? OnHangup : OnStop;
    action.sa_flags = SA_RESTART;
    sigaction(kSignals[i], nullptr, &previous[i]);
    // Who starts a program with a signal ignored, as nohup does, means it.
    if (reopens || previous[i].sa_handler != SIG_IGN) sigaction(kSignals[i], &action, nullptr);
  }
}

StopSignal::~StopSignal() {
  for (std::size_t i = 0; i < kSignals.size(); ++i) sigaction(kSignals[i], &previous[i], nullptr);
  stop_requested = false;
  TakeReopen();
  std::uint64_t count = 0;
  [[maybe_unused]] const auto taken = read(stop_event, &count, sizeof count);
}

bool StopSignal::requested() const { return stop_requested; }

bool StopSignal::reopen_requested() const { return hung_up; }

bool StopSignal::TakeReopen() {
  std::uint64_t count = 0;
  [[maybe_unused]] const auto taken = read(reopen_event, &count, sizeof count);
  return hung_up.exchange(false);
}

bool StopSignal::WaitFor(milliseconds limit) const {
  const std::int64_t end = Now() + limit.count();
  std::array<pollfd, 2> events = {{{stop_event, POLLIN, 0}, {reopen_event, POLLIN, 0}}};
  for (std::int64_t left = limit.count(); left >= 0; left = end - Now()) {
    const int ready = poll(events.data(), events.size(), static_cast<int>(left));
    if (ready >= 0 || errno != EINTR) break;
  }
  return stop_requested;
}

void StopSignal::Request() {
  requested_at = Now();
  stop_requested = true;
  Wake(stop_event);
}

int StopSignal::descriptor() const { return stop_event; }

}  // namespace kx::tool
