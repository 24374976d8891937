#include "session/insert_row.h"

#include "database/database_error.h"
#include "database/text.h"
#include "session/sql_dialect.h"

namespace kx {
namespace {

// A value in the VALUES list of an identity batch. A text stands between its quotes exactly as it is.
std::string BatchValue(const Value& value) {
  if (const auto* time = std::get_if<DateTime>(&value.data())) {
    return Concat("'", time->Format("MM/dd/yyyy hh:mm:ss"), "'");
  }
  const bool quoted = std::holds_alternative<std::string>(value.data());
  return quoted ? Concat("'", value.ToText(), "'") : value.ToText();
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
      Concat("SET NOCOUNT ON; SET DATEFORMAT MDY; INSERT INTO ", table, " (", columns, ") VALUES (", values,
             "); SELECT SCOPE_IDENTITY() AS [SCOPE_IDENTITY]; SET NOCOUNT OFF;"));
  if (identity.count() == 0) throw NoCurrentRowError();
  return identity.at(0, 0).ToInt32();
}

}  // namespace kx
