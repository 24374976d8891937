#pragma once

#include <cstddef>
#include <cstdint>
#include <istream>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "database/date_time.h"
#include "plant/events.h"

namespace kx::tool {

struct RecordedEvent {
  std::size_t line;
  DateTime time;
  NamedEvent event;
  std::string param;
  std::optional<std::int32_t> machine;  // when the input names it

  friend bool operator==(const RecordedEvent&, const RecordedEvent&) = default;
};

struct BadLine {
  std::size_t line;
  std::string reason;
};

struct Recording {
  std::vector<RecordedEvent> events;  // in the order of the input
  std::vector<BadLine> bad_lines;
};

// Comma-separated lines, one event each; a field may stand in double quotes, with quotes inside doubled. The
// first line names the columns, in any order: time, event and, as needed, param and machine. Empty lines and
// lines that begin with # are skipped. A ToolError when the first line does not name the columns.
Recording ReadCsv(std::istream& input);

// Lines `time|key|value|key|value…` of an adapter, one a change; only changes are events. Keys count by their
// ending: execution (ACTIVE is a cycle start, leaving it a cycle end), program (a new one is a part start),
// partcount or part_count (a rise is that many good parts), estop (TRIGGERED and ARMED are a machine
// downtime's start and end); other keys are ignored. A line with avail is the adapter's opening report: it
// gives starting values, and only its program is an event. Empty lines and lines that begin with * are
// skipped.
Recording ReadShdr(std::istream& input);

// The plant time of a text: as it stands, or with a Z at its end from UTC by the time zone of the process.
// Fractions of a second are dropped. A ToolError when it is no date and time.
DateTime ParseRecordedTime(std::string_view text);

}  // namespace kx::tool
