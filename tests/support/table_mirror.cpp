#include "tests/support/table_mirror.h"

#include <array>
#include <stdexcept>

#include "database/sql_script.h"
#include "database/table_key.h"
#include "database/text.h"
#include "plant/schema_tables.h"
#include "tests/support/written_tables.h"

namespace kx::test {
namespace {

bool IsNamePart(char c) { return c == '_' || (c >= 'A' && c <= 'Z'); }

bool Names(std::string_view sql, std::string_view table) {
  for (std::size_t at = sql.find(table); at != std::string_view::npos; at = sql.find(table, at + 1)) {
    const std::size_t end = at + table.size();
    if (end == sql.size() || !IsNamePart(sql[end])) return true;
  }
  return false;
}

}  // namespace

TableMirror::TableMirror(Connection& link, std::string_view sqlite_schema, bool identity_insert)
    : link_(link), identity_insert_(identity_insert) {
  copy_.Open("Provider=SQLite;Data Source=:memory:");
  for (const std::string& statement : SplitStatements(sqlite_schema)) copy_.ExecuteDirect(statement);
  for (const auto& table : tool::ReadSchemaTables(sqlite_schema)) {
    tables_.push_back(table.name);
    saved_[table.name] = Read(copy_, table.name);
  }
}

Rows TableMirror::Read(Connection& from, const std::string& table) {
  return from.ExecuteDirect(Concat("select * from ", table, " order by 1"));
}

void TableMirror::Write(Connection& to, const std::string& table, const Rows& rows) {
  const bool alone = !to.in_transaction();
  if (alone) to.Begin();
  to.ExecuteDirect(Concat("delete from ", table));
  std::string names, marks;
  for (const std::string& column : rows.columns) {
    Append(names, names.empty() ? "" : ", ", column);
    Append(marks, marks.empty() ? "?" : ", ?");
  }
  const bool own_keys = identity_insert_ && &to == &link_;
  if (own_keys) to.ExecuteDirect(Concat("SET IDENTITY_INSERT ", table, " ON"));
  const std::string insert = Concat("insert into ", table, " (", names, ") values (", marks, ")");
  for (std::size_t row = 0; row < rows.count(); ++row)
    to.ExecuteDirect(insert, {&rows.at(row, 0), rows.columns.size()});
  if (own_keys) to.ExecuteDirect(Concat("SET IDENTITY_INSERT ", table, " OFF"));
  if (alone) to.Commit();
}

namespace {

// Applies `change` to every key in the rows that a counter gave.
template <class Change>
Rows WithKeys(Rows rows, Change change) {
  for (std::size_t column = 0; column < rows.columns.size(); ++column) {
    const WrittenTable* const owner = OwnerOfKey(rows.columns[column]);
    if (owner == nullptr) continue;
    for (std::size_t row = 0; row < rows.count(); ++row) {
      Value& key = rows.values[row * rows.columns.size() + column];
      if (!key.IsNull()) key = change(owner->keys[0], std::int64_t{key.ToInt32()});
    }
  }
  return rows;
}

}  // namespace

Rows TableMirror::Shown(Rows rows) const {
  return WithKeys(std::move(rows), [&](std::string_view owner, std::int64_t key) {
    const Counter& counter = counters_.at(owner);
    return key > counter.given ? key - counter.given + counter.shown : key;
  });
}

Rows TableMirror::Given(Rows rows) const {
  return WithKeys(std::move(rows), [&](std::string_view owner, std::int64_t key) {
    const Counter& counter = counters_.at(owner);
    return key > counter.shown ? key - counter.shown + counter.given : key;
  });
}

std::int64_t TableMirror::TakeKey(std::string_view table) {
  const std::string key_column = KeyColumnOf(table);
  const std::string& column = saved_.at(std::string(table)).columns[1];
  const std::int64_t key = link_.InsertDirect(Concat("insert into ", table, " (", column, ") values (NULL)"),
                                              {}, table, key_column);
  link_.ExecuteDirect(Concat("delete from ", table, " where ", key_column, " = ?"), std::array{Value(key)});
  return key;
}

void TableMirror::Empty() {
  const Rows machines = link_.ExecuteDirect("select MACHINE_NAME from T_SFC_MACHINE");
  for (const Value& name : machines.values) {
    if (!name.ToTextOr("").starts_with("Mill "))
      throw std::runtime_error(
          "the database holds a plant: the tests delete all rows and need one of their own");
  }
  for (const std::string& table : tables_) link_.ExecuteDirect(Concat("delete from ", table));
  // The keys that the tests themselves give to the first records.
  constexpr std::int64_t kOwnKeys = 3;
  saved_counters_["MACHINE_DATA_ID"] = kOwnKeys;
  for (int i = 1; i < kOwnKeys && TakeKey("T_SFC_MACHINE_DATA") < kOwnKeys; ++i) continue;
  Restore();
}

Rows TableMirror::Run(std::string_view sql) {
  Tables named;
  for (const std::string& table : tables_) {
    if (!Names(sql, table)) continue;
    Write(copy_, table, Shown(Read(link_, table)));
    named[table] = Read(copy_, table);
  }
  Rows result = copy_.ExecuteDirect(sql);
  for (const auto& [table, before] : named) {
    if (const Rows after = Read(copy_, table); after.values != before.values)
      Write(link_, table, Given(after));
  }
  return result;
}

void TableMirror::Save() {
  for (const std::string& table : tables_) saved_[table] = Shown(Read(link_, table));
  for (const WrittenTable& table : kWrittenTables) {
    if (table.keys[0].empty()) continue;
    const Counter& counter = counters_.at(table.keys[0]);
    saved_counters_[table.keys[0]] =
        TakeKey(Concat("T_SFC_", table.name)) - 1 - counter.given + counter.shown;
  }
  Restore();
}

void TableMirror::Restore() {
  for (const auto& [table, rows] : saved_) {
    if (Read(link_, table).values != rows.values) Write(link_, table, rows);
  }
  for (const WrittenTable& table : kWrittenTables) {
    if (!table.keys[0].empty())
      counters_[table.keys[0]] = {TakeKey(Concat("T_SFC_", table.name)), saved_counters_[table.keys[0]]};
  }
}

}  // namespace kx::test
