#include "database/sql_tokens.h"

#include <algorithm>

#include "database/ascii.h"

namespace kx {
namespace {

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }
bool IsDigit(char c) { return c >= '0' && c <= '9'; }
// Bytes of characters beyond ASCII belong to names.
bool IsNameStart(char c) {
  const char lower = ToLowerAscii(c);
  return (lower >= 'a' && lower <= 'z') || c == '_' || static_cast<signed char>(c) < 0;
}
bool IsName(char c) { return IsNameStart(c) || IsDigit(c) || c == '$'; }

std::size_t EndOfRun(std::string_view sql, std::size_t begin, bool (*belongs)(char)) {
  const auto end = std::find_if_not(sql.begin() + static_cast<std::ptrdiff_t>(begin), sql.end(), belongs);
  return static_cast<std::size_t>(end - sql.begin());
}

std::size_t EndOfNumber(std::string_view sql, std::size_t begin) {
  std::size_t end = EndOfRun(sql, begin, IsDigit);
  if (end + 1 < sql.size() && sql[end] == '.' && IsDigit(sql[end + 1])) end = EndOfRun(sql, end + 1, IsDigit);
  return end;
}

// Behind the closing quote, which is doubled inside; npos when there is none.
std::size_t EndOfQuoted(std::string_view sql, std::size_t begin, char closing) {
  for (std::size_t at = begin + 1; at < sql.size(); ++at) {
    if (sql[at] != closing) continue;
    if (closing == '#' || at + 1 >= sql.size() || sql[at + 1] != closing) return at + 1;
    ++at;
  }
  return std::string_view::npos;
}

}  // namespace

bool SqlToken::Is(std::string_view expected) const {
  return (kind == Kind::kWord || kind == Kind::kSymbol) && EqualsIgnoringCase(text, expected);
}

void SplitSql(std::string_view sql, std::vector<SqlToken>& tokens) {
  using Kind = SqlToken::Kind;
  tokens.clear();
  for (std::size_t at = 0; at < sql.size();) {
    const std::size_t begin = EndOfRun(sql, at, IsBlank);
    if (begin == sql.size()) break;
    const char first = sql[begin];
    Kind kind = Kind::kSymbol;
    std::size_t end = begin + 1;
    if (IsNameStart(first)) {
      kind = Kind::kWord;
      end = EndOfRun(sql, begin, IsName);
    } else if (IsDigit(first)) {
      kind = Kind::kNumber;
      end = EndOfNumber(sql, begin);
    } else if (first == '\'' || first == '"' || first == '[' || first == '#') {
      kind = first == '\'' ? Kind::kString : first == '#' ? Kind::kDate : Kind::kQuotedName;
      end = EndOfQuoted(sql, begin, first == '[' ? ']' : first);
      if (end == std::string_view::npos) {
        kind = Kind::kUnclosed;
        end = sql.size();
      }
    }
    tokens.push_back({kind, begin > at, sql.substr(begin, end - begin)});
    at = end;
  }
}

}  // namespace kx
