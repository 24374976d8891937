#include "inputs/recorded_input.h"

#include <algorithm>
#include <charconv>

#include "database/text.h"
#include "plant/plant.h"

namespace kx::tool {

bool ReadBoundedLine(std::istream& input, std::string& line) {
  line.clear();
  std::streambuf& buffer = *input.rdbuf();
  constexpr int kEnd = std::char_traits<char>::eof();
  int c = buffer.sbumpc();
  if (c == kEnd) return false;
  for (; c != kEnd && c != '\n'; c = buffer.sbumpc()) {
    if (line.size() < kLongestLine) line += static_cast<char>(c);
  }
  return true;
}

namespace {

// Hands every line that is to be read to `read`; a ToolError of it is that line's.
void ForEachLine(std::istream& input, char comment, Recording& recording,
                 const std::function<void(std::string_view, std::size_t)>& read) {
  std::string line;
  for (std::size_t number = 1; ReadBoundedLine(input, line); ++number) {
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

constexpr std::string_view kOpened = " opened";

}  // namespace

Recording ReadCsv(std::istream& input) {
  Recording recording;
  std::optional<CsvReader> reader;
  ForEachLine(input, '#', recording, [&](std::string_view text, std::size_t line) {
    if (text.size() >= kLongestLine) throw ToolError("the line is too long");
    if (reader) {
      recording.events.push_back(reader->Read(text, line));
    } else if (recording.bad_lines.empty()) {
      reader.emplace(text);
    }
  });
  std::ranges::stable_sort(recording.events, {}, &RecordedEvent::time);
  if (!reader) {
    throw ToolError(recording.bad_lines.empty() ? "the file is empty" : recording.bad_lines.front().reason);
  }
  return recording;
}

Recording ReadShdr(std::istream& input, const ShdrOptions& options) {
  Recording recording;
  std::size_t line = 0;
  MachineReader machine(options.mapping, [&](Notices::Kind kind, const std::string& text) {
    (kind == Notices::Kind::kNote ? recording.notes : recording.bad_lines).push_back({line, text});
  });
  machine.Load(options.state);
  const auto apply = [&](std::size_t number, Report& report) {
    line = number;
    try {
      if (options.admit) report.time = options.admit(report);
    } catch (const ToolError& error) {
      recording.bad_lines.push_back({number, error.what()});
      return;
    }
    for (MachineEvent& event : machine.Apply(report))
      recording.events.push_back({number, event.time, event.event, std::move(event.param), std::nullopt});
  };
  std::vector<std::pair<std::size_t, Report>> reports;
  RecordedSection section(options.machine);
  ForEachLine(input, '\0', recording, [&](std::string_view text, std::size_t number) {
    line = number;
    const bool holds = section.Holds(text);
    if (const auto opened = section.TakeOpened()) machine.Open(*opened);
    if (!holds) return;
    for (Report& report : machine.Read(text, section.arrival())) {
      if (section.arrival()) {
        // As it was taken when it came.
        machine.AdmitLive(report, *section.arrival());
        apply(number, report);
      } else {
        reports.emplace_back(number, std::move(report));
      }
    }
  });
  // A recording may hold sections that are not in the order of time.
  std::ranges::stable_sort(reports, {}, [](const auto& report) { return report.second.moment; });
  for (auto& [number, report] : reports) apply(number, report);
  recording.state = machine.Save();
  recording.taken = machine.Taken();
  recording.keys_seen = machine.KeysSeen();
  return recording;
}

std::string RecordedSection::Head(std::int32_t machine_id, Moment arrival, bool opened) {
  const auto micros = arrival.time_since_epoch().count();
  const DateTime seconds{
      std::chrono::local_seconds(std::chrono::floor<std::chrono::seconds>(arrival).time_since_epoch())};
  return Concat("* from machine ", machine_id, " at ", seconds.Format("yyyy-MM-ddThh:mm:ss"), ".",
                std::to_string(1'000'000 + micros % 1'000'000).substr(1), "Z", opened ? kOpened : "");
}

bool RecordedSection::Holds(std::string_view line) {
  constexpr std::string_view kHead = "* from machine ";
  if (!line.starts_with(kHead)) return holds_;
  std::string_view rest = line.substr(kHead.size());
  const bool opened = rest.ends_with(kOpened);
  if (opened) rest.remove_suffix(kOpened.size());
  const std::size_t at = rest.find(" at ");
  if (at == std::string_view::npos) return holds_;
  holds_ = !machine_ || ParseWhole(rest.substr(0, at)) == machine_;
  bool offset_given = false;
  arrival_ = ParseMoment(rest.substr(at + 4), offset_given);
  if (holds_ && opened) opened_ = arrival_;
  return false;
}

InputForm FormOf(std::string_view text) {
  while (!text.empty()) {
    std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(text.size(), line.size() + 1));
    if (line.starts_with("\xEF\xBB\xBF")) line.remove_prefix(3);
    while (line.ends_with('\r') || line.ends_with(' ')) line.remove_suffix(1);
    if (line.empty() || line.front() == '#') continue;
    if (line.front() == '*' || line.front() == '@') return InputForm::kShdr;
    return line.find('|') == std::string_view::npos ? InputForm::kCsv : InputForm::kShdr;
  }
  return InputForm::kCsv;
}

DateTime ParseRecordedTime(std::string_view text) {
  bool offset_given = false;
  const auto moment = ParseMoment(text, offset_given);
  if (!moment) throw ToolError("\"" + std::string(text) + "\" is no date and time");
  return ToPlantTime(*moment, !offset_given);
}

}  // namespace kx::tool
