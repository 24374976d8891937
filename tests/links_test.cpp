// The links to sources, against servers on loopback that misbehave.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <boost/asio.hpp>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <sstream>
#include <thread>

#include "inputs/links.h"
#include "inputs/machine_reader.h"
#include "inputs/probe.h"
#include "inputs/recorded_input.h"
#include "inputs/tcp_link.h"
#include "plant/plant.h"
#include "tests/support/agent_documents.h"

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
  server.Send(binary + "\n" + std::string(100 * kLongestLine, 'x') + "\nafter\n");
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
  std::deque<Heard> hang(40);  // more than are looked up at a time
  std::vector<std::unique_ptr<SourceLink>> all;
  Heard numeric, unknown;
  all.push_back(links().OpenAdapter(server.address("good"), heard));
  all.push_back(links().OpenAdapter(server.address("unknown"), unknown));
  for (std::size_t i = 0; i < hang.size(); ++i)
    all.push_back(links().OpenAdapter(server.address("hangs" + std::to_string(i)), hang[i]));
  all.push_back(links().OpenAdapter(server.address(), numeric));
  ASSERT_TRUE(Until([&] { return heard.opened == 1 && numeric.opened == 1 && !unknown.lost.empty(); }));
  EXPECT_EQ(unknown.lost[0], "the name unknown cannot be looked up: Host not found");
  ASSERT_TRUE(Until([&] { return hang.back().lost.size() >= 2; }));
  EXPECT_EQ(hang.back().lost[0], "the name hangs39 cannot be looked up: no answer within 30 ms");

  // The address that the name had last does when nobody knows better.
  for (const auto& connection : server.connections) connection->socket.close();
  ASSERT_TRUE(Until([&] { return heard.opened == 2; }));
  {
    const std::lock_guard lock(gate->mutex);
    EXPECT_LE(gate->looked_up, 2);
    gate->is_open = true;
  }
  gate->opened.notify_all();
  ASSERT_TRUE(Until([&] { return hang.back().opened == 1; }));
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

TEST_F(LinksTest, AnAgentIsReadAsAStreamThatGoesOnWhereItEnded) {
  Server server(io);
  MachineOwner owner;
  std::vector<std::string> asked;
  server.Answer([&](const auto& connection, const std::string& target) {
    asked.push_back(target);
    if (asked.size() == 1) {
      server.SendAnswer(connection, PathDocument(1, 11,
                                                 Told(4, "06:00:00", "Execution", "e", "READY") +
                                                     Told(5, "06:00:00", "PartCount", "c", "8")));
    } else if (asked.size() == 2) {
      server.SendStream(connection,
                        {PathDocument(1, 11, ""),  // a heartbeat
                         PathDocument(1, 13,
                                      Told(12, "12:10:05", "Execution", "e", "READY") +
                                          Told(11, "12:10:00", "Execution", "e", "ACTIVE"))},
                        true);
    } else {
      server.SendStream(connection, {PathDocument(1, 14, Told(13, "12:10:06", "PartCount", "c", "9"))},
                        false);
    }
  });
  const auto link = links().OpenAgent("http://" + server.address() + "/Lathe", owner);
  ASSERT_TRUE(Until([&] { return owner.events.ends_with("good <1>\n"); }));
  EXPECT_EQ(owner.events, "12:10:00 cycle start\n12:10:05 cycle end\n12:10:06 good <1>\n");
  EXPECT_EQ(asked, (std::vector<std::string>{
                       "/Lathe/current", "/Lathe/sample?from=11&count=1000&interval=500&heartbeat=10000",
                       "/Lathe/sample?from=13&count=1000&interval=500&heartbeat=10000"}));
  EXPECT_TRUE(owner.opening);
  EXPECT_TRUE(owner.lost.empty());
}

TEST_F(LinksTest, AnAgentWithoutStreamsIsAskedAgainAndAgain) {
  settings.poll_pause = milliseconds(1);
  Server server(io);
  MachineOwner owner;
  int next = 11;
  server.Answer([&](const auto& connection, const std::string& target) {
    if (target == "/current")
      return server.SendAnswer(connection, PathDocument(1, next, Told(4, "06:00:00", "PartCount", "c", "8")));
    EXPECT_TRUE(target.starts_with("/sample?from=" + std::to_string(next) + "&")) << target;
    if (next == 13)  // its memory was shorter than the time between two questions
      return server.SendAnswer(connection, ErrorDocument("OUT_OF_RANGE"), "text/xml", "404 Not Found"),
             void(next = 20);
    ++next;
    server.SendAnswer(
        connection,
        PathDocument(1, next, Told(next - 1, "12:10:00", "PartCount", "c", std::to_string(next))));
  });
  const auto link = links().OpenAgent("http://" + server.address(), owner);
  ASSERT_TRUE(Until([&] { return next >= 25; }));
  EXPECT_TRUE(owner.events.starts_with("12:10:00 good <4>\n12:10:00 good <1>\n")) << owner.events;
  ASSERT_EQ(owner.notices.size(), 1u);
  EXPECT_EQ(owner.notices[0],
            "what the agent told from number 13 on could not be fetched: it is lost, but for what holds now");
}

