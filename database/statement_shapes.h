#pragma once

#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "database/sql_tokens.h"
#include "database/value.h"

namespace kx {

// A statement in an engine's own SQL with the values of its `?` marks.
struct Statement {
  std::string text;
  std::vector<Value> parameters;
};

// What became of a statement's literals when it was translated.
struct LiteralUses {
  static constexpr std::size_t kNowhere = static_cast<std::size_t>(-1);
  struct Parameter {
    std::size_t token;  // the literal that it says, kNowhere for none
    bool is_time;       // the literal as a date-time, otherwise as a value
  };
  std::vector<Parameter> parameters;  // in the order of the statement's
  std::vector<std::size_t> deciding;  // literals that decided by what they say how the text was translated
};

// The translations of statements by their shapes. The component writes the same few texts again and again,
// with other literals.
class StatementShapes {
 public:
  // Writes the translation of `sql` when that of another text of its shape is known and holds for it.
  bool Find(std::string_view sql, Statement& statement);
  // Keeps the translation of the text that Find did not know, whose tokens these are.
  void Learn(const std::vector<SqlToken>& tokens, const LiteralUses& uses, const Statement& statement);

 private:
  struct Parameter {
    std::size_t literal;  // its place among the literals, kNowhere for a constant
    bool is_time = false;
    bool twelve_hours = false;
    Value constant;
  };
  struct Shape {
    std::string text;
    std::vector<Parameter> parameters;
    std::vector<std::pair<std::size_t, std::string>> fixed;  // literals that have to be the same
  };

  std::unordered_map<std::string, Shape> shapes_;
  std::string shape_;  // of the text that was looked for last; empty when it has none
  std::vector<std::string_view> literals_;
};

}  // namespace kx
