#include "plant/health.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <ctime>
#include <iterator>

#include "database/ascii.h"
#include "database/text.h"
#include "plant/client.h"
#include "plant/health_tables.h"
#include "plant/plant_description.h"
#include "plant/purge.h"
#include "plant/schema_sql.h"
#include "plant/schema_tables.h"
#include "plant/schema_version.h"

namespace kx::tool {
namespace {

using Findings = std::vector<Finding>;
using enum Finding::Grade;

constexpr const char* kAddedByUpgrade = "; \"kxdata7 upgrade\" adds it";
constexpr std::int32_t kSqlServer = 2;
// The findings of one kind that are shown one by one.
constexpr std::size_t kMostShown = 5;

// True: the table has all its columns.
bool CheckTable(Plant& plant, const TableSchema& table, Findings& findings) {
  ColumnNames present;
  try {
    present = plant.Run("select * from " + table.name + " where 1 = 0").columns;
  } catch (const DatabaseError& error) {
    if (IsMissingTable(error)) {
      findings.push_back({kMissing, "table " + table.name + kAddedByUpgrade});
    } else {
      findings.push_back({kFailed, "table " + table.name + ": " + error.description()});
    }
    return false;
  }
  bool complete = true;
  for (const ColumnSchema& column : table.columns) {
    const auto is_column = [&](const std::string& name) { return EqualsIgnoringCase(name, column.name); };
    if (std::ranges::any_of(present, is_column)) continue;
    findings.push_back({kMissing, Concat("column of ", table.name, "; add it as ", column.definition,
                                         ", as \"kxdata7 upgrade\" does")});
    complete = false;
  }
  if (complete) findings.push_back({kOk, "table " + table.name});
  return complete;
}

struct Option {
  std::int32_t code;
  const char* without;  // what happens without its row
};
constexpr std::array<Option, 3> kOptions = {{{1, "job events fail or are repeated"},
                                             {4, "cycles count during setups"},
                                             {5, "cycles count during teardowns"}}};

void CheckOptions(Plant& plant, Findings& findings) {
  for (const Option& option : kOptions) {
    const std::string name = Concat("option (2, ", option.code, ")");
    const Rows rows =
        plant.Run("select BOOL_VAL from T_SFC_OPTION where APP_CODE = 2 and OPTION_CODE = ?", {option.code});
    if (rows.count() == 0) {
      findings.push_back(
          {kMissing, Concat(name, ", and ", option.without, kAddedByUpgrade),
           Repair{"add " + name + " with 0",
                  "insert into T_SFC_OPTION (APP_CODE, OPTION_CODE, BOOL_VAL) values (2, ?, 0)",
                  {option.code}}});
    } else if (rows.at(0, 0).IsNull()) {
      findings.push_back(
          {kMissing, Concat("value of ", name, ", and ", option.without, "; set its BOOL_VAL to 0 or 1")});
    } else {
      findings.push_back({kOk, name});
    }
  }
}

void CheckMachines(Plant& plant, Findings& findings) {
  const Rows rows = plant.Run(R"(
select m.MACHINE_ID, m.MACHINE_DATA_ID,
  (select count(*) from T_SFC_MACHINE_DATA d where d.MACHINE_ID = m.MACHINE_ID and d.STOP_TIME is null)
    as OPEN_RECORDS,
  (select max(MACHINE_DATA_ID) from T_SFC_MACHINE_DATA d where d.MACHINE_ID = m.MACHINE_ID
    and d.STOP_TIME is null) as LAST_OPEN from T_SFC_MACHINE m order by m.MACHINE_ID)");
  std::size_t good = 0;
  for (std::size_t i = 0; i < rows.count(); ++i) {
    const Value& id = rows.at(i, 0);
    const std::string name = "machine " + id.ToText();
    const std::int32_t open = rows.at(i, 2).ToInt32();
    if (open == 0) {
      findings.push_back(
          {kMissing, Concat("open record of ", name,
                            "; add a row without STOP_TIME and set the machine's MACHINE_DATA_ID "
                            "to it")});
    } else if (open > 1) {
      findings.push_back(
          {kFailed, Concat(name, " has ", open, " open records; all but one need a STOP_TIME")});
    } else if (rows.at(i, 1).ToInt32Or(-1) != rows.at(i, 3).ToInt32()) {
      findings.push_back({kFailed,
                          Concat(name, " points at record ", rows.at(i, 1).ToTextOr("NULL"),
                                 ", which is not its open record; set its MACHINE_DATA_ID to that"),
                          Repair{Concat("let ", name, " point at record ", rows.at(i, 3).ToText()),
                                 "update T_SFC_MACHINE set MACHINE_DATA_ID = ? where MACHINE_ID = ?",
                                 {rows.at(i, 3), id}}});
    } else {
      ++good;
    }
  }
  if (good == rows.count())
    findings.push_back({kOk, Concat("machines: ", good, ", each with its open record")});
}

// Adds a finding for each row of what `query` finds, or that there is none.
template <class Describe>
void CheckRows(Findings& findings, const std::string& good, const Rows& rows, Describe describe) {
  if (rows.count() == 0) findings.push_back({kOk, good});
  for (std::size_t i = 0; i < rows.count(); ++i) {
    Finding finding = describe(i);
    if (i < kMostShown || finding.repair) findings.push_back(std::move(finding));
  }
  if (rows.count() > kMostShown)
    findings.push_back(
        {kNote, Concat(good, ": there are ", rows.count(), " such findings, not all of them shown")});
}

// Records that a person entered stand beside the chain. Where records were purged it has gaps.
void CheckChains(Plant& plant, Findings& findings) {
  const DateTime purged =
      DateTime::Parse(ReadSetting(plant, kPurgedBefore).value_or("")).value_or(DateTime(1, 1, 1));
  const Rows rows = plant.Run(R"(
select MACHINE_ID, MACHINE_DATA_ID, START_TIME, ID_BEFORE, STOP_BEFORE from
  (select MACHINE_ID, MACHINE_DATA_ID, START_TIME, lag(MACHINE_DATA_ID) over CHAIN as ID_BEFORE,
    lag(STOP_TIME) over CHAIN as STOP_BEFORE, lag(coalesce(CHART_DATE, START_TIME)) over CHAIN as DAY_BEFORE
    from T_SFC_MACHINE_DATA where coalesce(IS_MANUAL, 0) = 0
    window CHAIN as (partition by MACHINE_ID order by MACHINE_DATA_ID)) as LINKS
  where STOP_BEFORE <> START_TIME and DAY_BEFORE >= ? order by MACHINE_DATA_ID)",
                              {purged});
  CheckRows(findings, "chains of records", rows, [&](std::size_t i) {
    const bool gap = rows.at(i, 4).ToDateTime() < rows.at(i, 2).ToDateTime();
    return Finding{
        kFailed, Concat("machine ", rows.at(i, 0).ToText(), gap ? ": gap" : ": overlap", " between record ",
                        rows.at(i, 3).ToText(), ", which stops at ", rows.at(i, 4).ToText(), ", and record ",
                        rows.at(i, 1).ToText(), ", which starts at ", rows.at(i, 2).ToText(),
                        "; correct the time that was changed by hand")};
  });
}

void CheckTimes(Plant& plant, Findings& findings) {
  const Rows rows = plant.Run(R"(
select MACHINE_DATA_ID, MACHINE_ID from T_SFC_MACHINE_DATA where STOP_TIME < START_TIME or SETUP_TIME < 0
  or TEARDOWN_TIME < 0 or CYCLE_TIME < 0 or IDLE_TIME < 0 order by MACHINE_DATA_ID)");
  CheckRows(findings, "times of records", rows, [&](std::size_t i) {
    return Finding{kNote,
                   Concat("record ", rows.at(i, 0).ToText(), " of machine ", rows.at(i, 1).ToText(),
                          " has a negative time: an event was older than the one before it; the sums over "
                          "the records are right, and nothing needs to be done")};
  });
}

// The texts that a successor of an open record takes over.
void CheckTexts(Plant& plant, std::int32_t dialect, Findings& findings) {
  const Rows rows = plant.Run(R"(
select MACHINE_DATA_ID, MACHINE_ID, JOB_NUMBER, PART_NUMBER, USER_NAME, OP_NUMBER from T_SFC_MACHINE_DATA
  where STOP_TIME is null and (JOB_NUMBER like '%''%' or PART_NUMBER like '%''%' or USER_NAME like '%''%'
  or OP_NUMBER like '%''%') order by MACHINE_DATA_ID)");
  CheckRows(findings, "texts of open records", rows, [&](std::size_t i) {
    std::size_t column = 2;
    while (rows.at(i, column).ToTextOr("").find('\'') == std::string::npos) ++column;
    return Finding{
        dialect == kSqlServer ? kFailed : kNote,
        Concat("record ", rows.at(i, 0).ToText(), " of machine ", rows.at(i, 1).ToText(), " has \"",
               rows.at(i, column).ToText(), "\" as ", rows.columns[column],
               ", and under --dialect sqlserver no event that needs a new record goes through; take the "
               "apostrophe out of it, or end it")};
  });
}

void CheckRunningEvents(Plant& plant, Findings& findings) {
  const Rows lost = plant.Run(R"(
select MACHINE_EVENT_ID, MACHINE_ID from T_SFC_MACHINE_EVENT r
  where not exists (select 1 from T_SFC_EVENT e where e.EVENT_ID = r.EVENT_ID) order by MACHINE_EVENT_ID)");
  CheckRows(findings, "running events", lost, [&](std::size_t i) {
    const std::string row = "row " + lost.at(i, 0).ToText() + " of T_SFC_MACHINE_EVENT";
    return Finding{
        kFailed, Concat(row, " names an event that does not exist; delete it"),
        Repair{
            "delete " + row, "delete from T_SFC_MACHINE_EVENT where MACHINE_EVENT_ID = ?", {lost.at(i, 0)}}};
  });
  const Rows twice = plant.Run(R"(
select MACHINE_ID, COMMAND_ID, count(*) as N from T_SFC_MACHINE_EVENT group by MACHINE_ID, COMMAND_ID
  having count(*) > 1 order by MACHINE_ID, COMMAND_ID)");
  CheckRows(findings, "running events of a command", twice, [&](std::size_t i) {
    return Finding{kFailed,
                   Concat("command ", twice.at(i, 1).ToTextOr("NULL"), " runs ", twice.at(i, 2).ToText(),
                          " times on machine ", twice.at(i, 0).ToTextOr("NULL"),
                          "; give all but the last event a STOP_TIME and delete their rows of "
                          "T_SFC_MACHINE_EVENT")};
  });
  const Rows endless = plant.Run(R"(
select EVENT_ID, MACHINE_ID from T_SFC_EVENT e where STOP_TIME is null
  and not exists (select 1 from T_SFC_MACHINE_EVENT r where r.EVENT_ID = e.EVENT_ID) order by EVENT_ID)");
  CheckRows(findings, "ends of events", endless, [&](std::size_t i) {
    return Finding{kFailed, Concat("event ", endless.at(i, 0).ToText(), " of machine ",
                                   endless.at(i, 1).ToTextOr("NULL"), " never ends; give it a STOP_TIME")};
  });
}

// What apply would refuse in a file: names that would stop the queue, shifts that overlap, and so on.
void CheckMasterData(Plant& plant, Findings& findings) {
  const std::vector<Problem> problems = CheckPlant(plant);
  for (const Problem& problem : problems) findings.push_back({kFailed, problem.text});
  const std::vector<std::string> missing = MissingCommands(DescribePlant(plant));
  for (const std::string& each : missing) findings.push_back({kMissing, each});
  if (problems.empty() && missing.empty()) findings.push_back({kOk, "master data"});
}

void CheckClock(kxdata7::Client& component, Findings& findings) {
  constexpr std::int64_t kMinute = 60;
  const DateTime server = ServerTime(component);
  const DateTime here = PlantTime(std::time(nullptr));
  if (std::abs(SecondsBetween(here, server)) <= kMinute) {
    findings.push_back({kOk, "clock: " + server.ToText()});
  } else {
    findings.push_back({kNote, Concat("clock: the database has ", server.ToText(), ", this machine ",
                                      here.ToText(), "; events are queued by the database's")});
  }
}

// Runs one check; what it raises is its finding.
template <class Check>
void Run(const char* name, Findings& findings, Check check) {
  try {
    check();
  } catch (const std::exception& error) {
    findings.push_back({kFailed, std::string(name) + ": " + error.what()});
  }
}

}  // namespace

