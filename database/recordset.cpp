#include "database/recordset.h"

#include <algorithm>

#include "database/ascii.h"
#include "database/database_error.h"
#include "database/table_key.h"

namespace kx {

void Recordset::Open(Connection& connection, std::string_view sql) {
  Close();
  rows_ = connection.Execute(sql);
  connection_ = &connection;
  sql_ = sql;
}

void Recordset::Close() { *this = Recordset(); }

Connection& Recordset::connection() const {
  if (connection_ == nullptr) throw ClosedError();
  return *connection_;
}

void Recordset::RequireRow() const {
  if (IsEof()) throw NoCurrentRowError();
}

std::size_t Recordset::ColumnIndex(std::string_view name) const {
  auto found = std::ranges::find(rows_.columns, name);
  if (found == rows_.columns.end()) {
    found = std::ranges::find_if(rows_.columns,
                                 [&](const std::string& column) { return EqualsIgnoringCase(column, name); });
  }
  if (found == rows_.columns.end()) {
    throw DatabaseError(
        "Item cannot be found in the collection corresponding to the requested name or ordinal: " +
        std::string(name));
  }
  return static_cast<std::size_t>(found - rows_.columns.begin());
}

void Recordset::MoveFirst() {
  CancelUpdate();
  if (IsBof()) throw NoCurrentRowError();
  row_ = 0;
}

void Recordset::MoveNext() {
  CancelUpdate();
  if (IsEof()) throw NoCurrentRowError();
  ++row_;
}

bool Recordset::Find(std::string_view name, std::int32_t value) {
  const std::size_t column = ColumnIndex(name);
  while (!IsEof() && (rows_.at(row_, column).IsNull() || rows_.at(row_, column).ToInt32() != value)) ++row_;
  return !IsEof();
}

const Value& Recordset::Fields(std::string_view name) const {
  connection();
  RequireRow();
  const std::size_t column = ColumnIndex(name);
  const auto change = std::ranges::find(pending_, column, &Change::column);
  return change != pending_.end() ? change->value : rows_.at(row_, column);
}

void Recordset::Set(std::string_view name, Value value) {
  connection();
  RequireRow();
  const std::size_t column = ColumnIndex(name);
  const auto change = std::ranges::find(pending_, column, &Change::column);
  if (change != pending_.end()) {
    change->value = std::move(value);
  } else {
    pending_.push_back({column, std::move(value)});
  }
  edit_mode_ = EditMode::kInProgress;
}

void Recordset::CancelUpdate() {
  pending_.clear();
  edit_mode_ = EditMode::kNone;
}

std::string Recordset::Table() const {
  const auto is_part_of_name = [](char c) {
    return c == '_' || (ToLowerAscii(c) >= 'a' && ToLowerAscii(c) <= 'z');
  };
  const auto begin = std::search(sql_.begin(), sql_.end(), kTablePrefix.begin(), kTablePrefix.end());
  const auto end = std::find_if_not(begin, sql_.end(), is_part_of_name);
  if (begin == sql_.end()) throw DatabaseError("The rows of this statement cannot be changed.");
  return {begin, end};
}

void Recordset::Update() {
  Connection& target = connection();
  if (edit_mode_ == EditMode::kNone) return;
  std::vector<ColumnValue> columns;
  columns.reserve(pending_.size());
  for (const Change& change : pending_) columns.push_back({rows_.columns[change.column], change.value});
  const std::string table = Table();
  if (!target.UpdateRow(table, columns, rows_.at(row_, ColumnIndex(KeyColumnOf(table))))) {
    throw RowGoneError();
  }
  for (Change& change : pending_) {
    rows_.values[row_ * rows_.columns.size() + change.column] = std::move(change.value);
  }
  CancelUpdate();
}

void Recordset::Delete() {
  connection();
  CancelUpdate();
  RequireRow();
  const std::string table = Table();
  const std::string key = KeyColumnOf(table);
  const Value id = rows_.at(row_, ColumnIndex(key));
  if (connection().ExecuteDirect("DELETE FROM " + table + " WHERE " + key + " = ?", {&id, 1}).affected == 0) {
    throw RowGoneError();
  }
  const auto first = rows_.values.begin() + static_cast<std::ptrdiff_t>(row_ * rows_.columns.size());
  rows_.values.erase(first, first + static_cast<std::ptrdiff_t>(rows_.columns.size()));
}

}  // namespace kx
