#include "plant/plant_file.h"

#define TOML_EXCEPTIONS 0
#define TOML_HEADER_ONLY 1
#include <toml++/toml.h>

#include <algorithm>
#include <limits>

#include "database/text.h"

namespace kx::tool {
namespace {

// A file with more syntax errors is no plant's file.
constexpr int kMostSyntaxErrors = 100;

Position PositionOf(const toml::source_region& source) { return {source.begin.line, source.begin.column}; }

using Entry = std::pair<const toml::key*, const toml::node*>;

// The entries of a table as the file orders them.
std::vector<Entry> InOrder(const toml::table& table) {
  std::vector<Entry> entries;
  for (const auto& [key, node] : table) entries.emplace_back(&key, &node);
  std::ranges::sort(entries, {}, [](const Entry& entry) { return PositionOf(entry.first->source()); });
  return entries;
}

std::string Joined(const std::vector<std::string_view>& names) {
  std::string text;
  for (const std::string_view name : names) Append(text, text.empty() ? "" : ", ", name);
  return text;
}

// One thing of the file: its fields may stand in several tables, of which the first that has a field counts.
class Fields {
 public:
  Fields(std::vector<Problem>& problems, std::string_view noun, Position at,
         std::vector<const toml::table*> tables)
      : problems_(problems), noun_(noun), at_(at), tables_(std::move(tables)) {}

  Position at() const { return at_; }

  // The thing is written as this value alone.
  void SetShort(std::string_view key, const toml::node& value) {
    short_key_ = key;
    short_value_ = &value;
  }

  const toml::node* Find(std::string_view key) {
    if (std::ranges::count(known_, key) == 0) known_.push_back(key);
    if (short_value_ != nullptr && key == short_key_) return short_value_;
    for (const toml::table* table : tables_) {
      if (const toml::node* const node = table->get(key)) return node;
    }
    return nullptr;
  }

  std::string Text(std::string_view key) {
    const toml::node* const node = Find(key);
    return node == nullptr ? std::string() : TextOf(*node, key);
  }

  std::optional<std::int32_t> Number(std::string_view key, std::int32_t least = 0) {
    const toml::node* const node = Find(key);
    if (node == nullptr) return std::nullopt;
    const auto number = node->value_exact<std::int64_t>();
    if (number && *number >= least && *number <= std::numeric_limits<std::int32_t>::max())
      return static_cast<std::int32_t>(*number);
    Add(*node, Concat(key, " must be a whole number", least < 0 ? "" : Concat(" from ", least, " on")));
    return std::nullopt;
  }

  std::optional<bool> Flag(std::string_view key) {
    const toml::node* const node = Find(key);
    if (node == nullptr) return std::nullopt;
    const auto flag = node->value_exact<bool>();
    if (!flag) Add(*node, Concat(key, " must be true or false"));
    return flag;
  }

  std::optional<std::vector<std::string>> Texts(std::string_view key) {
    const toml::node* const node = Find(key);
    if (node == nullptr) return std::nullopt;
    return TextsOf(*node, key);
  }

  const toml::table* Table(std::string_view key) {
    const toml::node* const node = Find(key);
    if (node != nullptr && !node->is_table()) Add(*node, Concat(key, " must be a table"));
    return node == nullptr ? nullptr : node->as_table();
  }

  const toml::array* Array(std::string_view key) {
    const toml::node* const node = Find(key);
    if (node != nullptr && !node->is_array()) Add(*node, Concat(key, " must be a list, in brackets"));
    return node == nullptr ? nullptr : node->as_array();
  }

  std::string TextOf(const toml::node& node, std::string_view key) {
    if (const auto text = node.value_exact<std::string>()) return *text;
    Add(node, Concat(key, " must be a text, in quotes"));
    return {};
  }

  std::vector<std::string> TextsOf(const toml::node& node, std::string_view key) {
    std::vector<std::string> texts;
    if (const toml::array* const list = node.as_array()) {
      for (const toml::node& each : *list) texts.push_back(TextOf(each, key));
    } else {
      Add(node, Concat(key, " must be a list of texts"));
    }
    return texts;
  }

