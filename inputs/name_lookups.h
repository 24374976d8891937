#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/address.hpp>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace kx::tool {

// Looks up hosts on threads of its own, so that one that hangs keeps no other waiting: as long as not all of
// a bounded number of threads hang. A lookup cannot be broken off; at the end its thread is left to itself.
class NameLookups {
 public:
  using Addresses = std::vector<boost::asio::ip::address>;
  using Done = std::function<void(const std::string& error, const Addresses& addresses)>;
  using LookUp = std::function<std::vector<std::string>(const std::string& host)>;

  // Without `look_up` the system is asked.
  NameLookups(boost::asio::io_context& io, LookUp look_up);
  ~NameLookups() { Stop(); }
  NameLookups(const NameLookups&) = delete;
  NameLookups& operator=(const NameLookups&) = delete;

  // Calls `done` on the thread that runs `io`, if at all; what the same `asker` asked before is forgotten.
  void Find(const std::string& host, const void* asker, Done done);
  // Nobody is told anything any more.
  void Stop();

 private:
  struct State;
  static void Work(const std::shared_ptr<State>& state);

  std::shared_ptr<State> state_;
};

}  // namespace kx::tool
