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
#include "tests/support/link_servers.h"

namespace kx::tool {
namespace {

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