  void Add(const toml::node& node, std::string text) {
    problems_.push_back({PositionOf(node.source()), std::move(text)});
  }

  // Reads what every thing has; the rest of its fields have been asked for.
  void Finish(Thing& thing) {
    thing.was = Text("was");
    for (std::string& field : Texts("keep").value_or(std::vector<std::string>()))
      thing.kept.insert(std::move(field));
    Finish();
    for (const std::string& field : thing.kept) {
      if (std::ranges::count(known_, field) == 0)
        problems_.push_back({at_, Concat("keep names \"", field, "\", which is no field of a ", noun_)});
    }
  }

  // Every other field is unknown.
  void Finish() {
    for (const toml::table* table : tables_) {
      for (const auto& [key, node] : *table) {
        if (std::ranges::count(known_, key.str()) != 0) continue;
        problems_.push_back({PositionOf(key.source()), Concat("a ", noun_, " has no field ", key.str(),
                                                              "; there are ", Joined(known_))});
      }
    }
  }

 private:
  std::vector<Problem>& problems_;
  const std::string_view noun_;
  const Position at_;
  const std::vector<const toml::table*> tables_;
  std::vector<std::string_view> known_;
  std::string_view short_key_;
  const toml::node* short_value_ = nullptr;
};

// "mon" or "sun-thu" as the days from and to which it goes; nothing when it is neither.
std::optional<std::pair<std::size_t, std::size_t>> ParseDays(std::string_view key) {
  const auto day = [](std::string_view name) {
    return static_cast<std::size_t>(std::ranges::find(kDayNames, name) - kDayNames.begin());
  };
  const std::size_t dash = std::min(key.find('-'), key.size());
  const std::size_t first = day(key.substr(0, dash));
  const std::size_t last = dash == key.size() ? first : day(key.substr(dash + 1));
  if (first == kDayNames.size() || last == kDayNames.size()) return std::nullopt;
  return std::pair(first, last);
}

class PlantFileReader {
 public:
  PlantFileReader(DateTime now, std::vector<Problem>& problems) : now_(now), problems_(problems) {}

  PlantDescription Read(const toml::table& file) {
    Fields root(problems_, "plant", {1, 1}, {&file});
    plant_.plant_name = root.Text("name");
    ReadList(root, "departments", "department", plant_.departments);
    ReadList(root, "locations", "location", plant_.locations);
    ReadList(root, "groups", "group", plant_.groups);
    ReadList(root, "operations", "operation", plant_.operations);
    ReadTable(root, "shifts", [&](const std::string& name, const Entry& entry) { ReadShift(name, entry); });
    ReadMachines(root);
    ReadTable(root, "operators", [&](const std::string& name, const Entry& entry) {
      auto& person = plant_.operators.emplace_back();
      ReadShort(person, name, entry, "operator", "shift",
                [&](Fields& fields) { person.shift = fields.Text("shift"); });
    });
    ReadTable(root, "parts", [&](const std::string& name, const Entry& entry) {
      auto& part = plant_.parts.emplace_back();
      ReadShort(part, name, entry, "part", "type",
                [&](Fields& fields) { part.type = fields.Number("type", kAnyNumber); });
    });
    ReadTable(root, "jobs", [&](const std::string& name, const Entry& entry) {
      auto& job = plant_.jobs.emplace_back();
      ReadShort(job, name, entry, "job", "parts", [&](Fields& fields) {
        job.parts = fields.Texts("parts").value_or(std::vector<std::string>());
      });
    });
    ReadDowntimes(root);
    ReadScrap(root);
    ReadTable(root, "commands", [&](const std::string& name, const Entry& entry) {
      auto& command = plant_.commands.emplace_back();
      ReadShort(command, name, entry, "command", "number", [&](Fields& fields) {
        command.number = fields.Number("number");
        command.type_code = fields.Number("type", kAnyNumber).value_or(kOwnCommand);
      });
    });
    if (const toml::table* const table = root.Table("options")) {
      Fields options(problems_, "plant's options", {}, {table});
      for (std::size_t i = 0; i < kPlantOptions.size(); ++i)
        plant_.options[i] = options.Flag(kPlantOptions[i].name);
      options.Finish();
    }
    root.Finish();
    return std::move(plant_);
  }

