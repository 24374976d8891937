#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "session/session.h"

namespace kx {

// A column of a new row and its value.
struct ColumnValue {
  std::string_view column;
  Value value;
};

// Inserts a row with these columns and returns its key: by a recordset for Oracle and Access, by an identity
// batch, in which NULL columns are left out, for SQL Server.
std::int32_t InsertRow(Session& session, std::string_view table, std::span<const ColumnValue> columns);

// Inserts one row by an identity batch and returns its key. SQL Server only.
std::int32_t InsertAndGetIdentity(Session& session, std::string_view table, std::string_view columns,
                                  std::string_view values);

}  // namespace kx
