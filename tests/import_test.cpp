// What the tool makes of recorded input, and what it lets into the queue.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <time.h>

#include <algorithm>
#include <sstream>

#include "database/sql_script.h"
#include "inputs/recorded_input.h"
#include "plant/plant.h"

namespace kx::tool {
namespace {

std::string Describe(const Recording& recording) {
  std::string text;
  for (const RecordedEvent& event : recording.events) {
    text += std::to_string(event.line) + ' ' + event.time.ToText().substr(11) + ' ' +
            EventName(event.event.type_code, event.event.time_code, event.event.command_number);
    if (event.machine) text += " @" + std::to_string(*event.machine);
    text += event.param.empty() ? "\n" : " <" + event.param + ">\n";
  }
  for (const BadLine& bad : recording.bad_lines)
    text += std::to_string(bad.line) + " bad: " + bad.reason + '\n';
  return text;
}

std::string Csv(const std::string& text) {
  std::istringstream input(text);
  return Describe(ReadCsv(input));
}

std::string Shdr(const std::string& text, const char* mapping = "") {
  std::istringstream input(text);
  ShdrOptions options;
  options.mapping = Mapping::Parse(mapping);
  return Describe(ReadShdr(input, options));
}

TEST(CsvInput, ReadsColumnsInAnyOrderWithQuotesCommentsAndEitherLineEnd) {
  EXPECT_EQ(Csv("\xEF\xBB\xBFmachine,event,param,time\r\n"
                "# a remark, with a comma\n"
                "\n"
                "3,part start,\"P \"\"A\"\", 7\",2026-01-12 06:00:00\r\n"
                ",scrap,5.17,2026-01-12T06:00:01.999\n"
                "4,custom 12 start,,2026-01-12 06:01"),
            "4 06:00:00 part start @3 <P \"A\", 7>\n"
            "5 06:00:01 scrap <5.17>\n"
            "6 06:01:00 custom 12 start @4\n");
}

TEST(CsvInput, ReportsBadLinesAndGoesOn) {
  EXPECT_EQ(Csv("time,event,machine\n"
                "2026-02-30 06:00:00,good,1\n"
                "2026-01-12 06:00:00,\"good,1\n"
                "2026-01-12 06:00:00,goods,1\n"
                "2026-01-12 06:00:00,cycle,1\n"
                "2026-01-12 06:00:00,good,one\n"
                "2026-01-12 06:00:00,good,1,2\n"
                "2026-01-12 06:00:00\n"
                "2026-01-12 06:00:00,good\n"),
            "9 06:00:00 good\n"
            "2 bad: \"2026-02-30 06:00:00\" is no date and time\n"
            "3 bad: a quote is not closed\n"
            "4 bad: there is no event \"goods\"; did you mean \"good\"?\n"
            "5 bad: there is no event \"cycle\"\n"
            "6 bad: \"one\" is no machine number\n"
            "7 bad: there are more fields than columns\n"
            "8 bad: there is no event \"\"\n");
}

TEST(CsvInput, NeedsAFirstLineThatNamesTheColumns) {
  for (const char* head : {"", "2026-01-12 06:00:00,good\n", "time,param\n", "time,event,time\n"})
    EXPECT_THROW(Csv(head + std::string("2026-01-12 06:00:00,good,1\n")), ToolError) << head;
}

TEST(ShdrInput, TurnsChangesIntoEvents) {
  EXPECT_EQ(Shdr("* PONG 10000\n"
                 "2026-01-12T06:00:00.1|pexecution|ACTIVE|load|12\n"
                 "2026-01-12T06:00:01.9|Xload|13|pexecution|active\n"
                 "2026-01-12T06:01:00|pexecution|READY|part_count|3|target_part_count|9\n"
                 "2026-01-12T06:01:01|part_count|5|subprogram|S\n"
                 "2026-01-12T06:01:02|part_count|0:DAY|estop|ARMED\n"
                 "2026-01-12T06:01:03|part_count|1|estop|TRIGGERED\n"
                 "2026-01-12T06:01:04|estop|ARMED\n"
                 "2026-01-12T06:01:05|program|Unavailable\n"
                 "2026-01-12T06:01:06|program|A\n"
                 "2026-01-12T06:01:07|program|A|fmode|SETUP\n"
                 "2026-01-12T06:01:08|fmode|TEARDOWN\n"
                 "2026-01-12T06:01:09|part_count|599999\n"
                 "2026-01-12T06:01:10|part_count|1\n"
                 "2026-01-12T06:01:11|part_count|2\n"),
            "2 06:00:00 cycle start\n"
            "4 06:01:00 cycle end\n"
            "5 06:01:01 good <2>\n"
            "7 06:01:03 good <1>\n"
            "7 06:01:03 machine downtime start\n"
            "8 06:01:04 machine downtime end\n"
            "10 06:01:06 part start <A>\n"
            "11 06:01:07 setup start\n"
            "12 06:01:08 setup end\n"
            "12 06:01:08 teardown start\n"
            "15 06:01:11 good <1>\n");
}

// A part must start before the cycle that makes it, and a count belongs to the part before, unless it moves
// with the program and no cycle ran.
TEST(ShdrInput, OrdersWhatOneLineTells) {
  EXPECT_EQ(Shdr("2026-01-12T06:00:00|partcount|0|execution|READY\n"
                 "2026-01-12T06:00:01|execution|ACTIVE|program|A\n"
                 "2026-01-12T06:00:02|program|B|partcount|1|execution|STOPPED\n"
                 "2026-01-12T06:00:03|program|C|partcount|7\n"),
            "2 06:00:01 part start <A>\n"
            "2 06:00:01 cycle start\n"
            "3 06:00:02 cycle end\n"
            "3 06:00:02 good <1>\n"
            "3 06:00:02 part start <B>\n"
            "4 06:00:03 part start <C>\n");
}

TEST(ShdrInput, TakesStartingValuesFromAnOpeningLineAndComparesLaterOnes) {
  EXPECT_EQ(
      Shdr("2026-01-12T06:00:00|avail|AVAILABLE|execution|ACTIVE|program|A|partcount|7|estop|TRIGGERED\n"
           "2026-01-12T06:00:01|partcount|8|execution|READY\n"
           "2026-01-12T06:00:02|avail|AVAILABLE|program|A|partcount|10\n"
           "2026-01-12T06:00:03|estop|ARMED|execution|ACTIVE\n"
           "2026-01-12T06:00:04|avail|UNAVAILABLE|execution|unavailable\n"),
      "1 06:00:00 part start <A>\n"
      "2 06:00:01 cycle end\n"
      "2 06:00:01 good <1>\n"
      "3 06:00:02 good <2>\n"
      "4 06:00:03 machine downtime end\n"
      "4 06:00:03 cycle start\n"
      "5 06:00:04 cycle end\n");
}

TEST(ShdrInput, GoesOnAfterAPauseAsTheMappingSays) {
  const std::string pauses =
      "2026-01-12T06:00:00|program|A|execution|ACTIVE\n"
      "2026-01-12T06:00:01|execution|FEED_HOLD\n"
      "2026-01-12T06:00:02|execution|ACTIVE\n"
      "2026-01-12T06:00:03|execution|INTERRUPTED\n"
      "2026-01-12T06:00:04|program|B\n"
      "2026-01-12T06:00:05|execution|ACTIVE\n";
  EXPECT_EQ(Shdr(pauses),
            "1 06:00:00 part start <A>\n"
            "1 06:00:00 cycle start\n"
            "5 06:00:04 cycle end\n"
            "5 06:00:04 part start <B>\n"
            "6 06:00:05 cycle start\n");
  EXPECT_EQ(Shdr(pauses, "pause_ends_cycle=yes"),
            "1 06:00:00 part start <A>\n"
            "1 06:00:00 cycle start\n"
            "2 06:00:01 cycle end\n"
            "3 06:00:02 cycle start\n"
            "4 06:00:03 cycle end\n"
            "5 06:00:04 part start <B>\n"
            "6 06:00:05 cycle start\n");
}

TEST(ShdrInput, TakesKeysThatTheMappingNames) {
  EXPECT_EQ(
      Shdr("2026-01-12T06:00:00|M1:exec|READY|M1:Act|1|M1:Bad|0|M1:mode|AUTO|M1:alm|NORMAL||||\n"
           "2026-01-12T06:00:01|M1:exec|ACTIVE|M2:exec|READY|M1:program|P\n"
           "2026-01-12T06:00:02|M1:Act|2|M1:Bad|3|M1:fmode|MAINTENANCE\n"
           "2026-01-12T06:00:03|M1:alm|FAULT|7|1|HIGH|Oil|M1:fmode|PRODUCTION\n"
           "2026-01-12T06:00:04|M1:alm|NORMAL|7|||\n",
           "execution=exec\nparts=Act\nbad_parts=Bad\nalarm=alm\nprogram=-\ndevice=M1\nmaintenance=02\n"),
      "2 06:00:01 cycle start\n"
      "3 06:00:02 good <1>\n"
      "3 06:00:02 scrap <3>\n"
      "3 06:00:02 machine downtime start <02>\n"
      "5 06:00:04 machine downtime end\n");
  for (const char* wrong : {"part_limit=0", "times=local", "pause_ends_cycle=1", "executoin=x"})
    EXPECT_THROW(Mapping::Parse(wrong), ToolError) << wrong;
}

// What an item with several fields holds is no key, and two paths or devices are not mixed.
TEST(ShdrInput, NeverTakesAKeyFromAWrongPlace) {
  EXPECT_EQ(Shdr("2026-01-12T06:00:00|p1execution|READY|p1partcount|0\n"
                 "2026-01-12T06:00:01|cond|FAULT|p1partcount|1|HIGH|text|p1partcount|2\n"
                 "2026-01-12T06:00:02|message|p1execution|ACTIVE\n"
                 "2026-01-12T06:00:03|message|code|text|p1execution|ACTIVE\n"
                 "2026-01-12T06:00:04|note|\"a \\| b|p1partcount|3\n"
                 "2026-01-12T06:00:05|note|\"a \\| b\"|p1partcount|4\n"
                 "2026-01-12T06:00:06|p2execution|READY|p2partcount|9\n"
                 "2026-01-12T06:00:07|other:p1execution|READY\n"
                 "* device: other\n"
                 "2026-01-12T06:00:08|p1execution|READY\n"),
            "2 06:00:01 good <2>\n"
            "4 06:00:03 cycle start\n"
            "5 06:00:04 good <1>\n"
            "6 06:00:05 good <1>\n");
}

TEST(ShdrInput, SkipsWhatIsAboutAssets) {
  EXPECT_EQ(Shdr("2026-01-12T06:00:00|@ASSET@|T1|CuttingTool|--multiline--0FED07ACED\n"
                 "2026-01-12T06:00:00|execution|ACTIVE\n"
                 "</CuttingTool>\n"
                 "--multiline--0FED07ACED\n"
                 "2026-01-12T06:00:01|@REMOVE_ASSET@|T1\n"
                 "2026-01-12T06:00:02|execution|ACTIVE\n"),
            "6 06:00:02 cycle start\n");
}

TEST(ShdrInput, ReadsEveryFormOfATimeAndPutsLinesInOrder) {
  EXPECT_EQ(Shdr("2026-01-12T06:00:03|execution|ACTIVE\n"
                 "2026-01-12T07:00:01.5+01:00|program|A\n"
                 "2026-01-12T06:00:02.5Z@12.5|program|B\n"
                 "|program|C\n"
                 "100|program|D\n"
                 "1600|program|E\n"),
            "2 06:00:01 part start <A>\n"
            "3 06:00:02 part start <B>\n"
            "4 06:00:02 part start <C>\n"
            "5 06:00:02 part start <D>\n"
            "1 06:00:03 cycle start\n"
            "6 06:00:04 part start <E>\n");
}

// A line as long as one can be, up to its last letter.
std::string Lengthened(const std::string& beginning, const std::string& end) {
  return beginning + std::string(kLongestLine - beginning.size() - end.size(), 'x') + end;
}

// A line that does not add up keeps what does; each key is spoken of once.
TEST(ShdrInput, ReportsWhatItCannotRead) {
  EXPECT_EQ(Shdr("2026-01-12T06:00:00|partcount|1\n"
                 "yesterday|partcount|2\n"
                 "2026-01-12T06:00:01\n"
                 "2026-01-12T06:00:02|execution|ACTIVE|program\n"
                 "2026-01-12T06:00:03|partcount|many\n"
                 "2026-01-12T06:00:04|partcount|more|program|\n"
                 "2026-01-12T06:00:05|partcount|2\n" +
                 Lengthened("2026-01-12T06:00:06|partcount|3|note|", "|partcount|5") + "9\n" +
                 Lengthened("2026-01-12T06:00:07|partcount|4|note|", "") + "\n"),
            "4 06:00:02 cycle start\n"
            "7 06:00:05 good <1>\n"
            "8 06:00:06 good <1>\n"
            "9 06:00:07 good <1>\n"
            "2 bad: \"yesterday\" is no date and time\n"
            "3 bad: a key and its value are missing\n"
            "4 bad: the key \"program\" has no value\n"
            "5 bad: \"many\" is no part count\n"
            "8 bad: the line is too long; its end is left out\n"
            "9 bad: the key \"note\" has no value\n");
}

// However a recording is cut, its parts give the events of the whole.
TEST(ShdrInput, GoesOnWhereTheRecordingBeforeEnded) {
  const std::string text =
      "2026-01-12T06:00:00|avail|AVAILABLE|execution|READY|program|A|partcount|0|x2execution|READY\n"
      "2026-01-12T06:00:01|execution|ACTIVE\n"
      "2026-01-12T06:00:02|execution|WAIT|fmode|PRODUCTION\n"
      "2026-01-12T06:00:03|execution|ACTIVE\n"
      "2026-01-12T06:00:04|execution|READY\n"
      "2026-01-12T06:00:05|partcount|1\n"
      "2026-01-12T06:00:06|avail|AVAILABLE|program|B|partcount|4\n"
      "2026-01-12T06:00:07|estop|TRIGGERED|partcount|5\n"
      "2026-01-12T06:00:08|estop|ARMED|fmode|SETUP\n"
      "2026-01-12T06:00:09|fmode|PRODUCTION\n";
  const auto read = [](const std::string& part, const NamedValues& state) {
    std::istringstream input(part);
    ShdrOptions options;
    options.state = ParseNamedValues(NamedValuesText(state));
    return ReadShdr(input, options);
  };
  const auto describe = [](Recording recording) {
    for (RecordedEvent& event : recording.events) event.line = 0;
    return Describe(recording);
  };
  const std::string whole = describe(read(text, {}));
  EXPECT_EQ(std::ranges::count(whole, '\n'), 9) << whole;
  for (std::size_t cut = text.find('\n'); cut + 1 < text.size(); cut = text.find('\n', cut + 1)) {
    const Recording first = read(text.substr(0, cut + 1), {});
    EXPECT_EQ(describe(first) + describe(read(text.substr(cut + 1), first.state)), whole) << cut;
  }
}

TEST(RecordedTime, TurnsUtcIntoPlantTimeByTheZoneOfTheProcess) {
  const char* const zone = getenv("TZ");
  const std::string zone_before = zone == nullptr ? "" : zone;
  setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
  tzset();
  EXPECT_EQ(ParseRecordedTime("2026-01-12T23:30:00.9Z"), DateTime(2026, 1, 13, 0, 30, 0));
  EXPECT_EQ(ParseRecordedTime("2026-07-12T06:00:00Z"), DateTime(2026, 7, 12, 8, 0, 0));
  EXPECT_EQ(ParseRecordedTime("2026-07-12T06:00:00"), DateTime(2026, 7, 12, 6, 0, 0));
  if (zone == nullptr) {
    unsetenv("TZ");
  } else {
    setenv("TZ", zone_before.c_str(), 1);
  }
  tzset();
}

TEST(Events, GoByOneNameAndToOneHandler) {
  struct Case {
    const char* name;
    NamedEvent event;
    const char* handler;
  };
  for (const auto& [name, event, handler] :
       {Case{"logon start", {4, 0}, "DoLogonStart"}, Case{"operation end", {7, 1}, "DoOpEnd"},
        Case{"machine downtime start", {11, 0}, "DoMachineDowntimeStart"},
        Case{"user downtime end", {12, 1}, "DoUserDowntimeEnd"}, Case{"good", {13, 0}, "DoGoodPartCount"},
        Case{"scrap", {14, 0}, "DoScrappedPartCount"},
        Case{"custom 77 start", {kxdata7::command_type::kCustom, 0, 77}, "DoCustomStart"},
        Case{"custom 77", {kxdata7::command_type::kCustom, 2, 77}, "DoCustomBoth"}}) {
    EXPECT_EQ(ParseEventName(name), event) << name;
    EXPECT_EQ(EventName(event.type_code, event.time_code, 77), name);
    EXPECT_EQ(HandlerName(event.type_code, event.time_code, 77), handler);
  }
  EXPECT_EQ(HandlerName(9, 2, 9), "");
  EXPECT_EQ(HandlerName(-1, -1, -1), "HandleExpiredShifts");
  for (const char* name :
       {"custom", "custom x", "custom 7 both", "good start", "Cycle start", "cycle  start"})
    EXPECT_THROW(ParseEventName(name), ToolError) << name;
}

TEST(Events, RefuseParametersThatWouldStopTheQueue) {
  constexpr std::int32_t kGood = 13;
  constexpr std::int32_t kScrap = 14;
  constexpr std::int32_t kPart = 6;
  for (const char* param : {"", "x", "32767", "-32768", "1e4", "0.5"})
    EXPECT_NO_THROW(RequireUsableParam(kGood, param));
  for (const char* param : {"32768", "1e400", "-32769"})
    EXPECT_THROW(RequireUsableParam(kGood, param), ToolError) << param;
  EXPECT_NO_THROW(RequireUsableParam(kScrap, "5.99999"));
  EXPECT_THROW(RequireUsableParam(kScrap, "-32768.17"), ToolError);
  EXPECT_NO_THROW(RequireUsableParam(kPart, "99999"));
  EXPECT_NO_THROW(RequireUsableParam(kPart, "Zoë \"\\;-- 部品"));
  for (const std::string& param : {std::string("a'b"), std::string("a\0b", 3), std::string("\xC3(")})
    EXPECT_THROW(RequireUsableParam(kPart, param), ToolError);
}

TEST(SchemaFiles, SplitAtSemicolonsThatEndALine) {
  const std::vector<std::string> expected = {"a (';x')\n", "b\n"};
  EXPECT_EQ(SplitStatements("-- head; not code;\na (';x');\n\n-- tail;\r\nb;\r\n-- end"), expected);
}

}  // namespace
}  // namespace kx::tool