TEST_F(LinksTest, WhatIsNoDocumentOfAnAgentIsSaidAndTriedAgain) {
  settings.document_limit = milliseconds(300);
  const std::string head = "HTTP/1.1 200 OK\r\nContent-Type: ";
  const std::string stream = head + "multipart/x-mixed-replace; boundary=\"b\"\r\n\r\n";
  struct Case {
    std::string answer;
    bool closes;
    std::string lost;
  };
  const std::string large(20'000, 'x');
  for (const auto& [answer, closes, lost] : std::initializer_list<Case>{
           {head + "text/html\r\n\r\n<html>", false, " answered with text/html in place of a document"},
           {"HTTP/1.1 503 Service Unavailable\r\n\r\n", false, " answered with 503 Service Unavailable"},
           {"* PONG 10000\r\n", false, " sent no answer: bad version"},
           {"HTTP/1.1 200 OK\r\nX: " + large, false, " sent no answer: header limit exceeded"},
           {head + "text/xml\r\nContent-Length: 100\r\n\r\n<", true,
            " closed the connection within a document"},
           {head + "text/xml\r\n\r\n<Document>", false, " sent no whole document for 300 ms"},
           {stream + large, false, ": the stream has no documents"},
           {stream + "--b\r\nContent-Length: 99999999999\r\n\r\n", false,
            ": a document of the stream is too large"},
           {stream, true, " closed the connection within a document"},
       }) {
    Server server(io);
    Heard owner;
    server.Answer([&, sent = answer, ends = closes](const auto& connection, const std::string&) {
      const auto kept = std::make_shared<std::string>(sent);
      net::async_write(connection->socket, net::buffer(*kept), [connection, kept, ends](auto...) {
        if (ends) connection->socket.shutdown(tcp::socket::shutdown_both);
      });
    });
    const auto link = links().OpenAgent("http://" + server.address(), owner);
    ASSERT_TRUE(Until([&] { return owner.lost.size() == 2; })) << lost;
    EXPECT_EQ(owner.lost[0], "the agent at " + server.address() + lost);
    EXPECT_TRUE(owner.texts.empty());
  }
}

TEST_F(LinksTest, AStreamWithoutAnEndIsCut) {
  Server server(io);
  std::function<void(const std::shared_ptr<Server::Connection>&)> send_more = [&](const auto& connection) {
    static const std::string kPiece(1 << 20, 'x');
    net::async_write(connection->socket, net::buffer(kPiece),
                     [&send_more, connection](auto error, std::size_t) {
                       if (!error) send_more(connection);
                     });
  };
  server.Answer([&](const auto& connection, const std::string&) {
    server.Send(connection, "HTTP/1.1 200 OK\r\nContent-Type: text/xml\r\n\r\n");
    if (server.connections.size() == 1) send_more(connection);
  });
  const auto link = links().OpenAgent("http://" + server.address(), heard);
  ASSERT_TRUE(Until([&] { return !heard.lost.empty(); }));
  EXPECT_EQ(heard.lost[0], "the agent at " + server.address() + ": its document does not end");
  EXPECT_TRUE(heard.texts.empty());
  ASSERT_TRUE(Until([&] { return server.connections.size() == 2; }));
}

TEST_F(LinksTest, AnAgentThatFallsSilentIsGivenUp) {
  settings.agent_silence = milliseconds(50);
  Server server(io);
  heard.request = "sample?from=1";
  server.Answer(
      [&](const auto& connection, const std::string&) { server.SendStream(connection, {"<a/>"}, false); });
  const auto link = links().OpenAgent("http://" + server.address(), heard);
  ASSERT_TRUE(Until([&] { return heard.texts.size() == 2; }));
  EXPECT_EQ(heard.lost[0], "nothing came from " + server.address() + " for 50 ms");
}

// One machine's lines make the same events from a recording, through an adapter, and through an agent.
TEST_F(LinksTest, EveryWayInMakesTheSameEvents) {
  struct Line {
    std::string time, element, key, value;
  };
  const Line lines[] = {{"12:00:01", "Program", "program", "BRACKET-7"},
                        {"12:00:01", "Execution", "execution", "READY"},
                        {"12:00:01", "PartCount", "part_count", "4"},
                        {"12:01:00", "Execution", "execution", "ACTIVE"},
                        {"12:05:00", "EmergencyStop", "estop", "TRIGGERED"},
                        {"12:06:00", "EmergencyStop", "estop", "ARMED"},
                        {"12:09:00", "Execution", "execution", "READY"},
                        {"12:09:01", "PartCount", "part_count", "6"},
                        {"12:10:00", "FunctionalMode", "fmode", "SETUP"},
                        {"12:20:00", "FunctionalMode", "fmode", "PRODUCTION"},
                        {"12:21:00", "Program", "program", "BRACKET-8"}};
  std::string shdr, observations;
  int sequence = 1;
  for (const Line& line : lines) {
    shdr += "2026-01-12T" + line.time + "Z|" + line.key + "|" + line.value + "\r\n";
    observations += Told(++sequence, line.time, line.element, line.key, line.value);
  }
  std::istringstream input(shdr);
  std::string recorded;
  for (const RecordedEvent& event : ReadShdr(input).events)
    recorded += event.time.ToText().substr(11) + ' ' +
                EventName(event.event.type_code, event.event.time_code, event.event.command_number) +
                (event.param.empty() ? "\n" : " <" + event.param + ">\n");
  EXPECT_EQ(std::ranges::count(recorded, '\n'), 8) << recorded;

  Server adapter(io), agent(io);
  MachineOwner from_adapter, from_agent;
  from_adapter.is_agent = false;
  agent.Answer([&](const auto& connection, const std::string& target) {
    if (target == "/current") return agent.SendAnswer(connection, PathDocument(1, 2, ""));
    agent.SendStream(connection, {PathDocument(1, sequence + 1, observations)}, false);
  });
  const auto adapter_link = links().OpenAdapter(adapter.address(), from_adapter);
  const auto agent_link = links().OpenAgent("http://" + agent.address() + "/", from_agent);
  ASSERT_TRUE(Until([&] { return !adapter.connections.empty(); }));
  adapter.Send(shdr);
  ASSERT_TRUE(Until([&] {
    return from_adapter.events.size() >= recorded.size() && from_agent.events.size() >= recorded.size();
  }));
  EXPECT_EQ(from_adapter.events, recorded);
  EXPECT_EQ(from_agent.events, recorded);
}

TEST_F(LinksTest, AProbeShowsWhatASourceTellsAndProposesItsMapping) {
  Server adapter(io), agent(io);
  agent.Answer([&](const auto& connection, const std::string&) {
    agent.SendAnswer(connection, PathDocument(1, 2, Told(1, "12:00:00", "Execution", "e", "READY")));
  });
  const auto nobody = tcp::acceptor(io, {net::ip::make_address("127.0.0.1"), 0}).local_endpoint().port();
  adapter.on_received = [&](const auto& connection) {
    adapter.Send(
        connection,
        "* PONG 10000\n2026-01-12T12:00:00Z|avail|AVAILABLE|exec|READY|ProgNo|P1|p_program|A|sub_program|S\n"
        "|PartCountAct|7|PartCountTarget|500|Not-Halt|ARMED|load|3\n|exec|ACTIVE\n|load|4\n");
  };
  std::atomic<bool> done = false;
  std::thread servers([&] {
    while (!done) io.run_for(milliseconds(5));
  });
  const std::vector<InputSource> sources = {{1, "adapter", adapter.address(), {{"part_limit", "20"}}},
                                            {2, "agent", "http://" + agent.address() + "/", {}},
                                            {3, "adapter", "127.0.0.1:" + std::to_string(nobody), {}},
                                            {4, "adapter", "nowhere", {}}};
  const std::vector<Probe> probes = ProbeSources(sources, kNever, [](const std::vector<Probe>& so_far) {
    return so_far[0].received >= 4 && so_far[1].received >= 1 && !so_far[2].lost.empty();
  });
  done = true;
  servers.join();

  std::string keys;
  for (const ProbedKey& key : probes[0].keys) keys += key.key + "=" + key.value + " ";
  EXPECT_EQ(
      keys,
      "avail=AVAILABLE exec=ACTIVE ProgNo=P1 p_program=A sub_program=S PartCountAct=7 PartCountTarget=500 "
      "Not-Halt=ARMED load=4 ");
  EXPECT_EQ(ProposedMapping(sources[0], probes[0]),
            "keys = { execution = \"exec\", program = \"p_program\", parts = \"PartCountAct\", stop = "
            "\"Not-Halt\" }\n"
            "part_limit = 20\n");
  EXPECT_EQ(ProposedMapping(sources[1], probes[1]), "keys = { execution = \"e\" }\n");
  EXPECT_EQ(probes[1].keys.at(0).about, "EXECUTION of Lathe, path p1");
  EXPECT_FALSE(probes[2].opened);
  EXPECT_TRUE(probes[2].lost.ends_with("Connection refused")) << probes[2].lost;
  EXPECT_TRUE(probes[3].lost.starts_with("\"nowhere\" is no host and port")) << probes[3].lost;
}

}  // namespace
}  // namespace kx::tool
