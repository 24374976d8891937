#pragma once

#include <array>
#include <string>
#include <string_view>

#include "inputs/tcp_link.h"

namespace kx::tool {

// Lines from an adapter, which is asked for its heartbeat. A line that the connection broke is dropped, and
// so is what one has beyond kLongestLine.
class AdapterLink final : public TcpLink {
 public:
  using TcpLink::TcpLink;

 private:
  void OnConnected() override;
  void Read();
  void TakePiece(std::string_view piece);
  void TakeLine(Moment arrival);
  void TakePong(std::string_view text);
  void Ping();
  void PingLater();

  static constexpr std::size_t kPieceSize = 16'384;

  std::array<char, kPieceSize> piece_{};
  std::string line_;  // as far as it has come
  bool is_writing_ = false;
  LinkSettings::Milliseconds heartbeat_{};  // 0: the adapter has told none
  boost::asio::steady_timer ping_timer_{context_->io};
};

}  // namespace kx::tool
