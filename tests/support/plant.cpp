#include "tests/support/plant.h"

#include <gtest/gtest.h>

#include <map>
#include <sstream>

#include "database/text.h"
#include "tests/support/written_tables.h"

namespace kx::test {
namespace {

const std::map<std::string, int> kCommands = {
    {"logon", 104}, {"job", 105},      {"part", 106},  {"op", 107},       {"setup", 108},
    {"cycle", 109}, {"teardown", 110}, {"down", 111},  {"userdown", 112}, {"good", 113},
    {"scrap", 114}, {"door", 120},     {"refresh", -1}};

constexpr const char* kMasterData = R"(
insert into T_SFC_DEPT values (1, 1001, 'Mill');
insert into T_SFC_LOCATION values (2, 1002, 'Hall 1');
insert into T_SFC_GROUP values (3, 1003, 'Mills');
insert into T_SFC_MACHINE values (1, 1001, 'Mill 1', 1, 0, '2026-01-12 06:00:00'),
  (2, 1002, 'Mill 2', 2, 0, '2026-01-12 06:00:00'), (3, 1003, 'Mill 3', 3, 0, '2026-01-12 06:00:00');
insert into T_SFC_MACHINE_DATA (START_TIME, DEPT_ID, LOCATION_ID, GROUP_ID, MACHINE_ID, STATUS_CODE, IS_MANUAL,
  SETUP_TIME, TEARDOWN_TIME, CYCLE_TIME, IDLE_TIME, FINISHED_CYCLES, UNFINISHED_CYCLES, GOOD_COUNT,
  SCRAPPED_COUNT, SHIFT_ID, CHART_DATE, SHIFT_END)
  select '2026-01-12 06:00:00', 1, 2, 3, MACHINE_ID, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, '2026-01-12 00:00:00',
  '2026-01-12 14:00:00' from T_SFC_MACHINE order by MACHINE_ID;
insert into T_SFC_COMMAND values (104, 1104, 'Logon', 4), (105, 1105, 'Job', 5), (106, 1106, 'Part', 6),
  (107, 1107, 'Operation', 7), (108, 1108, 'Setup', 8), (109, 1109, 'Cycle', 9), (110, 1110, 'Teardown', 10),
  (111, 1111, 'Downtime', 11), (112, 1112, 'User downtime', 12), (113, 1113, 'Good', 13),
  (114, 1114, 'Scrap', 14), (120, 1120, 'Door', 20);
insert into T_SFC_USER values (1, 'anna', NULL), (2, 'bert', 3), (3, 'Zoë', NULL);
insert into T_SFC_JOB values (1, 'J1'), (2, 'J2');
insert into T_SFC_OP values (1, 'O10'), (2, 'O20');
insert into T_SFC_PART values (1, 7, 'P1'), (2, 8, 'P2');
insert into T_SFC_PART_PER_JOB values (1, 1, 1, 2), (2, 1, 2, 1);
insert into T_SFC_DOWNTIME_CODE values (1, 'D0', 'Broken', 0, 1), (2, 'D1', 'Meeting', 1, NULL),
  (3, 'D2', 'Lunch', 2, 0);
insert into T_SFC_SCRAP_CODE values (1, '17', 'Bent', 0), (2, '99', 'Any', -1);
insert into T_SFC_INTERVAL values (1, '1970-01-01 06:00:00', '1970-01-01 14:00:00', 0),
  (2, '1970-01-01 14:00:00', '1970-01-01 22:00:00', 0), (3, '1970-01-01 22:00:00', '1970-01-02 06:00:00', 1);
insert into T_SFC_SHIFT values (1, 'Early', 1, 1, 1, 1, 1, NULL, NULL), (2, 'Late', 2, 2, 2, 2, 2, NULL, NULL),
  (3, 'Night', 3, 3, 3, 3, 3, NULL, NULL);
)";

}  // namespace

FakeHost::FakeHost() {
  ProcessHost() = {
      .now = [this] { return std::chrono::sys_seconds(std::chrono::floor<std::chrono::seconds>(paused)); },
      .sleep = [this](std::chrono::milliseconds time) { paused += time; },
      .open_engine = WatchedOpener(watch),
  };
}

std::string Moment(std::string_view text) {
  static constexpr std::string_view kDays = "MonTueWedThuFriSatSun";
  std::size_t day = 0;
  if (text.size() > 4 && text[3] == ' ') {
    day = kDays.find(text.substr(0, 3)) / 3;
    text.remove_prefix(4);
  }
  return Concat("2026-01-", 12 + day, " ", text, text.size() == 5 ? ":00" : "");
}

Plant::Plant(int database_type, DatabaseKind kind) : database(kind), database_type_(database_type) {
  db.Begin();
  database.RunScript(kMasterData);
  db.Commit();
  Connect();
}

void Plant::Connect() {
  ASSERT_EQ(component.Connect(connection_string(), kxdata7::Dialect{database_type_}), (Outcome{true, ""}));
}

void Plant::LoseLinkAtNth(int n) {
  if (database.kind() != DatabaseKind::kPostgres) return host.watch.LoseLinkAtNth(n);
  host.watch.AtNth(n, [this] { database.EndOtherLinks(); });
}

void Plant::QueueRow(std::string_view moment, int machine, int command, int time_code,
                     std::string_view param) {
  const bool refresh = command == -1;
  const Value parameters[] = {refresh ? Value() : Value(command), machine,
                              refresh ? Value() : Value(time_code), *DateTime::Parse(moment),
                              param.empty() ? Value() : Value(param)};
  db.ExecuteDirect(
      "insert into T_SFC_MDC_LOG (COMMAND_ID, DEPT_ID, LOCATION_ID, GROUP_ID, MACHINE_ID, COMMAND_TIME_CODE, "
      "TIME_STAMP, PARAM1) values (?, 1, 2, 3, ?, ?, ?, ?)",
      parameters);
}

