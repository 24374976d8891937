#include "inputs/recorded_input.h"

#include <charconv>
#include <functional>

#include "plant/plant.h"
#include "plant/platform.h"

namespace kx::tool {
namespace {

// Hands every line that is to be read to `read`; a ToolError of it is that line's.
void ForEachLine(std::istream& input, char comment, Recording& recording,
                 const std::function<void(std::string_view, std::size_t)>& read) {
  std::string line;
  for (std::size_t number = 1; std::getline(input, line); ++number) {
    std::string_view text = line;
    if (number == 1 && text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);
    if (text.ends_with('\r')) text.remove_suffix(1);
    if (text.empty() || text.front() == comment) continue;
    try {
      read(text, number);
    } catch (const ToolError& error) {
      recording.bad_lines.push_back({number, error.what()});
    }
  }
}

std::vector<std::string> SplitCsv(std::string_view line) {
  std::vector<std::string> fields(1);
  bool quoted = false;
  for (std::size_t i = 0; i < line.size(); ++i) {
    const bool doubled = quoted && line[i] == '"' && line.substr(i + 1).starts_with('"');
    if (line[i] == '"' && !doubled) {
      quoted = !quoted;
    } else if (line[i] == ',' && !quoted) {
      fields.emplace_back();
    } else {
      fields.back() += line[i];
      if (doubled) ++i;
    }
  }
  if (quoted) throw ToolError("a quote is not closed");
  return fields;
}

std::optional<std::int32_t> ParseWhole(std::string_view text) {
  std::int32_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

class CsvReader {
 public:
  explicit CsvReader(std::string_view head) {
    for (const std::string& name : SplitCsv(head)) {
      if (name != "time" && name != "event" && name != "param" && name != "machine")
        throw ToolError("there is no column \"" + name + "\"; the first line names the columns");
      if (Column(name)) throw ToolError("the column \"" + name + "\" stands twice");
      columns_.push_back(name);
    }
    if (!Column("time") || !Column("event")) throw ToolError("a column \"time\" or \"event\" is missing");
  }

  RecordedEvent Read(std::string_view text, std::size_t line) const {
    const std::vector<std::string> fields = SplitCsv(text);
    if (fields.size() > columns_.size()) throw ToolError("there are more fields than columns");
    const auto field = [&](std::string_view name) {
      const auto column = Column(name);
      return column && *column < fields.size() ? fields[*column] : std::string();
    };
    RecordedEvent event{line, ParseRecordedTime(field("time")), ParseEventName(field("event")),
                        field("param"), std::nullopt};
    if (const std::string machine = field("machine"); !machine.empty()) {
      event.machine = ParseWhole(machine);
      if (!event.machine) throw ToolError("\"" + machine + "\" is no machine number");
    }
    return event;
  }

 private:
  std::optional<std::size_t> Column(std::string_view name) const {
    for (std::size_t i = 0; i < columns_.size(); ++i) {
      if (columns_[i] == name) return i;
    }
    return std::nullopt;
  }

  std::vector<std::string> columns_;
};

// What an adapter reported last.
class ShdrReader {
 public:
  explicit ShdrReader(std::vector<RecordedEvent>& events) : events_(events) {}

  void Read(std::string_view line, std::size_t number) {
    const Report report = Parse(line);
    const auto emit = [&](NamedEvent event, std::string param = {}) {
      events_.push_back({number, report.time, event, std::move(param), std::nullopt});
    };
    // In the order in which things happen on a machine when one line tells several.
    const bool was_active = execution_ == "ACTIVE";
    const bool is_active = report.execution.value_or(execution_) == "ACTIVE";
    if (was_active && !is_active && !report.opening) emit(event::kCycleEnd);
    if (report.part_count) {
      const auto rise = part_count_ ? std::int64_t{*report.part_count} - *part_count_ : 0;
      if (rise > 0 && !report.opening) emit(event::kGoodCount, std::to_string(rise));
      part_count_ = report.part_count;
    }
    if (report.stop && *report.stop != stop_) {
      if (*report.stop == "ARMED" && stop_ == "TRIGGERED" && !report.opening)
        emit(event::kMachineDowntimeEnd);
      if (*report.stop == "TRIGGERED" && !report.opening) emit(event::kMachineDowntimeStart);
      stop_ = *report.stop;
    }
    if (report.program && *report.program != program_) {
      program_ = *report.program;
      emit(event::kPartStart, program_);
    }
    if (is_active && !was_active && !report.opening) emit(event::kCycleStart);
    if (report.execution) execution_ = *report.execution;
  }

 private:
  struct Report {
    DateTime time;
    bool opening = false;
    std::optional<std::string> execution, program, stop;
    std::optional<std::int32_t> part_count;
  };

  static Report Parse(std::string_view line) {
    const auto next = [&line] {
      const std::string_view field = line.substr(0, line.find('|'));
      line = field.size() == line.size() ? std::string_view() : line.substr(field.size() + 1);
      return field;
    };
    Report report;
    const bool has_pairs = line.find('|') != std::string_view::npos;
    report.time = ParseRecordedTime(next());
    if (!has_pairs) throw ToolError("a key and its value are missing");
    while (!line.empty()) {
      const bool has_value = line.find('|') != std::string_view::npos;
      const std::string_view key = next();
      if (!has_value) throw ToolError("the key \"" + std::string(key) + "\" has no value");
      ReadPair(key, next(), report);
    }
    return report;
  }

  static void ReadPair(std::string_view key, std::string_view value, Report& report) {
    const bool known = !value.empty() && value != "UNAVAILABLE";
    if (key.ends_with("avail")) {
      report.opening = true;
    } else if (key.ends_with("execution")) {
      report.execution = value;
    } else if (key.ends_with("program") && known) {
      report.program = value;
    } else if (key.ends_with("estop") && known) {
      report.stop = value;
    } else if ((key.ends_with("partcount") || key.ends_with("part_count")) && known) {
      report.part_count = ParseWhole(value);
      if (!report.part_count) throw ToolError("\"" + std::string(value) + "\" is no part count");
    }
  }

  std::vector<RecordedEvent>& events_;
  std::string execution_;
  std::string program_;
  std::string stop_;
  std::optional<std::int32_t> part_count_;
};

}  // namespace

Recording ReadCsv(std::istream& input) {
  Recording recording;
  std::optional<CsvReader> reader;
  ForEachLine(input, '#', recording, [&](std::string_view text, std::size_t line) {
    if (reader) {
      recording.events.push_back(reader->Read(text, line));
    } else if (recording.bad_lines.empty()) {
      reader.emplace(text);
    }
  });
  if (!reader) {
    throw ToolError(recording.bad_lines.empty() ? "the file is empty" : recording.bad_lines.front().reason);
  }
  return recording;
}

Recording ReadShdr(std::istream& input) {
  Recording recording;
  ShdrReader reader(recording.events);
  ForEachLine(input, '*', recording,
              [&](std::string_view text, std::size_t line) { reader.Read(text, line); });
  return recording;
}

DateTime ParseRecordedTime(std::string_view text) {
  const bool utc = text.ends_with('Z');
  const auto time = DateTime::Parse(utc ? text.substr(0, text.size() - 1) : text);
  if (!time) throw ToolError("\"" + std::string(text) + "\" is no date and time");
  return utc ? PlantTime(time->time().time_since_epoch().count()) : *time;
}

}  // namespace kx::tool
