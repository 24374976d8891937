#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kx::tool {

struct ColumnSchema {
  std::string name;
  std::string definition;  // "STATUS_CODE INTEGER"
};

struct TableSchema {
  std::string name;
  std::vector<ColumnSchema> columns;
};

// The tables that the text of a schema file creates.
std::vector<TableSchema> ReadSchemaTables(std::string_view schema);

}  // namespace kx::tool
