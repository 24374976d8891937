#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "database/connection.h"

namespace kx {

// The rows of a query with a current row, and changes to rows of the one table it reads. The rows are a copy
// made when the recordset opens. Rows are found by their key: table T_SFC_X has the key X_ID. Field names are
// looked up without case. Closes itself and forgets a pending edit when it goes out of scope.
class Recordset {
 public:
  enum class EditMode { kNone, kInProgress };

  Recordset() = default;
  Recordset(Connection& connection, std::string_view sql) { Open(connection, sql); }

  // The answer to `sql` as it is known already.
  Recordset(Connection& connection, std::string_view sql, Rows rows)
      : connection_(&connection), sql_(sql), rows_(std::move(rows)) {}

  void Open(Connection& connection, std::string_view sql);  // on the first row, closing what was open
  void Close();
  bool IsOpen() const { return connection_ != nullptr; }

  std::size_t RecordCount() const { return rows_.count(); }
  bool IsBof() const { return rows_.count() == 0; }
  bool IsEof() const { return row_ >= rows_.count(); }
  EditMode edit_mode() const { return edit_mode_; }

  void MoveFirst();
  void MoveNext();
  // Goes to the next row, from the current one on, whose field equals `value`; past the end when there is
  // none.
  bool Find(std::string_view name, std::int32_t value);

  // The field of the current row, a pending change included.
  const Value& Fields(std::string_view name) const;

  void Set(std::string_view name, Value value);  // begins an edit of the current row when none is pending
  void Update();                                 // writes what is pending
  void CancelUpdate();                           // forgets what is pending
  void Delete();  // deletes the current row from its table; the next row becomes the current one

 private:
  struct Change {
    std::size_t column;
    Value value;
  };

  Connection& connection() const;  // raises when closed
  void RequireRow() const;
  std::size_t ColumnIndex(std::string_view name) const;
  std::string Table() const;

  Connection* connection_ = nullptr;
  std::string sql_;
  Rows rows_;
  std::size_t row_ = 0;
  EditMode edit_mode_ = EditMode::kNone;
  std::vector<Change> pending_;
};

}  // namespace kx
