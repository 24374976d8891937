// The links to agents, against servers on loopback that misbehave.

#include <gtest/gtest.h>

#include "inputs/tcp_link.h"
#include "tests/support/agent_documents.h"
#include "tests/support/link_servers.h"

namespace kx::tool {
namespace {

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

}  // namespace
}  // namespace kx::tool
