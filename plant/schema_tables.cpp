#include "plant/schema_tables.h"

#include "database/sql_script.h"

namespace kx::tool {

std::vector<TableSchema> ReadSchemaTables(std::string_view schema) {
  // CREATE TABLE … NAME ( on a line, and a column on each line to the closing one.
  std::vector<TableSchema> tables;
  for (const std::string& statement : SplitStatements(schema)) {
    std::size_t at = statement.find("CREATE TABLE ");
    if (at == std::string::npos) continue;
    const std::size_t open = statement.find(" (\n", at);
    const std::size_t name = statement.rfind(' ', open - 1) + 1;
    TableSchema& table = tables.emplace_back(TableSchema{statement.substr(name, open - name), {}});
    for (at = open + 3; statement[at] == ' ';) {
      const std::size_t end = statement.find('\n', at);
      std::string definition = statement.substr(at + 2, end - at - 2);
      if (definition.ends_with(',')) definition.pop_back();
      table.columns.push_back({definition.substr(0, definition.find(' ')), definition});
      at = end + 1;
    }
  }
  return tables;
}

}  // namespace kx::tool
