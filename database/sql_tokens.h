#pragma once

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
};

// Splits `sql`; the tokens refer to it. `tokens` is emptied first.
void SplitSql(std::string_view sql, std::vector<SqlToken>& tokens);

}  // namespace kx
