#include "database/statement_text.h"

#include "database/database_error.h"
#include "database/text.h"

namespace kx {
namespace {

constexpr std::string_view kBatchHead = "SET NOCOUNT ON; SET DATEFORMAT MDY; ";
constexpr std::string_view kBatchTail = "; SELECT SCOPE_IDENTITY() AS [SCOPE_IDENTITY]; SET NOCOUNT OFF;";

}  // namespace

std::string Quoted(std::string_view text) {
  if (text.find('\0') != text.npos) throw NulInTextError();
  for (std::size_t at = text.find('\''); at != text.npos; at = text.find('\'', at + 2)) {
    if (at + 1 == text.size() || text[at + 1] != '\'') throw OpenApostropheError();
  }
  return Concat("'", text, "'");
}

std::string IdentityBatch(std::string_view insert) { return Concat(kBatchHead, insert, kBatchTail); }

bool IsOneStatement(std::string_view sql) {
  if (sql.starts_with(kBatchHead) && sql.ends_with(kBatchTail)) {
    sql.remove_prefix(kBatchHead.size());
    sql.remove_suffix(kBatchTail.size());
  }
  constexpr std::size_t kEnd = std::string_view::npos;
  for (std::size_t at = sql.find_first_of("'\";-/"); at != kEnd; at = sql.find_first_of("'\";-/", at + 1)) {
    const char next = at + 1 < sql.size() ? sql[at + 1] : '\0';
    switch (sql[at]) {
      case ';': return sql.find_first_not_of("; \t\r\n", at) == kEnd;
      case '-':
        if (next == '-') return false;
        break;
      case '/':
        if (next == '*') return false;
        break;
      default:  // a quoted text; a doubled quote in it begins the next piece
        at = sql.find(sql[at], at + 1);
        if (at == kEnd) return true;  // whatever the database says of it
    }
  }
  return true;
}

}  // namespace kx
