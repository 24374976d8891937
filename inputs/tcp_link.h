#pragma once

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <utility>

#include "inputs/links.h"
#include "inputs/name_lookups.h"

namespace kx::tool {

// What all links of a process share.
struct LinkContext {
  LinkContext(boost::asio::io_context& io_, LinkSettings settings_)
      : io(io_), settings(std::move(settings_)), lookups(io, settings.look_up) {}

  boost::asio::io_context& io;
  const LinkSettings settings;
  NameLookups lookups;
  std::minstd_rand random{std::random_device{}()};
};

struct HostAndPort {
  std::string host;
  std::uint16_t port = 0;

  // Reads "lathe1:7878", "10.0.1.21:7878", "[::1]:7878". A ToolError for anything else.
  static HostAndPort Parse(std::string_view text);
  std::string ToText() const;
};

// How long a link rests before it is tried again. Chance spreads those that broke at the same moment.
class RetryPause {
 public:
  using Milliseconds = LinkSettings::Milliseconds;
  RetryPause(Milliseconds first, Milliseconds longest) : first_(first), longest_(longest) {}

  // `chance` lies between 0 and 1.
  Milliseconds Next(double chance);
  void Reset() { pause_ = first_; }

 private:
  const Milliseconds first_, longest_;
  Milliseconds pause_ = first_;
};

// A connection that is opened, watched, and opened again, whatever is spoken over it.
class TcpLink : public std::enable_shared_from_this<TcpLink> {
 public:
  TcpLink(std::shared_ptr<LinkContext> context, HostAndPort at, LinkOwner& owner);
  virtual ~TcpLink() = default;
  TcpLink(const TcpLink&) = delete;
  TcpLink& operator=(const TcpLink&) = delete;

  void Start();
  // The owner hears nothing more.
  void Close();

 protected:
  using Clock = std::chrono::steady_clock;
  using Error = boost::system::error_code;

  virtual void OnConnected() = 0;

  // The source answers. The owner is told, once until it fails.
  void NoteOpened();
  // The connection is of no use any more: the owner is told, and after a pause it is opened again.
  void Fail(const std::string& why);
  // The same without a word to the owner: the connection has done its work.
  void Reopen(Clock::duration pause);
  void ReopenLater() { Reopen(pause_.Next(std::uniform_real_distribution<>()(context_->random))); }
  // The source does what it is there for: when it breaks next time, the pause is short again.
  void NoteSuccess() { pause_.Reset(); }
  // Bytes came. Without any for `limit` the connection has failed.
  void NoteBytes() { last_byte_ = Clock::now(); }
  void SetSilenceLimit(Clock::duration limit);
  bool is_closed() const { return is_closed_; }

  // A handler of this connection: it is not called when the connection has failed or ended meanwhile.
  template <class Handler>
  auto Bound(Handler handler) {
    return [self = shared_from_this(), number = connection_,
            handler = std::move(handler)](const auto&... arguments) {
      if (self->connection_ == number && !self->is_closed_) handler(arguments...);
    };
  }
  std::string ReadFailure(const Error& error) const;

  const std::shared_ptr<LinkContext> context_;
  const HostAndPort at_;
  LinkOwner& owner_;
  boost::asio::ip::tcp::socket socket_;

 private:
  void LookUp();
  void Connect(const NameLookups::Addresses& addresses);
  void Disconnect();
  void Watch();

  boost::asio::steady_timer timer_, silence_timer_;
  NameLookups::Addresses addresses_;  // that the name had last
  RetryPause pause_;
  Clock::time_point last_byte_;
  Clock::duration silence_limit_{};
  std::uint64_t connection_ = 0;
  bool is_open_ = false;    // as the owner knows
  bool is_closed_ = false;  // for good
};

// Ends what it holds with itself.
class TcpLinkHandle : public SourceLink {
 public:
  explicit TcpLinkHandle(std::shared_ptr<TcpLink> link) : link_(std::move(link)) { link_->Start(); }
  ~TcpLinkHandle() override { link_->Close(); }
  TcpLinkHandle(const TcpLinkHandle&) = delete;
  TcpLinkHandle& operator=(const TcpLinkHandle&) = delete;

 private:
  const std::shared_ptr<TcpLink> link_;
};

// "60 s", "250 ms".
std::string DurationText(std::chrono::steady_clock::duration duration);

}  // namespace kx::tool