void Plant::Queue(std::string_view script) {
  std::istringstream events{std::string(script)};
  for (std::string event; std::getline(events, event, ';');) {
    std::istringstream words(event);
    std::string moment, word, param;
    words >> moment;
    if (moment.size() == 3) moment += (words >> word, " " + word);
    words >> word;
    int machine = 1;
    if (word.starts_with('#')) {
      machine = std::stoi(word.substr(1));
      words >> word;
    }
    const int command = kCommands.at(word);
    int time_code = 0;
    if (command != 113 && command != 114 && command != -1) {
      words >> word;
      time_code = word == "start" ? 0 : word == "end" ? 1 : 2;
    }
    std::getline(words >> std::ws, param);
    QueueRow(Moment(moment), machine, command, time_code, param);
  }
}

void Plant::Run(std::string_view script) {
  Queue(script);
  ProcessAll();
}

void Plant::ProcessAll() {
  while (Number("select count(*) from T_SFC_MDC_LOG") > 0) {
    const std::string head = Query("select * from T_SFC_MDC_LOG order by MDC_LOG_ID limit 1");
    ASSERT_EQ(component.Next(), (Outcome{true, ""})) << head;
  }
}

void Plant::AddMachines(int last) {
  Execute(Concat(
      "with recursive N(I) as (select 4 union all select I + 1 from N where I < ", last,
      ") insert into T_SFC_MACHINE (MACHINE_ID, VELKARIS_ID, MACHINE_NAME, MACHINE_DATA_ID, STATUS_CODE, "
      "STATUS_DATE) select I, 1000 + I, 'Machine ' || I, I, 0, '2026-01-12 06:00:00' from N"));
  Execute(
      "insert into T_SFC_MACHINE_DATA (START_TIME, MACHINE_ID, STATUS_CODE, IS_MANUAL, SETUP_TIME, "
      "TEARDOWN_TIME, "
      "CYCLE_TIME, IDLE_TIME, FINISHED_CYCLES, UNFINISHED_CYCLES, GOOD_COUNT, SCRAPPED_COUNT, SHIFT_ID, "
      "CHART_DATE, SHIFT_END) select d.START_TIME, m.MACHINE_ID, d.STATUS_CODE, 0, 0, 0, 0, 0, 0, 0, 0, 0, "
      "d.SHIFT_ID, d.CHART_DATE, d.SHIFT_END from T_SFC_MACHINE m, T_SFC_MACHINE_DATA d where m.MACHINE_ID > "
      "3 "
      "and d.MACHINE_DATA_ID = 1 order by m.MACHINE_ID");
}

std::string Plant::Query(std::string_view sql) {
  const Rows rows = database.Run(sql);
  std::string text;
  for (std::size_t i = 0; i < rows.values.size(); ++i) {
    if (i > 0) text += i % rows.columns.size() == 0 ? ';' : '|';
    text += rows.values[i].ToTextOr("-");
  }
  return text;
}

double Plant::Number(std::string_view sql) { return database.Run(sql).at(0, 0).ToDoubleOr(0); }

std::string Plant::Snapshot() {
  std::map<std::pair<std::string_view, std::string>, std::size_t> places;  // of a key column's value
  std::string text;
  for (const auto& table : kWrittenTables) {
    const Rows rows = database.Run(Concat("select * from T_SFC_", table.name, " order by 1"));
    std::vector<std::string_view> key_of_column;
    for (const std::string& column : rows.columns) {
      const WrittenTable* const owner = OwnerOfKey(column);
      key_of_column.push_back(owner == nullptr ? std::string_view() : owner->keys[0]);
    }
    Append(text, table.name, ":\n");
    for (std::size_t row = 0; row < rows.count(); ++row) {
      if (!table.keys[0].empty()) places.emplace(std::pair(table.keys[0], rows.at(row, 0).ToText()), row + 1);
      for (std::size_t column = 0; column < rows.columns.size(); ++column) {
        const Value& value = rows.at(row, column);
        const auto place = places.find({key_of_column[column], value.ToTextOr("")});
        Append(text,
               value.IsNull()          ? "-"
               : place == places.end() ? value.ToText()
                                       : Concat("@", place->second),
               "|");
      }
      text += '\n';
    }
  }
  return text;
}

std::string Plant::Breaches() {
  return Query(R"(
select 'open records of machine', m.MACHINE_ID from T_SFC_MACHINE m where m.MACHINE_DATA_ID is distinct from
  (select case count(*) when 1 then max(MACHINE_DATA_ID) end from T_SFC_MACHINE_DATA d
   where d.MACHINE_ID = m.MACHINE_ID and STOP_TIME is null)
union all select 'gap before record', MACHINE_DATA_ID from (select MACHINE_DATA_ID, START_TIME,
  lag(STOP_TIME) over (partition by MACHINE_ID order by MACHINE_DATA_ID) as STOP_BEFORE,
  row_number() over (partition by MACHINE_ID order by MACHINE_DATA_ID) as N from T_SFC_MACHINE_DATA) as CHAIN
  where N > 1 and STOP_BEFORE is distinct from START_TIME
union all select 'running events of command', COMMAND_ID from T_SFC_MACHINE_EVENT group by MACHINE_ID, COMMAND_ID
  having count(*) > 1
union all select 'event without stop', EVENT_ID from T_SFC_EVENT e where (STOP_TIME is null) !=
  (exists (select 1 from T_SFC_MACHINE_EVENT r where r.EVENT_ID = e.EVENT_ID)))");
}

}  // namespace kx::test