 private:
  static constexpr std::int32_t kAnyNumber = std::numeric_limits<std::int32_t>::min();

  template <class Visit>
  void ReadTable(Fields& parent, std::string_view key, Visit visit) {
    const toml::table* const table = parent.Table(key);
    if (table == nullptr) return;
    for (const Entry& entry : InOrder(*table)) visit(std::string(entry.first->str()), entry);
  }

  // An entry NAME = VALUE, where the value is the thing's main field alone or a table of all fields.
  template <class T, class Read>
  void ReadShort(T& thing, const std::string& name, const Entry& entry, std::string_view noun,
                 std::string_view main_field, Read read) {
    thing.name = name;
    thing.at = PositionOf(entry.first->source());
    const toml::table* const table = entry.second->as_table();
    Fields fields(problems_, noun, thing.at,
                  table == nullptr ? std::vector<const toml::table*>() : std::vector{table});
    if (table == nullptr) fields.SetShort(main_field, *entry.second);
    read(fields);
    fields.Finish(thing);
  }

  // A list whose entries are names or tables.
  template <class T>
  void ReadList(Fields& root, std::string_view key, std::string_view noun, std::vector<T>& things) {
    const toml::array* const list = root.Array(key);
    if (list == nullptr) return;
    for (const toml::node& each : *list) {
      const toml::table* const table = each.as_table();
      if (table == nullptr && !each.is_string()) {
        root.Add(each, Concat("a ", noun, " must be a text or a table"));
        continue;
      }
      T& thing = things.emplace_back();
      thing.at = PositionOf(each.source());
      if (table == nullptr) {
        thing.name = root.TextOf(each, noun);
        continue;
      }
      Fields fields(problems_, noun, thing.at, {table});
      if constexpr (std::is_same_v<T, NumberedThing>) {
        thing.number = fields.Number("number");
        thing.name = fields.Text("name");
      } else {
        thing.name = fields.Text("number");
      }
      fields.Finish(thing);
    }
  }

  void ReadShift(const std::string& name, const Entry& entry) {
    Shift& shift = plant_.shifts.emplace_back();
    shift.name = name;
    shift.at = PositionOf(entry.first->source());
    const toml::table* const table = entry.second->as_table();
    if (table == nullptr) {
      problems_.push_back({shift.at, Concat("the shift ", shift.name, " must be a table of weekdays")});
      return;
    }
    Fields fields(problems_, "shift", shift.at, {table});
    shift.overlaps = fields.Flag("overlaps").value_or(false);
    for (const std::string_view day : kDayNames) fields.Find(day);  // known
    for (const Entry& each : InOrder(*table)) {
      const std::string_view key = each.first->str();
      if (const auto days = ParseDays(key)) {
        fields.Find(key);
        ReadDays(shift, fields, *days, each);
      }
    }
    fields.Finish(shift);
  }

  void ReadDays(Shift& shift, Fields& fields, std::pair<std::size_t, std::size_t> days, const Entry& entry) {
    const Position at = PositionOf(entry.first->source());
    const auto interval = Interval::Parse(entry.second->value_or(std::string()));
    if (!interval) {
      fields.Add(*entry.second,
                 Concat(entry.first->str(),
                        " must be a text like \"06:00-14:00\", from when to when, one interval a day; "
                        "a further one is a shift of its own"));
    }
    for (std::size_t day = days.first;; day = (day + 1) % kDayNames.size()) {
      if (shift.days_at[day].line != 0)
        problems_.push_back({at, Concat("the shift ", shift.name, " has ", kDayNames[day], " twice")});
      shift.days_at[day] = at;
      // A day that cannot be read is there all the same.
      shift.days[day] = interval;
      if (!interval) shift.kept.emplace(kDayNames[day]);
      if (day == days.second) break;
    }
  }

