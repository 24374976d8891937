#include "inputs/tcp_link.h"

#include <algorithm>
#include <boost/asio/connect.hpp>
#include <boost/asio/error.hpp>
#include <boost/asio/post.hpp>
#include <charconv>

#include "database/text.h"
#include "plant/plant.h"

namespace kx::tool {

namespace net = boost::asio;
using net::ip::tcp;

HostAndPort HostAndPort::Parse(std::string_view text) {
  const std::size_t colon = std::min(text.rfind(':'), text.size());
  std::string_view host = text.substr(0, colon);
  if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
    host = host.substr(1, host.size() - 2);
  } else if (host.find(':') != std::string_view::npos) {
    host = {};
  }
  unsigned port = 0;
  const char* const end = text.data() + text.size();
  const bool has_port = colon + 1 < text.size() &&
                        std::from_chars(text.data() + colon + 1, end, port).ptr == end && port <= 65535;
  if (host.empty() || host.find_first_of(" \t/@") != std::string_view::npos || !has_port || port == 0)
    throw ToolError(
        Concat("\"", text, "\" is no host and port, such as 10.0.1.21:7878, lathe1:7878 or [::1]:7878"));
  return {std::string(host), static_cast<std::uint16_t>(port)};
}

std::string HostAndPort::ToText() const {
  const bool is_v6 = host.find(':') != std::string::npos;
  return Concat(is_v6 ? "[" : "", host, is_v6 ? "]:" : ":", port);
}

std::string DurationText(std::chrono::steady_clock::duration duration) {
  const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(duration).count();
  return milliseconds % 1000 == 0 ? Concat(milliseconds / 1000, " s") : Concat(milliseconds, " ms");
}

RetryPause::Milliseconds RetryPause::Next(double chance) {
  const auto stretched = std::chrono::duration_cast<Milliseconds>(pause_ * (1 + chance));
  pause_ = std::min(pause_ * 2, longest_ / 2);
  return stretched;
}

TcpLink::TcpLink(std::shared_ptr<LinkContext> context, HostAndPort at, LinkOwner& owner)
    : context_(std::move(context)),
      at_(std::move(at)),
      owner_(owner),
      socket_(context_->io),
      timer_(context_->io),
      silence_timer_(context_->io),
      pause_(context_->settings.first_pause, context_->settings.longest_pause) {}

void TcpLink::Start() {
  net::post(context_->io, Bound([this] { LookUp(); }));
}

void TcpLink::Close() {
  is_closed_ = true;
  Disconnect();
}

void TcpLink::Disconnect() {
  ++connection_;
  Error ignored;
  socket_.close(ignored);
  timer_.cancel();
  silence_timer_.cancel();
  silence_limit_ = {};
}

void TcpLink::NoteOpened() {
  if (is_open_) return;
  is_open_ = true;
  owner_.OnOpened();
}

void TcpLink::Fail(const std::string& why) {
  Disconnect();
  is_open_ = false;
  owner_.OnLost(why);
  if (!is_closed_) ReopenLater();
}

void TcpLink::Reopen(Clock::duration pause) {
  Disconnect();
  timer_.expires_after(pause);
  timer_.async_wait(Bound([this](Error) { LookUp(); }));
}

void TcpLink::LookUp() {
  Error no_address;
  const net::ip::address address = net::ip::make_address(at_.host, no_address);
  if (!no_address) return Connect({address});
  const auto fall_back = [this](const std::string& why) {
    if (addresses_.empty()) return Fail(Concat("the name ", at_.host, " cannot be looked up: ", why));
    Connect(addresses_);
  };
  timer_.expires_after(context_->settings.connect_limit);
  timer_.async_wait(Bound([this, fall_back](Error error) {
    if (!error) fall_back("no answer within " + DurationText(context_->settings.connect_limit));
  }));
  context_->lookups.Find(
      at_.host, this,
      Bound([this, fall_back](const std::string& error, const NameLookups::Addresses& addresses) {
        if (addresses.empty()) return fall_back(error);
        addresses_ = addresses;
        Connect(addresses);
      }));
}

void TcpLink::Connect(const NameLookups::Addresses& addresses) {
  ++connection_;  // a lookup that is answered later is of no use
  timer_.expires_after(context_->settings.connect_limit);
  timer_.async_wait(Bound([this](Error error) {
    if (error) return;
    Fail(Concat("cannot connect to ", at_.ToText(), ": no answer within ",
                DurationText(context_->settings.connect_limit)));
  }));
  std::vector<tcp::endpoint> endpoints;
  for (const auto& address : addresses) endpoints.emplace_back(address, at_.port);
  net::async_connect(socket_, endpoints, Bound([this](Error error, const auto&) {
                       timer_.cancel();
                       if (error)
                         return Fail(Concat("cannot connect to ", at_.ToText(), ": ", error.message()));
                       socket_.set_option(tcp::no_delay(true), error);
                       socket_.set_option(net::socket_base::keep_alive(true), error);
                       OnConnected();
                     }));
}

void TcpLink::SetSilenceLimit(Clock::duration limit) {
  const bool is_sooner = silence_limit_ == Clock::duration() || limit < silence_limit_;
  silence_limit_ = limit;
  if (is_sooner) Watch();
}

void TcpLink::Watch() {
  silence_timer_.expires_at(last_byte_ + silence_limit_);
  silence_timer_.async_wait(Bound([this](Error error) {
    if (error) return;
    if (Clock::now() < last_byte_ + silence_limit_) return Watch();
    Fail(Concat("nothing came from ", at_.ToText(), " for ", DurationText(silence_limit_)));
  }));
}

std::string TcpLink::ReadFailure(const Error& error) const {
  if (error == net::error::eof) return at_.ToText() + " closed the connection";
  return Concat("the connection to ", at_.ToText(), " broke: ", error.message());
}

}  // namespace kx::tool
