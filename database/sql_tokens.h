#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kx {

// A piece of SQL text. Blanks are no tokens.
struct SqlToken {
  enum class Kind {
    kWord,        // a name or keyword
    kNumber,      // an unsigned number
    kString,      // '…', quotes included
    kQuotedName,  // "…" or […]
    kDate,        // #…#
    kSymbol,      // one other character
    kUnclosed,    // a quote without its end, and the rest of the text
  };

  Kind kind;
  std::string_view text;

  // Compares a word or symbol without case.
  bool Is(std::string_view expected) const;
  bool IsLiteral() const { return kind == Kind::kNumber || kind == Kind::kString || kind == Kind::kDate; }
};

// Splits `sql`; the tokens refer to it. `tokens` is emptied first.
void SplitSql(std::string_view sql, std::vector<SqlToken>& tokens);

// Takes the literals out of `sql`: texts that are equal without them have the same tokens but for what the
// literals say. False when a quote has no end or a "$" stands somewhere, which may be a name's or none. Both
// results are emptied first, and the literals refer to `sql`.
bool CutLiterals(std::string_view sql, std::string& shape, std::vector<std::string_view>& literals);

}  // namespace kx
