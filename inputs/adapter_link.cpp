#include "inputs/adapter_link.h"

#include <algorithm>
#include <boost/asio/buffer.hpp>
#include <boost/asio/write.hpp>
#include <charconv>

#include "inputs/shdr_line.h"

namespace kx::tool {
namespace {

namespace net = boost::asio;

constexpr std::string_view kPing = "* PING\n";
constexpr std::int64_t kLongestHeartbeat = 1'800'000;  // in milliseconds

}  // namespace

void AdapterLink::OnConnected() {
  line_.clear();
  is_writing_ = false;
  heartbeat_ = {};
  NoteBytes();
  SetSilenceLimit(context_->settings.silence);
  NoteOpened();
  if (is_closed()) return;
  Ping();
  Read();
}

// A piece at a time, so that a source that sends a lot leaves the others their turns.
void AdapterLink::Read() {
  socket_.async_read_some(net::buffer(piece_), Bound([this](Error error, std::size_t size) {
                            if (error) return Fail(ReadFailure(error));
                            NoteBytes();
                            NoteSuccess();
                            TakePiece({piece_.data(), size});
                            if (!is_closed()) Read();
                          }));
}

void AdapterLink::TakePiece(std::string_view piece) {
  const Moment arrival = Now();
  while (!piece.empty() && !is_closed()) {
    const std::size_t end = piece.find('\n');
    const std::string_view part = piece.substr(0, end);
    line_.append(part.substr(0, kLongestLine - std::min(line_.size(), kLongestLine)));
    if (end == std::string_view::npos) return;
    piece.remove_prefix(end + 1);
    TakeLine(arrival);
    line_.clear();
  }
}

void AdapterLink::TakeLine(Moment arrival) {
  constexpr std::string_view kPong = "* PONG";
  std::string_view line = line_;
  if (line.ends_with('\r')) line.remove_suffix(1);
  if (line.starts_with(kPong)) return TakePong(line.substr(kPong.size()));
  if (!line.empty()) owner_.OnReceived(line, arrival);
}

void AdapterLink::TakePong(std::string_view text) {
  text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
  text = text.substr(0, text.find_last_not_of(" \t") + 1);
  std::int64_t told = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), told);
  if (error != std::errc() || end != text.data() + text.size() || told < 1 || told > kLongestHeartbeat)
    return;
  if (heartbeat_.count() == told) return;
  heartbeat_ = LinkSettings::Milliseconds(told);
  SetSilenceLimit(std::max(2 * heartbeat_, context_->settings.shortest_silence));
  PingLater();
}

void AdapterLink::PingLater() {
  ping_timer_.expires_after(std::max(heartbeat_, context_->settings.shortest_ping));
  ping_timer_.async_wait(Bound([this](Error error) {
    if (error) return;
    Ping();
    PingLater();
  }));
}

void AdapterLink::Ping() {
  if (is_writing_) return;  // the adapter has not taken the one before
  is_writing_ = true;
  net::async_write(socket_, net::buffer(kPing), Bound([this](Error, std::size_t) { is_writing_ = false; }));
}

}  // namespace kx::tool
