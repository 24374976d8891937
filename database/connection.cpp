#include "database/connection.h"

#include "database/database_error.h"
#include "database/table_key.h"
#include "database/text.h"

namespace kx {

void Connection::Open(std::string_view connection_string) {
  Close();
  engine_ = opener_(ConnectionString::Parse(connection_string), waiting_);
}

void Connection::Close() noexcept {
  engine_.reset();
  in_transaction_ = false;
}

Engine& Connection::engine() const {
  if (engine_ == nullptr) throw ClosedError();
  return *engine_;
}

Engine& Connection::ReadyEngine() const {
  Engine& ready = engine();
  if (transaction_ended()) throw TransactionEndedError();
  return ready;
}

Rows Connection::Execute(std::string_view sql,
                         Rows (Engine::*run)(std::string_view, std::span<const Value>)) {
  Engine& ready = ReadyEngine();
  if (ready.target() == SqlTarget::kNative) return (ready.*run)(sql, {});
  const Statement& statement = translator_.Translate(sql, ready.target());
  return (ready.*run)(statement.text, statement.parameters);
}

void Connection::ExecuteDeferred(std::string_view sql, std::string_view others) {
  switch (ReadyEngine().deferral()) {
    case Engine::Deferral::kNone: Execute(sql); return;
    case Engine::Deferral::kByCondition:  // on a server, where a question of its own is a round trip
      Execute(Concat(sql, " and case when (", others, ") is null then true else ",
                     engine().DeferringCondition(), " end"));
      return;
    case Engine::Deferral::kByCall: break;
  }
  bool waits = false;
  try {
    waits = !Execute(others).at(0, 0).IsNull();
  } catch (const DatabaseError&) {
    // It cannot be told: the disk is waited for.
  }
  Execute(sql, waits ? &Engine::ExecuteDeferred : &Engine::Execute);
}

Rows Connection::ExecuteDirect(std::string_view sql, std::span<const Value> parameters) {
  return ReadyEngine().Execute(sql, parameters);
}

std::int64_t Connection::InsertDirect(std::string_view sql, std::span<const Value> parameters,
                                      std::string_view table, std::string_view key_column) {
  return ReadyEngine().Insert(sql, parameters, table, key_column);
}

std::int64_t Connection::InsertRow(std::string_view table, std::span<const ColumnValue> columns) {
  std::string names;
  std::string marks;
  std::vector<Value> values;
  values.reserve(columns.size());
  for (const ColumnValue& column : columns) {
    const std::string_view separator = values.empty() ? "" : ", ";
    Append(names, separator, column.column);
    Append(marks, separator, "?");
    values.push_back(column.value);
  }
  return InsertDirect(Concat("INSERT INTO ", table, " (", names, ") VALUES (", marks, ")"), values, table,
                      KeyColumnOf(table));
}

bool Connection::UpdateRow(std::string_view table, std::span<const ColumnValue> columns, const Value& key) {
  std::string sql = Concat("UPDATE ", table, " SET ");
  std::vector<Value> values;
  values.reserve(columns.size() + 1);
  for (const ColumnValue& column : columns) {
    Append(sql, values.empty() ? "" : ", ", column.column, " = ?");
    values.push_back(column.value);
  }
  Append(sql, " WHERE ", KeyColumnOf(table), " = ?");
  values.push_back(key);
  return ExecuteDirect(sql, values).affected > 0;
}

void Connection::Begin() {
  if (in_transaction_) throw DatabaseError("A transaction is already open on this connection.");
  engine().Begin();
  in_transaction_ = true;
}

void Connection::Commit() {
  if (!in_transaction_) throw DatabaseError("No transaction is open.", ErrorCategory::kTransactionEnded);
  try {
    ReadyEngine().Commit();
  } catch (const DatabaseError& error) {
    if (error.category() == ErrorCategory::kUnknownOutcome) in_transaction_ = false;
    throw;
  }
  in_transaction_ = false;
}

void Connection::Rollback() {
  if (in_transaction_ && !transaction_ended()) engine().Rollback();
  in_transaction_ = false;
}

}  // namespace kx
