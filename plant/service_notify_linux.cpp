#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "plant/service_notify.h"

namespace kx::tool {

using std::chrono::steady_clock;

ServiceNotify::ServiceNotify() {
  // The name of a file, or one of the kernel's own that stands behind an @.
  if (const char* const name = std::getenv("NOTIFY_SOCKET")) address_ = name;
  if (address_.empty() || address_.size() >= sizeof(sockaddr_un{}.sun_path)) return;
  socket_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (const char* const microseconds = std::getenv("WATCHDOG_USEC")) {
    const long long limit = std::atoll(microseconds);
    watched_ = limit > 0;
    if (watched_) alive_interval_ = std::chrono::milliseconds(limit / 1000 / 2);
  }
}

ServiceNotify::~ServiceNotify() {
  if (socket_ != -1) close(socket_);
}

void ServiceNotify::Ready() { Send("READY=1"); }

void ServiceNotify::Stopping() { Send("STOPPING=1"); }

void ServiceNotify::Status(const std::string& text) {
  if (text == status_) return;
  status_ = text;
  Send("STATUS=" + text);
}

void ServiceNotify::Alive() {
  const auto now = steady_clock::now();
  if (!watched_ || (last_alive_ != steady_clock::time_point() && now - last_alive_ < alive_interval_ / 2))
    return;
  last_alive_ = now;
  Send("WATCHDOG=1");
}

// A manager that does not listen is no failure of the program.
void ServiceNotify::Send(std::string_view message) {
  if (socket_ == -1) return;
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, address_.data(), address_.size());
  if (address_.front() == '@') address.sun_path[0] = '\0';
  const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + address_.size());
  sendto(socket_, message.data(), message.size(), MSG_NOSIGNAL | MSG_DONTWAIT,
         reinterpret_cast<const sockaddr*>(&address), length);
}

}  // namespace kx::tool
