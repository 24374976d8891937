#include "plant/copy.h"

#include <algorithm>
#include <array>
#include <limits>

#include "database/ascii.h"
#include "database/text.h"
#include "plant/schema_sql.h"
#include "plant/schema_tables.h"
#include "plant/schema_version.h"

namespace kx::tool {
namespace {

constexpr std::size_t kRowsAtOnce = 200;
constexpr std::int64_t kBeforeAllKeys = std::numeric_limits<std::int32_t>::min();
// A new plant has rows in these; the source's take their place.
constexpr std::array<std::string_view, 4> kFilledByCreate = {"T_KXES_PTYPE", "T_SFC_COMMAND", "T_SFC_OPTION",
                                                             "T_SFC_SETTING"};

struct Column {
  std::string name;
  bool single_precision;
};

struct CopiedTable {
  std::string name;
  std::vector<Column> columns;  // those that both sides have, the key first
  std::int64_t rows = 0;

  const std::string& key() const { return columns.front().name; }
  std::string ColumnList() const {
    std::string list;
    for (const Column& column : columns) Append(list, list.empty() ? "" : ", ", column.name);
    return list;
  }
};

std::int64_t Number(Plant& plant, const std::string& sql, std::initializer_list<Value> parameters = {}) {
  const Rows rows = plant.Run(sql, parameters);
  if (rows.count() == 0 || rows.at(0, 0).IsNull()) return 0;
  return std::get<std::int64_t>(rows.at(0, 0).data());
}

std::int64_t CountRows(Plant& plant, std::string_view table) {
  return Number(plant, Concat("select count(*) from ", table));
}

// The source shows what it has now until its link is closed, and lets others write.
void BeginSnapshot(Plant& source) {
  if (source.db.target() == SqlTarget::kSqlite) {
    source.Run("BEGIN");
    Number(source, "select count(*) from sqlite_schema");
  } else {
    source.Run("SET SESSION CHARACTERISTICS AS TRANSACTION ISOLATION LEVEL REPEATABLE READ, READ ONLY");
    source.db.Begin();
  }
}

std::vector<std::string> TablesOf(Plant& plant) {
  const Rows rows =
      plant.Run(plant.db.target() == SqlTarget::kSqlite
                    ? "select name from sqlite_schema where type = 'table' and name not like 'sqlite%'"
                    : "select tablename from pg_tables where schemaname = current_schema()");
  std::vector<std::string> names;
  for (const Value& name : rows.values) names.push_back(name.ToText());
  return names;
}

// What there is to copy: the tables of the schema that the source has, with its columns.
std::vector<CopiedTable> PlanCopy(Plant& source, std::string_view schema, CopyResult& result) {
  std::vector<std::string> present = TablesOf(source);
  std::vector<CopiedTable> plan;
  for (const TableSchema& table : ReadSchemaTables(schema)) {
    const auto found =
        std::ranges::find_if(present, [&](const auto& name) { return EqualsIgnoringCase(name, table.name); });
    if (found == present.end()) continue;
    present.erase(found);
    CopiedTable& copied = plan.emplace_back(CopiedTable{table.name, {}});
    const ColumnNames columns = source.Run(Concat("select * from ", table.name, " where 1 = 0")).columns;
    std::vector<std::string> unknown(columns.begin(), columns.end());
    for (const ColumnSchema& column : table.columns) {
      const auto is_column = [&](const std::string& name) { return EqualsIgnoringCase(name, column.name); };
      if (std::erase_if(unknown, is_column) > 0)
        copied.columns.push_back({column.name, column.definition.ends_with(" REAL")});
    }
    for (const std::string& name : unknown)
      result.left_out.push_back(Concat("column ", name, " of ", table.name));
    copied.rows = CountRows(source, table.name);
    result.rows += copied.rows;
    ++result.tables;
  }
  for (const std::string& name : present) result.left_out.push_back("table " + name);
  return plan;
}

void RequireEmpty(Plant& target, std::string_view schema) {
  for (const TableSchema& table : ReadSchemaTables(schema)) {
    if (std::ranges::find(kFilledByCreate, table.name) != kFilledByCreate.end()) {
      target.Run("delete from " + table.name);
    } else if (CountRows(target, table.name) > 0) {
      throw ToolError("the plant to copy into is not empty: there are rows in " + table.name);
    }
  }
}

Rows ReadAfter(Plant& plant, const CopiedTable& table, std::int64_t key) {
  return plant.Run(Concat("select ", table.ColumnList(), " from ", table.name, " where ", table.key(),
                          " > ? order by ", table.key(), " limit ", kRowsAtOnce),
                   {key});
}

void Insert(Plant& target, const CopiedTable& table, const Rows& rows) {
  std::string row = "(?";
  for (std::size_t i = 1; i < table.columns.size(); ++i) row += ", ?";
  std::string sql = Concat("insert into ", table.name, " (", table.ColumnList(), ") values ");
  for (std::size_t i = 0; i < rows.count(); ++i) Append(sql, i == 0 ? "" : ", ", row, ")");
  target.db.ExecuteDirect(sql, rows.values);
}

// Hands out the rows of a table in pieces, in the order of their keys.
template <class Use>
void ForEachPiece(Plant& plant, const CopiedTable& table, Use use) {
  for (std::int64_t last = kBeforeAllKeys;;) {
    const Rows rows = ReadAfter(plant, table, last);
    if (rows.count() == 0) return;
    use(rows);
    last = std::get<std::int64_t>(rows.at(rows.count() - 1, 0).data());
  }
}

bool Same(const Value& a, const Value& b, bool single_precision) {
  if (!single_precision || a.IsNull() || b.IsNull()) return a == b;
  return a.ToFloat() == b.ToFloat();
}

// Raises a ToolError for a row of `found` that is not as in `expected`.
void Compare(const CopiedTable& table, const Rows& expected, const Rows& found) {
  const std::size_t width = table.columns.size();
  for (std::size_t row = 0; row < expected.count(); ++row) {
    for (std::size_t i = 0; i < width; ++i) {
      if (row < found.count() &&
          Same(expected.at(row, i), found.at(row, i), table.columns[i].single_precision))
        continue;
      throw ToolError(Concat("the copy differs: ", table.name, ", row ", expected.at(row, 0).ToText(), ", ",
                             table.columns[i].name));
    }
  }
}

// New rows of the copy get the keys that they would get in the source: a key that was in use once may still
// be named elsewhere.
void CopyKeyCounter(Plant& source, Plant& target, const CopiedTable& table) {
  const bool from_sqlite = source.db.target() == SqlTarget::kSqlite;
  const std::int64_t counter =
      from_sqlite ? Number(source, "select seq from sqlite_sequence where name = ?", {table.name})
                  : Number(source, Concat("select pg_sequence_last_value(pg_get_serial_sequence('",
                                          table.name, "', '", ToLowerAscii(table.key()), "')::regclass)"));
  const std::int64_t last =
      std::max(counter, Number(target, Concat("select max(", table.key(), ") from ", table.name)));
  if (last < 1) return;
  if (target.db.target() == SqlTarget::kSqlite) {
    target.Run("delete from sqlite_sequence where name = ?", {table.name});
    target.Run("insert into sqlite_sequence (name, seq) values (?, ?)", {table.name, last});
  } else {
    target.Run(Concat("select setval(pg_get_serial_sequence('", table.name, "', '", ToLowerAscii(table.key()),
                      "'), ?)"),
               {last});
  }
}

}  // namespace

CopyResult CopyPlant(
    const PlantOptions& from, const PlantOptions& to,
    const std::function<void(std::string_view what, std::int64_t done, std::int64_t total)>& progress) {
  Plant source(from, OpenMode::kReadOnly);
  Plant target(to, OpenMode::kCreate);
  if (source.db.target() == SqlTarget::kNative || target.db.target() == SqlTarget::kNative)
    throw ToolError("copy knows plants on SQLite and PostgreSQL; use the database's own tools");
  CopyResult result;
  BeginSnapshot(source);
  target.db.Begin();
  BringUpToDate(target);
  const std::string_view schema = SchemaSql(SchemaName(target, to.dialect));
  const std::vector<CopiedTable> plan = PlanCopy(source, schema, result);
  if (plan.empty()) throw ToolError("the database to copy from is no plant");
  RequireEmpty(target, schema);
  std::int64_t done = 0;
  const auto report = [&](std::string_view what, const Rows& rows) {
    done += static_cast<std::int64_t>(rows.count());
    progress(what, done, result.rows);
  };
  for (const CopiedTable& table : plan) {
    ForEachPiece(source, table, [&](const Rows& rows) {
      Insert(target, table, rows);
      report("rows copied", rows);
    });
    CopyKeyCounter(source, target, table);
  }
  done = 0;
  for (const CopiedTable& table : plan) {
    if (CountRows(target, table.name) != table.rows)
      throw ToolError("the copy differs: the number of rows in " + table.name);
    std::int64_t last = kBeforeAllKeys;
    ForEachPiece(source, table, [&](const Rows& rows) {
      Compare(table, rows, ReadAfter(target, table, last));
      last = std::get<std::int64_t>(rows.at(rows.count() - 1, 0).data());
      report("rows compared", rows);
    });
  }
  if (const std::int32_t version = ReadSchemaVersion(source); version != kSchemaVersion) {
    WriteSchemaVersion(target, version);
    BringUpToDate(target);
  }
  target.db.Commit();
  return result;
}

}  // namespace kx::tool
