#pragma once

#include <chrono>
#include <string>
#include <string_view>

namespace kx::tool {

// Tells the service manager that started the program how it is; without one, nothing happens. On Linux it is
// told by datagrams to the socket that NOTIFY_SOCKET names.
class ServiceNotify {
 public:
  ServiceNotify();
  ~ServiceNotify();
  ServiceNotify(const ServiceNotify&) = delete;
  ServiceNotify& operator=(const ServiceNotify&) = delete;

  void Ready();
  void Stopping();
  // One line that the manager shows with the service. The same text twice is sent once.
  void Status(const std::string& text);
  // To be called at least as often as `alive_interval`; the watchdog is told no more often than it needs.
  void Alive();

  // How long the program may be silent at most; a minute where nobody watches.
  std::chrono::milliseconds alive_interval() const { return alive_interval_; }

 private:
  void Send(std::string_view message);

  int socket_ = -1;
  std::string address_;
  std::string status_;
  bool watched_ = false;
  std::chrono::milliseconds alive_interval_ = std::chrono::minutes(1);
  std::chrono::steady_clock::time_point last_alive_{};
};

}  // namespace kx::tool
