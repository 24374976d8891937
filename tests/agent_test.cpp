// What an agent's documents say, and what a machine's reader makes of it.

#include <gtest/gtest.h>

#include <algorithm>

#include "inputs/multipart.h"
#include "plant/plant.h"
#include "tests/support/agent_documents.h"

namespace kx::tool {
namespace {

TEST(MultipartTest, PartsComeWholeHoweverTheyAreCut) {
  const std::string body =
      "\r\n--b\r\nContent-type: text/xml\r\nContent-length: 9\r\n\r\n<a>--b</a"
      "\r\n--b\r\nX: y\r\n\r\nno length"
      "\r\n--b\nContent-Length: 0\n\n--b\r\n\r\nlast\r\n--b--";
  for (const std::size_t size : {std::size_t{1}, std::size_t{2}, std::size_t{7}, body.size()}) {
    auto reader = MultipartReader::ForType("multipart/x-mixed-replace; Boundary=\"b\"; charset=x");
    ASSERT_TRUE(reader);
    std::string parts;
    for (std::size_t at = 0; at < body.size(); at += size) {
      reader->Add(std::string_view(body).substr(at, size));
      while (const auto part = reader->Next()) parts += "[" + *part + "]";
    }
    EXPECT_EQ(parts, "[<a>--b</a][no length\r\n][][last\r\n]") << size;
  }
  for (const char* const type : {"text/xml", "multipart/mixed", "multipart/mixed; boundary="})
    EXPECT_FALSE(MultipartReader::ForType(type)) << type;
}

TEST(AgentReaderTest, TakesItemsByTheirTypesInTheOrderOfTheirSequence) {
  MachineOwner owner;
  const std::string opening =
      Component("Controller", "c", Told(2, "05:00:00", "EmergencyStop", "es", "ARMED")) +
      Component("Path", "p1",
                Told(3, "05:00:00", "x:Execution", "e", "READY") + Told(4, "05:00:00", "Program", "p", "A") +
                    Told(5, "05:00:00", "Program", "sub", "SUB", "subType=\"ACTIVE\"") +
                    Told(6, "05:00:00", "PartCount", "target", "500", "subType=\"TARGET\"") +
                    Told(7, "05:00:00", "PartCount", "all", "10", "subType=\"ALL\"") +
                    Told(8, "05:00:00", "PartCount", "bad", "1", "subType=\"BAD\"")) +
      Component(
          "Path", "p2",
          Told(9, "05:00:00", "Execution", "e2", "ACTIVE") + Told(10, "05:00:00", "PartCount", "all2", "3"));
  // Nothing was known: what holds is so from now on.
  EXPECT_EQ(
      owner.Read(Document(
          7, 1, 20,
          Device("Agent", Component("Agent", "a", Told(1, "04:00:00", "Availability", "av", "AVAILABLE"))) +
              Device("Lathe", opening) + Device("Mill", opening))),
      "12:00:00 part start <A>\n");
  EXPECT_EQ(owner.notices,
            (std::vector<std::string>{"the data item e2 is left out, since e was there first; the machine's "
                                      "mapping can name the one that counts",
                                      "the data item all2 is left out, since all was there first; the "
                                      "machine's mapping can name the one that counts",
                                      "the device \"Mill\" is left out, since Lathe was there first; the "
                                      "machine's mapping can name the device that counts"}));
  // Times do not rise, numbers do; what was told before is not told again.
  EXPECT_EQ(
      owner.Read(Document(
          7, 1, 26,
          Device("Lathe", Component("Path", "p1",
                                    Told(25, "12:05:00.9", "Execution", "e", "unavailable") +
                                        Told(24, "12:04:59", "PartCount", "all", "12", "subType=\"ALL\"") +
                                        Told(21, "12:01:00", "Execution", "e", "ACTIVE") +
                                        Told(22, "12:00:30", "PartCount", "bad", "2", "subType=\"BAD\"") +
                                        Told(19, "12:01:00", "Program", "p", "B") +
                                        Told(23, "12:02:00", "PartCount", "all", "many"))))),
      "12:01:00 cycle start\n12:01:00 scrap <1>\n12:04:59 good <2>\n12:05:00 cycle end\n");
  EXPECT_EQ(owner.notices.back(), "\"many\" is no part count");
}

TEST(AgentReaderTest, AMappingNamesDataItemsAndTheDevice) {
  MachineOwner owner("device=uuid-Mill\nexecution=e2\nparts=-\nalarm=SYSTEM\nalarm_downtime=01");
  const auto components = [](int sequence, const std::string& execution, const std::string& condition) {
    return Device("Lathe", Component("Path", "p1", Told(sequence, "12:10:00", "Execution", "e2", "READY"))) +
           Device("Mill",
                  Component("Path", "p1",
                            Told(sequence, "12:10:00", "Execution", "e1", "ACTIVE") +
                                Told(sequence, "12:10:00", "PartCount", "c", std::to_string(sequence))) +
                      Component("Path", "p2", Told(sequence + 1, "12:10:00", "Execution", "e2", execution),
                                Told(sequence + 2, "12:11:00", condition, "s", "oil",
                                     "type=\"SYSTEM\" nativeCode=\"17\"")));
  };
  EXPECT_EQ(owner.Read(Document(7, 1, 5, components(1, "READY", "Normal"))), "");
  EXPECT_EQ(owner.Read(Document(7, 1, 8, components(5, "ACTIVE", "Fault"))),
            "12:10:00 cycle start\n12:11:00 machine downtime start <01>\n");
  EXPECT_EQ(owner.Read(Document(7, 1, 11, components(8, "ACTIVE", "Normal"))),
            "12:11:00 machine downtime end\n");
}

// Whatever a source sends can be kept in every plant, and goes on after a restart.
TEST(MachineReaderTest, TextsOfSourcesAreMadePlain) {
  const auto read = [](MachineOwner& owner, const std::string& line) {
    owner.events.clear();
    owner.Take(owner.reader.Read(line, MachineOwner::DateTimeMoment("2026-01-12T12:00:00")));
    return owner.events;
  };
  const char* const mapping = "alarm=alarm\nalarm_downtime=01";
  MachineOwner owner(mapping);
  EXPECT_EQ(read(owner, std::string("|program|W\xE4lle\x01") + '\0' + "7|execution|READY"),
            "12:00:00 part start <W\uFFFDlle  7>\n");
  EXPECT_EQ(read(owner, "|alarm|FAULT|A=1|1|HIGH|oil"), "12:00:00 machine downtime start <01>\n");
  MachineOwner again(mapping);
  again.reader.Load(ParseNamedValues(NamedValuesText(owner.reader.Save())));
  EXPECT_EQ(read(again, "|alarm|NORMAL|A=1|||"), "12:00:00 machine downtime end\n");
}

TEST(AgentReaderTest, GoesOnWhereItStoodAndSaysWhatWasLost) {
  MachineOwner before;
  before.Read(PathDocument(
      1, 11, Told(4, "06:00:00", "Execution", "e", "ACTIVE") + Told(5, "06:00:00", "PartCount", "c", "8")));
  EXPECT_EQ(before.Read(PathDocument(1, 12, Told(11, "12:00:10", "PartCount", "c", "9"))),
            "12:00:10 good <1>\n");
  MachineOwner owner;
  owner.reader.Load(before.reader.Save());
  EXPECT_EQ(owner.NextRequest(), "sample?from=12&count=1000&interval=500&heartbeat=10000");
  EXPECT_EQ(owner.Read(PathDocument(1, 12, Told(11, "12:00:10", "PartCount", "c", "9"))), "");

  // The agent no longer has what comes next: what holds now is compared with what was known.
  EXPECT_EQ(owner.Read(ErrorDocument("OUT_OF_RANGE")), "");
  EXPECT_EQ(owner.NextRequest(), "current");
  EXPECT_EQ(owner.Read(PathDocument(512, 700,
                                    Told(600, "12:30:00", "Execution", "e", "READY") +
                                        Told(601, "12:31:00", "PartCount", "c", "11"))),
            "12:30:00 cycle end\n12:31:00 good <2>\n");
  EXPECT_EQ(owner.notices.back(),
            "500 observations, from number 12 on, were gone from the agent's memory before they were "
            "fetched: they are "
            "lost, but for what holds now");

  // It has started again: its numbers begin anew. The times of what holds may lie before what is known.
  const std::string restarted = Document(
      8, 1, 5, Device("Lathe", Component("Path", "p1", Told(2, "11:00:00", "Execution", "e", "ACTIVE"))));
  EXPECT_EQ(owner.Read(restarted), "");
  EXPECT_EQ(owner.NextRequest(), "current");
  EXPECT_EQ(owner.Read(restarted), "12:31:00 cycle start\n");
  EXPECT_EQ(owner.NextRequest().substr(0, 13), "sample?from=5");
  EXPECT_EQ(owner.notices.size(), 2u);
}

// An agent cuts what it tells by number; a moment that it cuts is taken as one all the same.
TEST(AgentReaderTest, TakesWhatHappenedAtOneMomentTogether) {
  const auto document = [](int next, const std::string& events) {
    return Document(7, 1, next, Device("Lathe", Component("Path", "p1", events)), 14);
  };
  const std::string known = Told(1, "05:00:00", "Execution", "e", "READY") +
                            Told(2, "05:00:00", "Program", "p", "A") +
                            Told(3, "05:00:00", "PartCount", "c", "0");
  const std::string first = Told(11, "12:01:00", "Execution", "e", "ACTIVE");
  const std::string begun = Told(12, "12:05:00", "Program", "p", "B");
  const std::string rest =
      Told(13, "12:05:00", "PartCount", "c", "1") + Told(14, "12:05:00", "Execution", "e", "READY");
  const std::string expected = "12:05:00 cycle end\n12:05:00 good <1>\n12:05:00 part start <B>\n";
  MachineOwner owner;
  owner.Read(document(11, known));
  EXPECT_EQ(owner.Read(document(13, first + begun)), "12:01:00 cycle start\n");
  EXPECT_EQ(owner.NextRequest().substr(0, 15), "sample?from=12&");
  MachineOwner again;
  again.reader.Load(owner.reader.Save());
  EXPECT_EQ(owner.Read(document(15, rest)), expected);          // the stream goes on
  EXPECT_EQ(again.Read(document(15, begun + rest)), expected);  // a new one
  // More at one moment than a document holds is not waited for.
  MachineOwner crowded;
  crowded.Read(document(11, known));
  EXPECT_EQ(crowded.Read(document(13, begun)), "12:05:00 part start <B>\n");
}

TEST(AgentReaderTest, WhatIsNoDocumentIsRefusedInClearWords) {
  std::string nested, bomb = "<!DOCTYPE d [<!ENTITY a \"aaaaaaaaaa\">";
  for (int i = 0; i < 200'000; ++i) nested += "<a>";
  for (char c = 'b'; c < 'z'; ++c)
    bomb += std::string("<!ENTITY ") + c + " \"" + std::string(10, static_cast<char>(c - 1)) + "\">";
  bomb += "]><d>&y;&y;</d>";
  const std::pair<std::string, std::string> cases[] = {
      {"", "what the agent sent is no document of an agent: No document element found"},
      {"no XML",
       "what the agent sent is no document of an agent: No document element found; it begins with no XML"},
      {" <!DOCTYPE html><html><body>Hello",
       "the agent answered with a page for people (HTML), not with a document"},
      {"<a><b>",
       "what the agent sent is no document of an agent: Start-end tags mismatch; it begins with <a><b>"},
      {bomb,
       "what the agent sent is no document of an agent: streams or the next sequence are missing; it begins "
       "with " +
           bomb.substr(0, 60)},
      {nested, "what the agent sent is no document of an agent: Start-end tags mismatch; it begins with " +
                   nested.substr(0, 60)},
      {std::string(kLargestDocument + 1, ' '), "the agent's document is too large"},
      {[] {
         std::string many;
         for (int i = 0; i < 3'000'001; ++i) many += '<';
         return many;
       }(),
       "the agent's document is too large"},
      {ErrorDocument("NO_DEVICE"), "the agent answered with NO_DEVICE: no such thing"}};
  MachineOwner owner;
  for (const auto& [document, expected] : cases) {
    std::string error;
    try {
      owner.Read(document);
    } catch (const ToolError& refused) {
      error = refused.what();
    }
    EXPECT_EQ(error, expected);
    EXPECT_EQ(owner.NextRequest(), "current");
  }
  // One that fails each time does not hold up what comes behind it.
  owner.Read(PathDocument(1, 11, Told(4, "06:00:00", "Execution", "e", "READY")));
  for (int i = 0; i < 3; ++i) {
    EXPECT_NE(owner.NextRequest(), "current");
    EXPECT_THROW(owner.Read("<a>"), ToolError);
  }
  EXPECT_EQ(owner.NextRequest(), "current");
}

TEST(AgentReaderTest, TakesAsManyObservationsAsAnAgentCanHave) {
  MachineOwner owner;
  owner.Read(PathDocument(1, 1, Told(0, "06:00:00", "PartCount", "c", "0")));
  std::string events;
  for (int i = 1; i <= 100'000; ++i) events += Told(i, "12:01:00", "PartCount", "c", std::to_string(i));
  const std::string made = owner.Read(PathDocument(1, 100'001, events));
  EXPECT_EQ(std::ranges::count(made, '\n'), 100'000);
}

}  // namespace
}  // namespace kx::tool
