#pragma once

#include <string_view>
#include <vector>

#include "database/engine.h"
#include "database/sql_tokens.h"
#include "database/statement_shapes.h"

namespace kx {

// Turns what the component writes in any of its three dialects into the SQL of an engine that speaks none of
// them. It works on tokens and knows only the constructs that the dialect layer writes; everything else
// passes unchanged but for its blanks, and nothing inside quotes is touched, with one exception: the
// date-time values of an identity batch, known by their column, become ISO texts. For SQLite every literal
// becomes a parameter, so that all texts of one shape are one prepared statement; what a shape becomes is
// worked out once.
class StatementTranslator {
 public:
  // The returned statement stays valid until the next call.
  const Statement& Translate(std::string_view sql, SqlTarget target);

 private:
  StatementShapes shapes_;
  std::vector<SqlToken> tokens_;
  LiteralUses uses_;
  Statement statement_;
};

}  // namespace kx
