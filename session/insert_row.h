#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "session/session.h"

namespace kx {

// Inserts a row with these columns and returns its key: for SQL Server by an identity batch, in which NULL
// columns are left out.
std::int32_t InsertRow(Session& session, std::string_view table, std::span<const ColumnValue> columns);

// Inserts one row by an identity batch and returns its key. SQL Server only.
std::int32_t InsertAndGetIdentity(Session& session, std::string_view table, std::string_view columns,
                                  std::string_view values);

}  // namespace kx
