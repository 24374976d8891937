#include <array>

#include "views/listings.h"
#include "views/table.h"

namespace kx::tool {
namespace {

// What a record is about, as numbers and names: those that the master tables know, else those reported.
constexpr const char* kContextColumns =
    "(select JOB_NUMBER from T_SFC_JOB j where j.JOB_ID = d.JOB_ID) as KNOWN_JOB, d.JOB_NUMBER, "
    "(select PART_NUMBER from T_SFC_PART p where p.PART_ID = d.PART_ID) as KNOWN_PART, d.PART_NUMBER, "
    "(select OP_NUMBER from T_SFC_OP o where o.OP_ID = d.OP_ID) as KNOWN_OP, d.OP_NUMBER, d.USER_NAME";
constexpr std::array kContextTitles = {"job", "part", "operation", "operator"};

void AppendContext(std::vector<Value>& row, const Rows& rows, std::size_t index, std::size_t column) {
  for (int pair = 0; pair < 3; ++pair, column += 2) {
    const Value& known = rows.at(index, column);
    row.push_back(known.IsNull() ? rows.at(index, column + 1) : known);
  }
  row.push_back(rows.at(index, column));
}

std::string RecordStatusName(const Value& code) {
  switch (code.ToInt32Or(-1)) {
    case 0: return "open";
    case 1: return "closed";
    case 2: return "complete";
    default: return "";
  }
}

std::vector<std::string> Titles(std::initializer_list<const char*> before,
                                std::initializer_list<const char*> after) {
  std::vector<std::string> titles(before.begin(), before.end());
  titles.insert(titles.end(), kContextTitles.begin(), kContextTitles.end());
  titles.insert(titles.end(), after.begin(), after.end());
  return titles;
}

}  // namespace

std::string StatusName(const Value& status_code) {
  constexpr std::array kNames = {"idle", "setup", "in cycle", "downtime", "teardown"};
  const std::int32_t code = status_code.ToInt32Or(-1);
  if (code < 0 || static_cast<std::size_t>(code) >= kNames.size()) return "status " + std::to_string(code);
  return kNames[static_cast<std::size_t>(code)];
}

void PrintStatus(Plant& plant, std::ostream& output, bool csv) {
  const Rows rows = plant.Run(
      std::string("select m.MACHINE_ID, m.VELKARIS_ID, m.MACHINE_NAME, m.STATUS_CODE, m.STATUS_DATE, "
                  "m.MACHINE_DATA_ID, ") +
      kContextColumns +
      " from T_SFC_MACHINE m left join T_SFC_MACHINE_DATA d on d.MACHINE_DATA_ID = m.MACHINE_DATA_ID"
      " order by m.MACHINE_ID");
  Table table(Titles({"machine", "dnc_number", "name", "status", "since", "record"}, {}));
  for (std::size_t i = 0; i < rows.count(); ++i) {
    std::vector<Value> row = {rows.at(i, 0), rows.at(i, 1), rows.at(i, 2), StatusName(rows.at(i, 3)),
                              rows.at(i, 4), rows.at(i, 5)};
    AppendContext(row, rows, i, 6);
    table.Add(std::move(row));
  }
  table.Print(output, csv);
}

void PrintRecords(Plant& plant, const RecordFilter& filter, std::ostream& output, bool csv) {
  std::string sql = std::string(
                        "select d.MACHINE_DATA_ID, d.MACHINE_ID, d.START_TIME, d.STOP_TIME, "
                        "(select SHIFT_NAME from T_SFC_SHIFT s where s.SHIFT_ID = d.SHIFT_ID) as SHIFT_NAME, "
                        "d.CHART_DATE, d.STATUS_CODE, d.SETUP_TIME, d.CYCLE_TIME, d.FINISHED_CYCLES, "
                        "d.UNFINISHED_CYCLES, d.TEARDOWN_TIME, d.IDLE_TIME, "
                        "(select sum(DURATION) from T_SFC_DT_PER_MACHINE_DATA t "
                        "where t.MACHINE_DATA_ID = d.MACHINE_DATA_ID) as DOWNTIME, "
                        "d.GOOD_COUNT, d.SCRAPPED_COUNT, ") +
                    kContextColumns + " from T_SFC_MACHINE_DATA d";
  std::vector<Value> parameters;
  const auto restrict = [&](const char* condition, Value value) {
    sql += (parameters.empty() ? " where " : " and ") + std::string(condition);
    parameters.push_back(std::move(value));
  };
  if (filter.machine) restrict("d.MACHINE_ID = ?", plant.FindId("T_SFC_MACHINE", *filter.machine));
  if (filter.day) {
    restrict("d.CHART_DATE >= ?", filter.day->Date());
    restrict("d.CHART_DATE < ?", filter.day->Date().AddDays(1));
  }
  const Rows rows =
      plant.db.ExecuteDirect(sql + " order by d.MACHINE_ID, d.START_TIME, d.MACHINE_DATA_ID", parameters);

  Table table(Titles({"record", "machine", "start", "stop", "shift", "chart_date", "status"},
                     {"setup_h", "cycle_min", "finished", "unfinished", "teardown_h", "idle_h", "downtime_h",
                      "good", "scrapped"}));
  for (std::size_t i = 0; i < rows.count(); ++i) {
    std::vector<Value> row;
    for (std::size_t column = 0; column < 5; ++column) row.push_back(rows.at(i, column));
    row.push_back(rows.at(i, 5).ToTextOr("").substr(0, std::string_view("YYYY-MM-DD").size()));
    row.push_back(RecordStatusName(rows.at(i, 6)));
    AppendContext(row, rows, i, 16);
    for (std::size_t column = 7; column < 16; ++column) row.push_back(rows.at(i, column));
    table.Add(std::move(row));
  }
  table.Print(output, csv);
}

}  // namespace kx::tool
