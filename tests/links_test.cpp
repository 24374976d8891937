// The links to sources, against servers on loopback that misbehave.

#include <gtest/gtest.h>

#include <algorithm>
#include <boost/asio.hpp>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>

#include "inputs/links.h"
#include "inputs/shdr_line.h"
#include "inputs/tcp_link.h"
#include "plant/plant.h"

namespace kx::tool {
namespace {

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

TEST_F(LinksTest, AdapterLinesArriveWhole) {
  Server server(io);
  const auto link = links().OpenAdapter(server.address(), heard);
  ASSERT_TRUE(Until([&] { return !server.connections.empty() && !server.connections[0]->received.empty(); }));
  EXPECT_EQ(server.connections[0]->received, "* PING\n");
  EXPECT_EQ(heard.opened, 1);

  server.Send("a|b\r\n\r\n\nc|");
  ASSERT_TRUE(Until([&] { return heard.texts.size() == 1; }));
  server.Send("d\n");
  ASSERT_TRUE(Until([&] { return heard.texts.size() == 2; }));
  EXPECT_EQ(heard.texts, (std::vector<std::string>{"a|b", "c|d"}));

  // One that is broken off is none: "partcount|12" may have been meant to be 123.
  heard.texts.clear();
  server.Send("t|partcount|12");
  server.connections[0]->socket.shutdown(tcp::socket::shutdown_send);
  ASSERT_TRUE(Until([&] { return server.connections.size() == 2; }));
  ASSERT_EQ(heard.lost.size(), 1u);
  EXPECT_EQ(heard.lost[0], server.address() + " closed the connection");
  server.Send("3\n");
  ASSERT_TRUE(Until([&] { return !heard.texts.empty(); }));
  EXPECT_EQ(heard.opened, 2);
  EXPECT_EQ(heard.texts[0], "3");
}

TEST_F(LinksTest, WhatAnAdapterMaySendIsBounded) {
  Server server(io);
  const auto link = links().OpenAdapter(server.address(), heard);
  ASSERT_TRUE(Until([&] { return !server.connections.empty(); }));
  std::string binary;
  for (int i = 0; i < 4096; ++i) binary += static_cast<char>(i * 7);
  server.Send(binary + "\n" + std::string(20 * kLongestLine, 'x') + "\nafter\n");
  ASSERT_TRUE(Until([&] { return !heard.texts.empty() && heard.texts.back() == "after"; }));
  ASSERT_GE(heard.texts.size(), 3u);
  EXPECT_EQ(heard.texts[heard.texts.size() - 2], std::string(kLongestLine, 'x'));
  EXPECT_TRUE(heard.lost.empty());
}

TEST_F(LinksTest, OneThatSendsALotLeavesTheOthersTheirTurns) {
  Server loud(io), quiet(io);
  Heard other;
  const auto link = links().OpenAdapter(loud.address(), heard);
  const auto other_link = links().OpenAdapter(quiet.address(), other);
  ASSERT_TRUE(Until([&] { return heard.opened == 1 && other.opened == 1; }));
  ASSERT_TRUE(Until([&] { return !loud.connections.empty() && !quiet.connections.empty(); }));
  std::string lines;
  for (int i = 0; i < 100'000; ++i) lines += "2026-01-01T00:00:00Z|partcount|" + std::to_string(i) + "\n";
  loud.Send(std::move(lines));
  ASSERT_TRUE(Until([&] { return !heard.texts.empty(); }));
  quiet.Send("a|b\n");
  ASSERT_TRUE(Until([&] { return !other.texts.empty(); }));
  EXPECT_LT(heard.texts.size(), 50'000u);
  ASSERT_TRUE(Until([&] { return heard.texts.size() == 100'000; }));
  EXPECT_EQ(heard.texts.back(), "2026-01-01T00:00:00Z|partcount|99999");
}

TEST_F(LinksTest, AHeartbeatIsKeptAndItsSilenceNoticed) {
  settings.shortest_ping = milliseconds(20);
  settings.shortest_silence = milliseconds(200);
  Server server(io);
  bool answers = true;
  server.on_received = [&](const auto& connection) {
    // What is no heartbeat changes nothing; 1 ms is as often as is allowed.
    if (answers) server.Send(connection, "* PONG\n* PONG 0\n* PONG -5\n* PONG x\n* PONG 1800001\n* PONG 1\n");
  };
  const auto link = links().OpenAdapter(server.address(), heard);
  const auto pings = [&] { return std::ranges::count(server.connections[0]->received, '\n'); };
  ASSERT_TRUE(Until([&] { return !server.connections.empty() && pings() >= 5; }));
  EXPECT_TRUE(heard.lost.empty());
  EXPECT_TRUE(heard.texts.empty());
  answers = false;
  ASSERT_TRUE(Until([&] { return heard.opened == 2; }));
  EXPECT_EQ(heard.lost[0], "nothing came from " + server.address() + " for 200 ms");
}

TEST_F(LinksTest, AnAdapterWithoutAHeartbeatIsGivenUpAfterASilence) {
  settings.silence = milliseconds(50);
  Server server(io);
  const auto link = links().OpenAdapter(server.address(), heard);
  ASSERT_TRUE(Until([&] { return heard.opened == 2; }));
  EXPECT_EQ(heard.lost[0], "nothing came from " + server.address() + " for 50 ms");
}

TEST_F(LinksTest, ALinkIsTriedUntilItsSourceIsThere) {
  std::optional<Server> server(io);
  const std::string address = server->address();
  const auto port = static_cast<std::uint16_t>(std::stoi(address.substr(address.find(':') + 1)));
  server.reset();
  const auto link = links().OpenAdapter(address, heard);
  ASSERT_TRUE(Until([&] { return heard.lost.size() == 3; }));
  EXPECT_EQ(heard.lost[0], "cannot connect to " + address + ": Connection refused");
  EXPECT_EQ(heard.opened, 0);
  tcp::acceptor late(io, {net::ip::make_address("127.0.0.1"), port});
  ASSERT_TRUE(Until([&] { return heard.opened == 1; }));
}

TEST(RetryPauseTest, GrowsAndSpreads) {
  RetryPause short_ones(milliseconds(500), milliseconds(10'000)), long_ones = short_ones;
  for (const int expected : {500, 1000, 2000, 4000, 5000, 5000}) {
    EXPECT_EQ(short_ones.Next(0).count(), expected);
    EXPECT_EQ(long_ones.Next(1).count(), 2 * expected);
  }
  short_ones.Reset();
  EXPECT_EQ(short_ones.Next(0.5).count(), 750);
}

TEST_F(LinksTest, ANameThatHangsKeepsNobodyWaiting) {
  struct Gate {
    std::mutex mutex;
    std::condition_variable opened;
    bool is_open = false;
    int looked_up = 0;  // the name that is answered once
  };
  const auto gate = std::make_shared<Gate>();
  settings.connect_limit = milliseconds(30);
  settings.look_up = [gate](const std::string& host) -> std::vector<std::string> {
    std::unique_lock lock(gate->mutex);
    if (host == "unknown") throw std::runtime_error("Host not found");
    if (host == "good" && ++gate->looked_up == 1) return {"127.0.0.1"};
    gate->opened.wait(lock, [&] { return gate->is_open; });
    return {"127.0.0.1"};
  };
  Server server(io);
  std::deque<Heard> hang(20);
  std::vector<std::unique_ptr<SourceLink>> all;
  for (std::size_t i = 0; i < hang.size(); ++i)
    all.push_back(links().OpenAdapter(server.address("hangs" + std::to_string(i)), hang[i]));
  Heard numeric, unknown;
  all.push_back(links().OpenAdapter(server.address("good"), heard));
  all.push_back(links().OpenAdapter(server.address(), numeric));
  all.push_back(links().OpenAdapter(server.address("unknown"), unknown));
  ASSERT_TRUE(Until([&] { return heard.opened == 1 && numeric.opened == 1 && !unknown.lost.empty(); }));
  EXPECT_EQ(unknown.lost[0], "the name unknown cannot be looked up: Host not found");
  ASSERT_TRUE(Until([&] { return hang[19].lost.size() >= 2; }));
  EXPECT_EQ(hang[19].lost[0], "the name hangs19 cannot be looked up: no answer within 30 ms");

  // The address that the name had last does when nobody knows better.
  for (const auto& connection : server.connections) connection->socket.close();
  ASSERT_TRUE(Until([&] { return heard.opened == 2; }));
  {
    const std::lock_guard lock(gate->mutex);
    EXPECT_EQ(gate->looked_up, 2);
    gate->is_open = true;
  }
  gate->opened.notify_all();
  ASSERT_TRUE(Until([&] { return hang[19].opened == 1; }));
}

TEST_F(LinksTest, AddressesThatAreNoneAreRefused) {
  for (const char* const address : {"", "lathe", "lathe:", ":7878", "lathe:0", "lathe:65536", "lathe:78x",
                                    "::1:7878", "http://lathe:7878", "a b:7878"})
    EXPECT_THROW((void)links().OpenAdapter(address, heard), ToolError) << address;
}

TEST_F(LinksTest, ALinkEndsWithItsObject) {
  Server server(io);
  auto link = links().OpenAdapter(server.address(), heard);
  ASSERT_TRUE(Until([&] { return !server.connections.empty(); }));
  server.Send("a|b\n");
  link.reset();
  while (io.poll_one() > 0) continue;
  EXPECT_TRUE(heard.texts.empty());
  EXPECT_TRUE(heard.lost.empty());
}

}  // namespace
}  // namespace kx::tool