  void ReadMachines(Fields& root) {
    const toml::table* defaults = root.Table("defaults");
    if (defaults != nullptr) {
      Fields fields(problems_, "table of defaults", {}, {defaults});
      defaults = fields.Table("machine");
      fields.Finish();
    }
    const toml::array* const machines = root.Array("machines");
    if (machines == nullptr) return;
    for (const toml::node& node : *machines) {
      const toml::table* const table = node.as_table();
      if (table == nullptr) {
        root.Add(node, "a machine must be a table");
        continue;
      }
      std::vector<const toml::table*> shared = {table};
      if (defaults != nullptr) shared.push_back(defaults);
      const toml::node* const each = table->get("each");
      if (each == nullptr) {
        ReadMachine(PositionOf(node.source()), shared);
      } else if (each->is_array()) {
        for (const toml::node& one : *each->as_array()) {
          if (!one.is_table()) {
            root.Add(one, "a machine must be a table");
            continue;
          }
          std::vector<const toml::table*> tables = shared;
          tables.insert(tables.begin(), one.as_table());
          ReadMachine(PositionOf(one.source()), std::move(tables));
        }
      } else {
        root.Add(*each, "each must be a list of tables");
      }
    }
  }

  void ReadMachine(Position at, std::vector<const toml::table*> tables) {
    Fields fields(problems_, "machine", at, std::move(tables));
    PlantMachine& machine = plant_.machines.emplace_back();
    machine.at = at;
    fields.Find("each");  // known
    machine.number = fields.Number("number");
    machine.name = fields.Text("name");
    machine.department = fields.Text("department");
    machine.location = fields.Text("location");
    machine.group = fields.Text("group");
    machine.shifts = fields.Texts("shifts");
    if (const toml::node* const start = fields.Find("start")) {
      machine.start = DateTimeOf(*start);
      if (!machine.start || !IsPossibleStart(*machine.start, now_))
        fields.Add(*start, "start must be a date or a date and time, not in the future");
    }
    ReadSource(fields, machine.source);
    fields.Finish(machine);
  }

  static std::optional<DateTime> DateTimeOf(const toml::node& node) {
    toml::date_time time{};
    if (const auto* const date = node.as_date()) {
      time.date = date->get();
    } else if (const auto* const both = node.as_date_time(); both != nullptr && both->get().is_local()) {
      time = both->get();
    } else {
      return std::nullopt;
    }
    return DateTime(time.date.year, time.date.month, time.date.day, time.time.hour, time.time.minute,
                    time.time.second);
  }

  void ReadSource(Fields& fields, Source& source) {
    for (const std::string_view kind : {"adapter", "agent"}) {
      const toml::node* const node = fields.Find(kind);
      if (node == nullptr) continue;
      if (!source.kind.empty()) fields.Add(*node, "a machine has an adapter or an agent, not both");
      source.kind = kind;
      source.address = fields.TextOf(*node, kind);
    }
    if (const toml::table* const table = fields.Table("keys")) {
      Fields keys(problems_, "machine's keys", {}, {table});
      for (const std::string_view name : kSourceKeys) {
        if (keys.Find(name) != nullptr) source.mapping[std::string(name)] = keys.Text(name);
      }
      keys.Finish();
    }
    if (const auto limit = fields.Number("part_limit", 1))
      source.mapping["part_limit"] = std::to_string(*limit);
    if (const auto ends = fields.Flag("pause_ends_cycle"))
      source.mapping["pause_ends_cycle"] = *ends ? "true" : "false";
    for (const std::string_view name : {"times", "device", "maintenance", "alarm_downtime"}) {
      if (fields.Find(name) != nullptr) source.mapping[std::string(name)] = fields.Text(name);
    }
  }

