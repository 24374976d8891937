#include <algorithm>
#include <array>
#include <cstdlib>
#include <ctime>
#include <iostream>

#include "database/ascii.h"
#include "plant/client.h"
#include "plant/schema_sql.h"
#include "plant/schema_tables.h"
#include "tools/doctor.h"

namespace kx::tool {
namespace {

constexpr const char* kAddedByCreate = "; \"kxdata7 create\" adds it";

// The findings, a line each, and whether all of them are good.
class Findings {
 public:
  void Ok(const std::string& what) { Print("ok", what); }
  void Note(const std::string& what) { Print("note", what); }
  void Missing(const std::string& what) { Print("missing", what, false); }
  void Failed(const std::string& what) { Print("failed", what, false); }
  bool healthy() const { return healthy_; }

 private:
  void Print(std::string word, std::string text, bool good = true) {
    word.resize(std::string_view("missing  ").size(), ' ');
    std::ranges::replace_if(
        text, [](char c) { return c == '\n' || c == '\r'; }, ' ');
    std::cout << word << text << '\n';
    healthy_ = healthy_ && good;
  }

  bool healthy_ = true;
};

void CheckTable(Plant& plant, const TableSchema& table, Findings& findings) {
  ColumnNames present;
  try {
    present = plant.Run("select * from " + table.name + " where 1 = 0").columns;
  } catch (const DatabaseError& error) {
    if (IsMissingTable(error)) {
      findings.Missing("table " + table.name + kAddedByCreate);
    } else {
      findings.Failed("table " + table.name + ": " + error.description());
    }
    return;
  }
  bool complete = true;
  for (const ColumnSchema& column : table.columns) {
    const auto is_column = [&](const std::string& name) { return EqualsIgnoringCase(name, column.name); };
    if (std::ranges::any_of(present, is_column)) continue;
    findings.Missing("column of " + table.name + "; add it as " + column.definition);
    complete = false;
  }
  if (complete) findings.Ok("table " + table.name);
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
    const std::string name = "option (2, " + std::to_string(option.code) + ")";
    const Rows rows =
        plant.Run("select BOOL_VAL from T_SFC_OPTION where APP_CODE = 2 and OPTION_CODE = ?", {option.code});
    if (rows.count() == 0) {
      findings.Missing(name + ", and " + option.without + kAddedByCreate);
    } else if (rows.at(0, 0).IsNull()) {
      findings.Missing("value of " + name + ", and " + option.without + "; set its BOOL_VAL to 0 or 1");
    } else {
      findings.Ok(name);
    }
  }
}

void CheckMachines(Plant& plant, Findings& findings) {
  const Rows rows = plant.Run(
      "select m.MACHINE_ID, m.MACHINE_DATA_ID, "
      "(select count(*) from T_SFC_MACHINE_DATA d where d.MACHINE_ID = m.MACHINE_ID and d.STOP_TIME is null) "
      "as OPEN_RECORDS, "
      "(select count(*) from T_SFC_MACHINE_DATA d where d.MACHINE_ID = m.MACHINE_ID and d.STOP_TIME is null "
      "and d.MACHINE_DATA_ID = m.MACHINE_DATA_ID) as CURRENT_RECORDS "
      "from T_SFC_MACHINE m order by m.MACHINE_ID");
  std::size_t good = 0;
  for (std::size_t i = 0; i < rows.count(); ++i) {
    const std::string name = "machine " + rows.at(i, 0).ToText();
    const std::int32_t open = rows.at(i, 2).ToInt32();
    if (open == 0) {
      findings.Missing("open record of " + name +
                       "; add a row without STOP_TIME and set the machine's MACHINE_DATA_ID to it");
    } else if (open > 1) {
      findings.Failed(name + " has " + std::to_string(open) + " open records; all but one need a STOP_TIME");
    } else if (rows.at(i, 3).ToInt32() == 0) {
      findings.Failed(name + " points at record " + rows.at(i, 1).ToTextOr("NULL") +
                      ", which is not its open record; set its MACHINE_DATA_ID to that");
    } else {
      ++good;
    }
  }
  if (good == rows.count()) findings.Ok("machines: " + std::to_string(good) + ", each with its open record");
}

void CheckClock(kxdata7::Client& component, Findings& findings) {
  constexpr std::int64_t kMinute = 60;
  const DateTime server = ServerTime(component);
  const DateTime here = PlantTime(std::time(nullptr));
  if (std::abs(SecondsBetween(here, server)) <= kMinute) {
    findings.Ok("clock: " + server.ToText());
  } else {
    findings.Note("clock: the database has " + server.ToText() + ", this machine " + here.ToText() +
                  "; events are queued by the database's");
  }
}

// Runs one check; what it raises is its finding.
template <class Check>
void Run(const std::string& name, Findings& findings, Check check) {
  try {
    check();
  } catch (const std::exception& error) {
    findings.Failed(name + ": " + error.what());
  }
}

}  // namespace

int Doctor(const PlantOptions& options) {
  Findings findings;
  std::optional<Plant> plant;
  Run("connection", findings, [&] { plant.emplace(options); });
  if (!plant) return 1;
  findings.Ok("connection");
  for (const TableSchema& table : ReadSchemaTables(SchemaSql(SchemaName(*plant, options.dialect))))
    CheckTable(*plant, table, findings);
  Run("options", findings, [&] { CheckOptions(*plant, findings); });
  Run("machines", findings, [&] { CheckMachines(*plant, findings); });
  Run("component", findings, [&] {
    kxdata7::Client component = ConnectComponent(options);
    if (!component.IsConnected()) throw ToolError("the database does not answer its probe, T_KXES_PTYPE");
    findings.Ok("component");
    Run("clock", findings, [&] { CheckClock(component, findings); });
    for (std::int32_t index = 0; const auto trial = component.Try(index); ++index) {
      if (trial->error.empty()) {
        findings.Ok(trial->name);
      } else {
        findings.Failed(trial->name + ": " + trial->error);
      }
    }
  });
  return findings.healthy() ? 0 : 1;
}

}  // namespace kx::tool
