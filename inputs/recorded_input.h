#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <istream>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "database/date_time.h"
#include "inputs/machine_reader.h"
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
  std::vector<RecordedEvent> events;  // those of a machine in the order of time
  std::vector<BadLine> bad_lines;
  std::vector<BadLine> notes;  // what is worth knowing, and no reason to refuse a line
  // Of adapter lines: what the machine told last, which keys were taken, and those seen.
  NamedValues state;
  std::string taken;
  std::string keys_seen;
};

// Comma-separated lines, one event each; a field may stand in double quotes, with quotes inside doubled. The
// first line names the columns, in any order: time, event and, as needed, param and machine. Empty lines and
// lines that begin with # are skipped. A ToolError when the first line does not name the columns.
Recording ReadCsv(std::istream& input);

struct ShdrOptions {
  Mapping mapping;
  NamedValues state;                    // the machine's, of before
  std::optional<std::int32_t> machine;  // whose sections are read of a recording of several
  // Returns the time under which a report is taken; a ToolError for one that is not.
  std::function<DateTime(const Report&)> admit;
};

// Lines of an adapter, put in the order of time.
Recording ReadShdr(std::istream& input, const ShdrOptions& options = {});

// Where a recording of what came live changes from one machine, or arrival, to the next: lines "* from
// machine 3 at MOMENT", with " opened" behind when a connection was.
class RecordedSection {
 public:
  explicit RecordedSection(std::optional<std::int32_t> machine) : machine_(machine) {}
  static std::string Head(std::int32_t machine_id, Moment arrival, bool opened = false);
  // Whether the machine's lines are read here; not the head itself.
  bool Holds(std::string_view line);
  std::optional<Moment> arrival() const { return arrival_; }
  // When a connection of the machine was opened; nothing when that was asked before.
  std::optional<Moment> TakeOpened() { return std::exchange(opened_, std::nullopt); }

 private:
  const std::optional<std::int32_t> machine_;
  bool holds_ = true;
  std::optional<Moment> arrival_, opened_;
};

enum class InputForm { kCsv, kShdr };
// The form of a recording by its first lines.
InputForm FormOf(std::string_view text);

// Reads a line, kLongestLine bytes of it at most. False: there is none.
bool ReadBoundedLine(std::istream& input, std::string& line);

// The plant time of a text: as it stands, or with a Z or an offset at its end by the time zone of the
// process. Fractions of a second are dropped. A ToolError when it is no date and time.
DateTime ParseRecordedTime(std::string_view text);

}  // namespace kx::tool
