#include "plant/health_tables.h"

#include <algorithm>

#include "database/text.h"
#include "plant/grants.h"

namespace kx::tool {
namespace {

using enum Finding::Grade;

// Kind, table and name of each.
constexpr std::string_view kSqliteObjects = R"(
select type, tbl_name, name from sqlite_schema
  where type in ('view', 'trigger') and tbl_name like 'T\_SFC\_%' escape '\'
union all select 'column', s.name, c.name from sqlite_schema s, pragma_table_xinfo(s.name) c
  where s.type = 'table' and s.name like 'T\_SFC\_%' escape '\' and c.hidden in (2, 3)
order by 2, 1, 3)";
constexpr std::string_view kPostgresObjects = R"(
with PLANT as (select oid, relname, relkind from pg_class
  where relnamespace = current_schema()::regnamespace and relname like 't\_sfc\_%')
select 'view' as KIND, relname as TABLE_NAME, relname as NAME from PLANT where relkind in ('v', 'm')
union all select 'trigger', p.relname, t.tgname from pg_trigger t inner join PLANT p on p.oid = t.tgrelid
  where not t.tgisinternal
union all select 'rule', p.relname, r.rulename from pg_rewrite r inner join PLANT p on p.oid = r.ev_class
  where r.rulename <> '_RETURN'
union all select 'column', p.relname, a.attname from pg_attribute a inner join PLANT p on p.oid = a.attrelid
  where a.attgenerated <> ''
order by 2, 1, 3)";

Finding Judge(std::string_view kind, const std::string& table, const std::string& name) {
  const bool written = IsWrittenByComponent(table);
  if (kind == "view" && written)
    return {kFailed, Concat(table, " is a view, and nothing can be queued or worked in; make it a table")};
  if (kind == "view") return {kNote, Concat(table, " is a view; the component only reads it")};
  if (kind == "column") {
    return {kFailed, Concat("column ", name, " of ", table,
                            " is computed by the database, and cannot be written; make it a plain one")};
  }
  return {kNote,
          Concat(kind, " ", name, " on ", table,
                 ": it may refuse or change what is written there; look at it first when an event fails "
                 "or a record is not what was reported")};
}

enum class Kind { kAny, kTime, kInteger, kReal };

Kind KindOf(const ColumnSchema& column) {
  const auto has = [&](std::string_view type) { return column.definition.find(type) != std::string::npos; };
  if (has("DATETIME") || has("TIMESTAMP")) return Kind::kTime;
  if (has(" INTEGER")) return Kind::kInteger;
  return has(" REAL") ? Kind::kReal : Kind::kAny;
}

// Whether a row may have a bad value in a column, for the database to tell; empty: it has none.
std::string Suspicion(const ColumnSchema& column, SqlTarget target) {
  const std::string& name = column.name;
  const Kind kind = KindOf(column);
  if (target == SqlTarget::kPostgres) {
    return kind != Kind::kTime
               ? ""
               : Concat(name, " not between timestamp '0001-01-01' and timestamp '9999-12-31 23:59:59'");
  }
  switch (kind) {
    case Kind::kTime:
      return Concat("(", name, " is not null and datetime(", name, ") is not ", name, " and date(", name,
                    ") is not ", name, ")");
    case Kind::kInteger: return Concat("typeof(", name, ") not in ('integer', 'null')");
    case Kind::kReal: return Concat("typeof(", name, ") not in ('real', 'integer', 'null')");
    case Kind::kAny: break;
  }
  return "";
}

// What is wrong with a value of a column; empty: nothing.
std::string_view Fault(const ColumnSchema& column, const Value& value) {
  if (value.IsNull()) return "";
  try {
    switch (KindOf(column)) {
      case Kind::kTime: value.ToDateTime(); break;
      case Kind::kInteger: value.ToInt32(); break;
      case Kind::kReal: value.ToFloat(); break;
      case Kind::kAny: break;
    }
    return "";
  } catch (const DatabaseError&) {
    return KindOf(column) == Kind::kTime ? "no date and time of the years 1 to 9999"
                                         : "no number that it can hold";
  }
}

void ExamineTable(Plant& plant, const TableSchema& table, std::vector<Finding>& findings) {
  constexpr std::size_t kMostShown = 5;
  std::string columns;  // the key is the first
  std::string where;
  for (const ColumnSchema& column : table.columns) {
    // As text, so that the driver has not to make a date of it.
    const bool as_text = plant.db.target() == SqlTarget::kPostgres && KindOf(column) == Kind::kTime;
    Append(columns, columns.empty() ? "" : ", ", as_text ? "cast(" : "", column.name,
           as_text ? " as text)" : "");
    const std::string suspicion = Suspicion(column, plant.db.target());
    if (!suspicion.empty()) Append(where, where.empty() ? "" : " or ", suspicion);
  }
  if (where.empty()) return;
  const Rows rows = plant.Run(
      Concat("select ", columns, " from ", table.name, " where ", where, " order by 1 limit ", 100));
  std::size_t shown = 0;
  for (std::size_t i = 0; i < rows.count(); ++i) {
    for (std::size_t c = 0; c < table.columns.size() && shown < kMostShown; ++c) {
      const Value& value = rows.at(i, c);
      const std::string_view fault = Fault(table.columns[c], value);
      if (fault.empty()) continue;
      ++shown;
      findings.push_back({kFailed, Concat("row ", rows.at(i, 0).ToTextOr("NULL"), " of ", table.name, ": ",
                                          table.columns[c].name, " is \"", value.ToTextOr(""),
                                          "\", which is ", fault, "; correct it")});
    }
  }
}

}  // namespace

std::vector<Finding> ExamineObjects(Plant& plant) {
  const bool sqlite = plant.db.target() == SqlTarget::kSqlite;
  const Rows rows = plant.Run(sqlite ? kSqliteObjects : kPostgresObjects);
  std::vector<Finding> findings;
  for (std::size_t i = 0; i < rows.count(); ++i) {
    findings.push_back(Judge(rows.at(i, 0).ToText(), rows.at(i, 1).ToText(), rows.at(i, 2).ToText()));
  }
  return findings;
}

std::vector<Finding> ExamineValues(Plant& plant, const std::vector<TableSchema>& tables) {
  std::vector<Finding> findings;
  for (const TableSchema& table : tables) ExamineTable(plant, table, findings);
  if (findings.empty()) findings.push_back({kOk, "values"});
  return findings;
}

}  // namespace kx::tool
