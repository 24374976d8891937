#include "database/statement_shapes.h"

#include <algorithm>

#include "database/sql_literals.h"

namespace kx {
namespace {

constexpr std::size_t kMostShapes = 500;

}  // namespace

bool StatementShapes::Find(std::string_view sql, Statement& statement) {
  if (!CutLiterals(sql, shape_, literals_)) {
    shape_.clear();
    return false;
  }
  const auto found = shapes_.find(shape_);
  if (found == shapes_.end()) return false;
  const Shape& shape = found->second;
  const auto is_same = [&](const auto& fixed) { return literals_[fixed.first] == fixed.second; };
  if (!std::ranges::all_of(shape.fixed, is_same)) return false;
  statement.parameters.clear();
  for (const Parameter& parameter : shape.parameters) {
    if (parameter.literal == LiteralUses::kNowhere) {
      statement.parameters.push_back(parameter.constant);
      continue;
    }
    const std::string_view literal = literals_[parameter.literal];
    if (!parameter.is_time) {
      statement.parameters.push_back(ParseLiteral(literal));
      continue;
    }
    const auto time = ParseMonthFirst(literal);
    if (!time || IsOnTwelveHourClock(literal) != parameter.twelve_hours) return false;
    statement.parameters.emplace_back(time->ToText());
  }
  statement.text = shape.text;
  return true;
}

void StatementShapes::Learn(const std::vector<SqlToken>& tokens, const LiteralUses& uses,
                            const Statement& statement) {
  if (shape_.empty()) return;
  std::vector<std::size_t> places(tokens.size(), LiteralUses::kNowhere);
  std::size_t literals = 0;
  for (std::size_t token = 0; token < tokens.size(); ++token) {
    if (tokens[token].IsLiteral()) places[token] = literals++;
  }
  Shape shape{statement.text, {}, {}};
  std::vector<bool> is_free(literals);
  for (std::size_t i = 0; i < uses.parameters.size(); ++i) {
    const auto [token, is_time] = uses.parameters[i];
    if (token == LiteralUses::kNowhere || std::ranges::count(uses.deciding, token) != 0) {
      shape.parameters.push_back({LiteralUses::kNowhere, false, false, statement.parameters[i]});
    } else {
      is_free[places[token]] = true;
      shape.parameters.push_back(
          {places[token], is_time, is_time && IsOnTwelveHourClock(tokens[token].text), {}});
    }
  }
  for (std::size_t literal = 0; literal < literals; ++literal) {
    if (!is_free[literal]) shape.fixed.emplace_back(literal, literals_[literal]);
  }
  if (shapes_.size() >= kMostShapes) shapes_.clear();
  shapes_.insert_or_assign(shape_, std::move(shape));
}

}  // namespace kx
