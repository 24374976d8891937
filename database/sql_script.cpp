#include "database/sql_script.h"

#include <algorithm>
#include <utility>

namespace kx {

std::vector<std::string> SplitStatements(std::string_view sql) {
  std::vector<std::string> statements;
  std::string statement;
  while (!sql.empty()) {
    std::string_view line = sql.substr(0, sql.find('\n'));
    sql.remove_prefix(std::min(line.size() + 1, sql.size()));
    if (line.ends_with('\r')) line.remove_suffix(1);
    if (line.empty() || line.starts_with("--")) continue;
    const bool last = line.ends_with(';');
    if (last) line.remove_suffix(1);
    statement.append(line) += '\n';
    if (last) statements.push_back(std::exchange(statement, {}));
  }
  return statements;
}

}  // namespace kx
