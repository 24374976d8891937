#include "session/insert_row.h"

#include "database/database_error.h"
#include "database/statement_text.h"
#include "database/text.h"
#include "session/sql_dialect.h"

namespace kx {
namespace {

// A value in the VALUES list of an identity batch.
std::string BatchValue(const Value& value) {
  if (const auto* time = std::get_if<DateTime>(&value.data())) {
    return Concat("'", time->Format("MM/dd/yyyy hh:mm:ss"), "'");
  }
  const auto* text = std::get_if<std::string>(&value.data());
  return text != nullptr ? Quoted(*text) : value.ToText();
}

}  // namespace

std::int32_t InsertRow(Session& session, std::string_view table, std::span<const ColumnValue> columns) {
  RequireKnownDialect(session);
  if (session.database_type == DatabaseType::kSqlServer) {
    std::string names;
    std::string values;
    for (const ColumnValue& column : columns) {
      if (column.value.IsNull()) continue;
      const std::string_view separator = names.empty() ? "" : ", ";
      Append(names, separator, column.column);
      Append(values, separator, BatchValue(column.value));
    }
    return InsertAndGetIdentity(session, table, names, values);
  }
  return Value(session.connection.InsertRow(table, columns)).ToInt32();
}

std::int32_t InsertAndGetIdentity(Session& session, std::string_view table, std::string_view columns,
                                  std::string_view values) {
  const Rows identity = session.connection.Execute(
      IdentityBatch(Concat("INSERT INTO ", table, " (", columns, ") VALUES (", values, ")")));
  if (identity.count() == 0) throw NoCurrentRowError();
  return identity.at(0, 0).ToInt32();
}

}  // namespace kx