  void ReadDowntimes(Fields& root) {
    const toml::table* const table = root.Table("downtimes");
    if (table == nullptr) return;
    Fields kinds(problems_, "table of downtimes", {}, {table});
    for (std::size_t kind = 0; kind < kDowntimeKinds.size(); ++kind) {
      ReadTable(kinds, kDowntimeKinds[kind], [&](const std::string& name, const Entry& entry) {
        auto& code = plant_.downtimes.emplace_back();
        code.kind = static_cast<std::int32_t>(kind);
        ReadShort(code, name, entry, "downtime code", "name", [&](Fields& fields) {
          code.label = fields.Text("name");
          code.ignore_cycles = fields.Flag("ignore_cycles").value_or(false);
        });
      });
    }
    kinds.Finish();
    std::ranges::sort(plant_.downtimes, {}, &DowntimeCode::at);
  }

  void ReadScrap(Fields& root) {
    std::string default_code;
    Position default_at;
    ReadTable(root, "scrap", [&](const std::string& name, const Entry& entry) {
      if (name == "default") {
        default_at = PositionOf(entry.second->source());
        default_code = root.TextOf(*entry.second, "default");
        return;
      }
      auto& code = plant_.scrap.emplace_back();
      ReadShort(code, name, entry, "scrap code", "name",
                [&](Fields& fields) { code.label = fields.Text("name"); });
    });
    if (default_code.empty()) return;
    const auto code = std::ranges::find(plant_.scrap, default_code, &ScrapCode::name);
    if (code != plant_.scrap.end()) {
      code->is_default = true;
    } else {
      problems_.push_back({default_at, Concat("there is no scrap code \"", default_code, "\"")});
    }
  }

  const DateTime now_;
  std::vector<Problem>& problems_;
  PlantDescription plant_;
};

// The text with line `number` emptied, and if that opens a table, all of the table; what follows keeps its
// lines. `line` is what stood there.
std::string WithoutLine(std::string_view text, std::uint32_t number, std::string& line) {
  std::string rest;
  bool in_table = false;
  for (std::uint32_t i = 1; !text.empty(); ++i) {
    const std::string_view each = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(each.size() + 1, text.size()));
    if (i == number) line = each;
    in_table = i == number ? each.starts_with('[') : in_table && !each.starts_with('[');
    if (i != number && !in_table) rest += each;
    rest += '\n';
  }
  return rest;
}

// Reads the text without the lines that are no TOML, which are problems. `partly` is set when those held what
// is not there already.
toml::table ParseLines(std::string text, std::vector<Problem>& problems, bool& partly) {
  std::uint32_t last_line = 0;
  for (int i = 0; i < kMostSyntaxErrors; ++i) {
    toml::parse_result result = toml::parse(text);
    if (result) return std::move(result).table();
    const Position at = PositionOf(result.error().source());
    std::string description(result.error().description());
    std::string line;
    text = WithoutLine(text, at.line, line);
    const bool is_twice = description.find("cannot redefine") != std::string::npos;
    if (is_twice) description = Concat(line.substr(0, line.find(" = ")), " is there already");
    partly = partly || !is_twice || line.find_first_of("[{") < line.find('=');
    // An error in the next line is most often the same one.
    if (last_line == 0 || at.line != last_line + 1) problems.push_back({at, std::move(description)});
    last_line = at.line;
  }
  partly = true;
  return {};
}

}  // namespace

bool IsPossibleStart(DateTime start, DateTime now) {
  return start >= DateTime(1990, 1, 1) && start <= now.AddDays(1);
}

PlantDescription ParsePlantFile(std::string_view text, DateTime now, std::vector<Problem>& problems) {
  bool partly = false;
  const toml::table file = ParseLines(std::string(text), problems, partly);
  PlantDescription plant = PlantFileReader(now, problems).Read(file);
  std::ranges::move(CheckDescription(plant, partly), std::back_inserter(problems));
  std::ranges::sort(problems);
  problems.erase(std::unique(problems.begin(), problems.end()), problems.end());
  return plant;
}

}  // namespace kx::tool
