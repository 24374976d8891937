// Links to servers on loopback that do what a test tells them.
#pragma once

#include <gtest/gtest.h>

#include <boost/asio.hpp>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "inputs/links.h"

namespace kx::tool {

namespace net = boost::asio;
using net::ip::tcp;
using std::chrono::milliseconds;

constexpr milliseconds kNever{600'000};

// What a link tells, kept.
struct Heard : LinkOwner {
  void OnOpened() override { ++opened; }
  void OnReceived(std::string_view text, Moment) override { texts.emplace_back(text); }
  void OnLost(const std::string& why) override { lost.push_back(why); }
  std::string NextRequest() override { return request; }

  int opened = 0;
  std::vector<std::string> texts;
  std::vector<std::string> lost;
  std::string request = "current";
};

// A server that sends what it is told to.
class Server {
 public:
  struct Connection {
    explicit Connection(tcp::socket accepted) : socket(std::move(accepted)) {}
    tcp::socket socket;
    std::string received;
    std::array<char, 4096> piece{};
  };

  explicit Server(net::io_context& io) : acceptor_(io, {net::ip::make_address("127.0.0.1"), 0}) { Accept(); }

  std::string address(const std::string& host = "127.0.0.1") const {
    return host + ":" + std::to_string(acceptor_.local_endpoint().port());
  }
  // Sends all of it, however long the other side takes.
  void Send(const std::shared_ptr<Connection>& to, std::string text) {
    const auto kept = std::make_shared<std::string>(std::move(text));
    net::async_write(to->socket, net::buffer(*kept), [to, kept](auto...) {});
  }
  void Send(std::string text) { Send(connections.back(), std::move(text)); }

  // Calls `answer` for every request of an agent's reader, with what it asks for.
  void Answer(std::function<void(const std::shared_ptr<Connection>&, const std::string&)> answer) {
    on_received = [answer](const auto& connection) {
      if (!connection->received.ends_with("\r\n\r\n")) return;
      answer(connection, connection->received.substr(4, connection->received.find(" HTTP/") - 4));
    };
  }
  void SendAnswer(const std::shared_ptr<Connection>& to, const std::string& body,
                  const std::string& type = "text/xml", const std::string& status = "200 OK") {
    Send(to, "HTTP/1.1 " + status + "\r\nContent-Type: " + type +
                 "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body);
  }
  void SendStream(const std::shared_ptr<Connection>& to, const std::vector<std::string>& parts, bool ends) {
    std::string body;
    for (const std::string& part : parts)
      body += "--b\r\nContent-type: text/xml\r\nContent-length: " + std::to_string(part.size()) + "\r\n\r\n" +
              part + "\r\n";
    const auto kept = std::make_shared<std::string>(
        "HTTP/1.1 200 OK\r\nContent-Type: multipart/x-mixed-replace;boundary=b\r\n\r\n" + body);
    net::async_write(to->socket, net::buffer(*kept), [to, kept, ends](auto...) {
      if (ends) to->socket.close();
    });
  }

  std::vector<std::shared_ptr<Connection>> connections;
  std::function<void(const std::shared_ptr<Connection>&)> on_received = [](const auto&) {};

 private:
  void Accept() {
    acceptor_.async_accept([this](auto error, tcp::socket socket) {
      if (error) return;
      connections.push_back(std::make_shared<Connection>(std::move(socket)));
      Read(connections.back());
      Accept();
    });
  }
  void Read(const std::shared_ptr<Connection>& connection) {
    connection->socket.async_read_some(net::buffer(connection->piece),
                                       [this, connection](auto error, std::size_t size) {
                                         if (error) return;
                                         connection->received.append(connection->piece.data(), size);
                                         on_received(connection);
                                         Read(connection);
                                       });
  }

  tcp::acceptor acceptor_;
};

class LinksTest : public testing::Test {
 protected:
  LinksTest() {
    settings.first_pause = settings.longest_pause = milliseconds(1);
    settings.connect_limit = settings.silence = settings.shortest_silence = kNever;
  }

  // Runs the links until something is so; there is a limit for when it never is.
  template <class Condition>
  bool Until(Condition condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!condition() && std::chrono::steady_clock::now() < end) io.run_one_for(milliseconds(20));
    return condition();
  }

  Links& links() {
    if (!links_) links_.emplace(io, settings);
    return *links_;
  }

  net::io_context io;
  LinkSettings settings;
  Heard heard;

 private:
  std::optional<Links> links_;
};

}  // namespace kx::tool