std::vector<Finding> Examine(Plant& plant, std::int32_t dialect) {
  Findings findings;
  std::vector<TableSchema> complete;
  for (const TableSchema& table : ReadSchemaTables(SchemaSql(SchemaName(plant, dialect)))) {
    if (CheckTable(plant, table, findings)) complete.push_back(table);
  }
  const auto add = [&](std::vector<Finding> more) { std::ranges::move(more, std::back_inserter(findings)); };
  Run("options", findings, [&] { CheckOptions(plant, findings); });
  Run("machines", findings, [&] { CheckMachines(plant, findings); });
  if (plant.db.target() == SqlTarget::kNative) return findings;
  Run("tables", findings, [&] { add(ExamineObjects(plant)); });
  Run("values", findings, [&] { add(ExamineValues(plant, complete)); });
  Run("master data", findings, [&] { CheckMasterData(plant, findings); });
  Run("chains of records", findings, [&] { CheckChains(plant, findings); });
  Run("times of records", findings, [&] { CheckTimes(plant, findings); });
  Run("texts of open records", findings, [&] { CheckTexts(plant, dialect, findings); });
  Run("running events", findings, [&] { CheckRunningEvents(plant, findings); });
  return findings;
}

std::vector<Finding> ExamineComponent(const PlantOptions& options) {
  Findings findings;
  Run("component", findings, [&] {
    kxdata7::Client component = ConnectComponent(options);
    if (!component.IsConnected()) throw ToolError("the database does not answer its probe, T_KXES_PTYPE");
    findings.push_back({kOk, "component"});
    Run("clock", findings, [&] { CheckClock(component, findings); });
    for (std::int32_t index = 0; const auto trial = component.Try(index); ++index) {
      const bool good = trial->error.empty();
      findings.push_back({good ? kOk : kFailed, good ? trial->name : trial->name + ": " + trial->error});
    }
  });
  return findings;
}

}  // namespace kx::tool
