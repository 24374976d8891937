#include "database/sql_tokens.h"

#include <array>
#include <cstdint>

#include "database/ascii.h"

namespace kx {
namespace {

// What a character can be part of; several at once. A table, since every statement is read character by
// character.
constexpr std::uint8_t kBlank = 1;
constexpr std::uint8_t kDigit = 2;
constexpr std::uint8_t kNameStart = 4;
constexpr std::uint8_t kName = 8;
constexpr std::uint8_t kPlain = 16;  // neither begins a literal or a quoted name nor belongs to a number

constexpr std::array<std::uint8_t, 256> kClasses = [] {
  std::array<std::uint8_t, 256> classes{};
  for (const char c : {' ', '\t', '\r', '\n'}) classes[static_cast<std::uint8_t>(c)] = kBlank;
  for (std::size_t c = '0'; c <= '9'; ++c) classes[c] = kDigit | kName;
  for (std::size_t c = 'A'; c <= 'Z'; ++c) classes[c] = kNameStart | kName;
  for (std::size_t c = 'a'; c <= 'z'; ++c) classes[c] = kNameStart | kName;
  classes['_'] = kNameStart | kName;
  classes['$'] = kName;
  // Bytes of characters beyond ASCII belong to names.
  for (std::size_t c = 0x80; c <= 0xFF; ++c) classes[c] = kNameStart | kName;
  for (std::size_t c = 0; c <= 0xFF; ++c) {
    constexpr std::string_view kNotPlain = "0123456789'\"[#$";
    if (kNotPlain.find(static_cast<char>(c)) == std::string_view::npos) classes[c] |= kPlain;
  }
  return classes;
}();

bool Is(char c, std::uint8_t char_class) {
  return (kClasses[static_cast<std::uint8_t>(c)] & char_class) != 0;
}

std::size_t EndOfRun(std::string_view sql, std::size_t begin, std::uint8_t char_class) {
  while (begin < sql.size() && Is(sql[begin], char_class)) ++begin;
  return begin;
}

std::size_t EndOfNumber(std::string_view sql, std::size_t begin) {
  const std::size_t end = EndOfRun(sql, begin, kDigit);
  const bool has_fraction = end + 1 < sql.size() && sql[end] == '.' && Is(sql[end + 1], kDigit);
  return has_fraction ? EndOfRun(sql, end + 1, kDigit) : end;
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

// The token that begins at `begin`, where no blank stands.
SqlToken TokenAt(std::string_view sql, std::size_t begin) {
  using Kind = SqlToken::Kind;
  const char first = sql[begin];
  Kind kind = Kind::kSymbol;
  std::size_t end = begin + 1;
  if (Is(first, kNameStart)) {
    kind = Kind::kWord;
    end = EndOfRun(sql, begin, kName);
  } else if (Is(first, kDigit)) {
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
  return {kind, sql.substr(begin, end - begin)};
}

}  // namespace

bool SqlToken::Is(std::string_view expected) const {
  return (kind == Kind::kWord || kind == Kind::kSymbol) && EqualsIgnoringCase(text, expected);
}

void SplitSql(std::string_view sql, std::vector<SqlToken>& tokens) {
  tokens.clear();
  for (std::size_t at = EndOfRun(sql, 0, kBlank); at < sql.size();) {
    tokens.push_back(TokenAt(sql, at));
    at = EndOfRun(sql, at + tokens.back().text.size(), kBlank);
  }
}

bool CutLiterals(std::string_view sql, std::string& shape, std::vector<std::string_view>& literals) {
  shape.clear();
  literals.clear();
  std::size_t copied = 0;
  for (std::size_t at = EndOfRun(sql, 0, kPlain); at < sql.size(); at = EndOfRun(sql, at, kPlain)) {
    if (Is(sql[at], kDigit) && at > copied && Is(sql[at - 1], kNameStart)) {
      at = EndOfRun(sql, at, kName);  // within a name
      continue;
    }
    const SqlToken token = TokenAt(sql, at);
    // A symbol, which may begin what looks like a name.
    if (token.kind == SqlToken::Kind::kUnclosed || token.kind == SqlToken::Kind::kSymbol) return false;
    const std::size_t end = at + token.text.size();
    if (token.IsLiteral()) {
      shape.append(sql, copied, at - copied);
      shape.push_back(token.kind == SqlToken::Kind::kNumber ? '0' : token.text.front());
      literals.push_back(token.text);
      copied = end;
    }
    at = end;
  }
  shape.append(sql, copied);
  return true;
}

}  // namespace kx
