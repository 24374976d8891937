#include "inputs/name_lookups.h"

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <system_error>
#include <thread>

#include "database/text.h"

namespace kx::tool {
namespace {

namespace net = boost::asio;
using net::ip::tcp;

constexpr std::size_t kMostThreads = 32;

std::vector<std::string> AskSystem(const std::string& host) {
  net::io_context io;
  tcp::resolver resolver(io);
  std::vector<std::string> addresses;
  for (const auto& entry : resolver.resolve(host, "")) {
    std::string address = entry.endpoint().address().to_string();
    if (addresses.empty() || addresses.back() != address) addresses.push_back(std::move(address));
  }
  return addresses;
}

}  // namespace

// What outlives the object, for threads that still wait for an answer.
struct NameLookups::State {
  std::mutex mutex;
  std::condition_variable wake;
  net::io_context* io;  // none: the object is gone
  LookUp look_up;
  std::deque<std::string> hosts;                              // that nobody looks up yet
  std::map<std::string, std::map<const void*, Done>> asking;  // of each host, these included
  std::size_t threads = 0, idle = 0;
};

NameLookups::NameLookups(net::io_context& io, LookUp look_up) : state_(std::make_shared<State>()) {
  state_->io = &io;
  state_->look_up = look_up ? std::move(look_up) : LookUp(AskSystem);
}

void NameLookups::Stop() {
  decltype(state_->asking) forgotten;  // goes when the lock is open again: it may hold what asks
  const std::lock_guard lock(state_->mutex);
  state_->io = nullptr;
  forgotten.swap(state_->asking);
  state_->hosts.clear();
  state_->wake.notify_all();
}

void NameLookups::Find(const std::string& host, const void* asker, Done done) {
  const std::lock_guard lock(state_->mutex);
  auto& askers = state_->asking[host];
  if (askers.empty()) state_->hosts.push_back(host);
  askers[asker] = std::move(done);
  if (state_->idle < state_->hosts.size() && state_->threads < kMostThreads) {
    try {
      std::thread(Work, state_).detach();
      ++state_->threads;
    } catch (const std::system_error&) {
      // Where there is no more thread to be had, those that there are do; without any, who asks asks again.
    }
  }
  state_->wake.notify_one();
}

void NameLookups::Work(const std::shared_ptr<State>& state) {
  std::unique_lock lock(state->mutex);
  while (state->io != nullptr) {
    if (state->hosts.empty()) {
      ++state->idle;
      state->wake.wait(lock);
      --state->idle;
      continue;
    }
    const std::string host = std::move(state->hosts.front());
    state->hosts.pop_front();
    lock.unlock();
    std::string error;
    Addresses addresses;
    try {
      for (const std::string& address : state->look_up(host))
        addresses.push_back(net::ip::make_address(address));
    } catch (const std::exception& failure) {
      error = failure.what();
    }
    lock.lock();
    if (state->io == nullptr) return;
    for (const auto& [asker, done] : state->asking[host])
      net::post(*state->io, [done = done, error, addresses] { done(error, addresses); });
    state->asking.erase(host);
  }
}

}  // namespace kx::tool
