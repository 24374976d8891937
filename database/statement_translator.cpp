#include "database/statement_translator.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <initializer_list>
#include <optional>
#include <span>

#include "database/ascii.h"
#include "database/sql_literals.h"
#include "database/table_key.h"

namespace kx {
namespace {

using Kind = SqlToken::Kind;

// The date-time columns among those that identity batches write. The totals SETUP_TIME and so on are numbers.
bool IsDateTimeColumn(std::string_view name) {
  const std::string lower = ToLowerAscii(name);
  return lower.ends_with("start_time") || lower.ends_with("stop_time") || lower == "shift_end" ||
         lower == "chart_date";
}

// Writes one statement from its tokens. What no construct replaces is copied as it stands, in as large pieces
// as possible.
class Writer {
 public:
  Writer(std::string_view sql, std::span<const SqlToken> tokens, SqlTarget target, Statement& out,
         LiteralUses& uses)
      : sql_(sql), tokens_(tokens), target_(target), out_(out), uses_(uses) {}

  void WriteStatement() {
    if (WriteIdentityBatch()) return;
    WriteRange(0, tokens_.size());
    CopyUpTo(tokens_.size());
    if (target_ == SqlTarget::kPostgres) WriteMissingOrder();
  }

 private:
  bool sqlite() const { return target_ == SqlTarget::kSqlite; }
  const SqlToken& at(std::size_t index) const { return tokens_[index]; }
  bool Is(std::size_t index, std::string_view text) const {
    return index < tokens_.size() && at(index).Is(text);
  }
  bool IsKind(std::size_t index, Kind kind) const { return index < tokens_.size() && at(index).kind == kind; }
  bool Follows(std::size_t index, std::initializer_list<std::string_view> words) const {
    return std::ranges::all_of(words, [&](std::string_view word) { return Is(index++, word); });
  }

  // Where the token before `index` ends in the text.
  std::size_t EndBefore(std::size_t index) const {
    if (index == 0) return 0;
    const std::string_view token = at(index - 1).text;
    return static_cast<std::size_t>(token.data() - sql_.data()) + token.size();
  }
  // Copies the text up to the token `index`, as far as it is neither copied nor skipped yet.
  void CopyUpTo(std::size_t index) {
    const std::size_t end = EndBefore(index);
    if (end <= done_) return;
    out_.text += sql_.substr(done_, end - done_);
    done_ = end;
  }
  // Leaves the text up to the token `index` out.
  void Skip(std::size_t index) { done_ = EndBefore(index); }

  // Writes the constructs of a range; what follows the last of them is yet to be copied.
  void WriteRange(std::size_t begin, std::size_t end) {
    while (begin < end) begin = WriteNext(begin);
  }
  // Writes a part of what is being replaced.
  void WritePart(std::size_t begin, std::size_t end) {
    Skip(begin);
    WriteRange(begin, end);
    CopyUpTo(end);
  }
  // Replaces the tokens from `begin` to `end` by what `write` writes; returns `end`.
  template <class Write>
  std::size_t Replace(std::size_t begin, std::size_t end, Write write) {
    CopyUpTo(begin);
    write();
    Skip(end);
    return end;
  }

  // Whether a table of the plant is named at `index`: one whose key is known by its name.
  bool IsTable(std::size_t index) const {
    return IsKind(index, Kind::kWord) && at(index).text.starts_with(kTablePrefix);
  }

  // Writes the construct that begins at `index`, or leaves the token there to be copied; returns the index
  // behind.
  std::size_t WriteNext(std::size_t index);

  // Each returns the index behind its construct, or `index` itself when it does not stand there.
  std::size_t WriteWord(std::size_t index);
  std::size_t WriteLiteral(std::size_t index);
  std::size_t WriteToDate(std::size_t index);
  std::size_t WriteDateAdd(std::size_t index);
  std::size_t WriteDaysAdded(std::size_t index);
  std::size_t WriteOuterJoin(std::size_t index);
  std::size_t WriteIif(std::size_t index);
  std::size_t WriteCount(std::size_t index);
  bool WriteIdentityBatch();
  void WriteMissingOrder();

  void WriteClock() {
    out_.text += sqlite() ? " datetime('now','localtime')" : " date_trunc('second', LOCALTIMESTAMP)";
  }
  // The time that the literal at `index` says, which decides what is written, either way.
  std::optional<DateTime> TimeAt(std::size_t index) {
    const auto time = ParseMonthFirst(at(index).text);
    if (!time) uses_.deciding.push_back(index);
    return time;
  }
  // Writes what TimeAt has found at `index`.
  void WriteTime(std::size_t index, DateTime time) {
    if (sqlite()) {
      WriteParameter(time.ToText(), index, /*is_time=*/true);
    } else {
      out_.text += " TIMESTAMP '" + time.ToText() + "'";
    }
  }
  // The blanks keep the mark apart from a number or name that follows it.
  void WriteParameter(Value value, std::size_t index = LiteralUses::kNowhere, bool is_time = false) {
    out_.text += " ? ";
    out_.parameters.push_back(std::move(value));
    uses_.parameters.push_back({index, is_time});
  }
  void WriteDays(std::size_t expression_begin, std::size_t expression_end, int days);

  // Behind a name with its qualifiers; `index` itself when no name stands there.
  std::size_t EndOfName(std::size_t index) const;
  // Behind an optional minus and a whole number, which goes to `number`; `index` itself otherwise.
  std::size_t EndOfInteger(std::size_t index, int& number);
  // The "," or ")" on the level of `index` that comes first.
  std::size_t EndOfArgument(std::size_t index) const;

  std::string_view sql_;
  std::span<const SqlToken> tokens_;
  std::size_t done_ = 0;  // how much of the text is copied or skipped
  SqlTarget target_;
  Statement& out_;
  LiteralUses& uses_;
};

std::size_t Writer::EndOfName(std::size_t index) const {
  if (!IsKind(index, Kind::kWord)) return index;
  ++index;
  while (Is(index, ".") && IsKind(index + 1, Kind::kWord)) index += 2;
  return index;
}

std::size_t Writer::EndOfInteger(std::size_t index, int& number) {
  const bool negative = Is(index, "-");
  const std::size_t digits = index + (negative ? 1 : 0);
  if (!IsKind(digits, Kind::kNumber)) return index;
  const std::string_view text = at(digits).text;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) {
    uses_.deciding.push_back(digits);
    return index;
  }
  if (negative) number = -number;
  return digits + 1;
}

std::size_t Writer::EndOfArgument(std::size_t index) const {
  for (int depth = 0; index < tokens_.size(); ++index) {
    if (depth == 0 && (Is(index, ",") || Is(index, ")"))) break;
    if (Is(index, "(")) ++depth;
    if (Is(index, ")")) --depth;
  }
  return index;
}

std::size_t Writer::WriteNext(std::size_t index) {
  std::size_t next = index;
  switch (at(index).kind) {
    case Kind::kWord: next = WriteWord(index); break;
    case Kind::kString:
    case Kind::kNumber:
      if (sqlite()) next = WriteLiteral(index);
      break;
    case Kind::kSymbol:
      if (at(index).text == "(") next = WriteDaysAdded(index);
      if (at(index).text == ",") next = WriteOuterJoin(index);
      break;
    case Kind::kDate:
      if (const auto time = TimeAt(index)) {
        next = Replace(index, index + 1, [&] { WriteTime(index, *time); });
      }
      break;
    default: break;
  }
  return next != index ? next : index + 1;
}

std::size_t Writer::WriteWord(std::size_t index) {
  switch (ToLowerAscii(at(index).text.front())) {
    case 'w':
      if (Follows(index, {"with", "(", "NOLOCK", ")"})) return Replace(index, index + 4, [] {});
      break;
    case 't':
      if (Follows(index, {"Time", "(", ")"})) return Replace(index, index + 3, [&] { WriteClock(); });
      return WriteToDate(index);
    case 'c':
      if (Is(index, "CURRENT_TIMESTAMP")) return Replace(index, index + 1, [&] { WriteClock(); });
      if (Follows(index, {"CAST", "("}) && IsKind(index + 2, Kind::kString) &&
          Follows(index + 3, {"AS", "DATETIME", ")"})) {
        if (const auto time = TimeAt(index + 2)) {
          return Replace(index, index + 6, [&] { WriteTime(index + 2, *time); });
        }
      }
      return WriteCount(index);
    case 'd':
      if (Follows(index, {"Date", "(", ")"})) return Replace(index, index + 3, [&] { WriteClock(); });
      return WriteDateAdd(index);
    case 's':
      if (Follows(index, {"SYSDATE", "from", "DUAL"})) {
        return Replace(index, index + 3, [&] {
          WriteClock();
          out_.text += " AS SYSDATE";
        });
      }
      break;
    case 'i':
      if (!sqlite()) return WriteIif(index);
      break;
    default: break;
  }
  return index;
}

std::size_t Writer::WriteLiteral(std::size_t index) {
  return Replace(index, index + 1, [&] { WriteParameter(ParseLiteral(at(index).text), index); });
}

std::size_t Writer::WriteToDate(std::size_t index) {
  if (!Follows(index, {"TO_DATE", "("}) || !IsKind(index + 2, Kind::kString) || !Is(index + 3, ",") ||
      !IsKind(index + 4, Kind::kString) || !Is(index + 5, ")")) {
    return index;
  }
  const bool twelve_hours = IsOnTwelveHourClock(at(index + 2).text);
  if (InsideQuotes(at(index + 4).text) !=
      (twelve_hours ? "MM/DD/YYYY HH:MI:SS AM" : "MM/DD/YYYY HH24:MI:SS")) {
    uses_.deciding.insert(uses_.deciding.end(), {index + 2, index + 4});
    return index;
  }
  const auto time = TimeAt(index + 2);
  return time ? Replace(index, index + 6, [&] { WriteTime(index + 2, *time); }) : index;
}

void Writer::WriteDays(std::size_t expression_begin, std::size_t expression_end, int days) {
  out_.text += sqlite() ? " datetime(" : " (";
  WritePart(expression_begin, expression_end);
  if (sqlite()) {
    out_.text += ",";
    WriteParameter(std::to_string(days) + " days");
    out_.text += ")";
  } else {
    out_.text += " + " + std::to_string(days) + " * INTERVAL '1 day')";
  }
}

std::size_t Writer::WriteDateAdd(std::size_t index) {
  if (!Follows(index, {"DateAdd", "("}) || !Is(index + 3, ",")) return index;
  if (!Is(index + 2, "dd") && at(index + 2).text != "'dd'") {
    uses_.deciding.push_back(index + 2);
    return index;
  }
  int days = 0;
  const std::size_t comma = EndOfInteger(index + 4, days);
  if (comma == index + 4 || !Is(comma, ",")) return index;
  const std::size_t end = EndOfArgument(comma + 1);
  if (!Is(end, ")")) return index;
  return Replace(index, end + 1, [&] { WriteDays(comma + 1, end, days); });
}

std::size_t Writer::WriteDaysAdded(std::size_t index) {
  const std::size_t plus = EndOfName(index + 1);
  int days = 0;
  if (plus == index + 1 || !Is(plus, "+")) return index;
  const std::size_t end = EndOfInteger(plus + 1, days);
  if (end == plus + 1 || !Is(end, ")")) return index;
  return Replace(index, end + 1, [&] { WriteDays(index + 1, plus, days); });
}

// `, T where a = b (+)` becomes ` LEFT JOIN T on a = b`.
std::size_t Writer::WriteOuterJoin(std::size_t index) {
  if (!IsKind(index + 1, Kind::kWord) || !Is(index + 2, "where")) return index;
  const std::size_t equals = EndOfName(index + 3);
  if (equals == index + 3 || !Is(equals, "=")) return index;
  const std::size_t mark = EndOfName(equals + 1);
  if (mark == equals + 1 || !Follows(mark, {"(", "+", ")"})) return index;
  return Replace(index, mark + 3, [&] {
    out_.text += " LEFT JOIN ";
    out_.text += at(index + 1).text;
    out_.text += " on";
    WritePart(index + 3, mark);
  });
}

std::size_t Writer::WriteIif(std::size_t index) {
  if (!Follows(index, {"IIF", "("})) return index;
  const std::size_t first = EndOfArgument(index + 2);
  const std::size_t second = Is(first, ",") ? EndOfArgument(first + 1) : first;
  const std::size_t last = Is(second, ",") && second != first ? EndOfArgument(second + 1) : second;
  if (last == second || !Is(last, ")")) return index;
  return Replace(index, last + 1, [&] {
    out_.text += " CASE WHEN ";
    WritePart(index + 2, first);
    out_.text += " THEN ";
    WritePart(first + 1, second);
    out_.text += " ELSE ";
    WritePart(second + 1, last);
    out_.text += " END ";
  });
}

// A table's key is never NULL, and SQLite counts a million rows in 4 ms by COUNT(*) and in 35 ms by a column.
std::size_t Writer::WriteCount(std::size_t index) {
  if (!sqlite() || !Follows(index, {"COUNT", "("}) || !Is(index + 3, ")") || !Is(index + 4, "AS") ||
      !Is(index + 6, "from") || !IsTable(index + 7)) {
    return index;
  }
  const std::string_view table = at(index + 7).text;
  if (!Is(index + 2, KeyColumnOf(table))) return index;
  return Replace(index, index + 4, [&] { out_.text += " COUNT(*)"; });
}

// The batch that inserts a row and selects its identity becomes one INSERT that returns its key.
bool Writer::WriteIdentityBatch() {
  constexpr std::size_t kHead = 8;
  constexpr std::size_t kTail = 12;
  if (!Follows(0, {"SET", "NOCOUNT", "ON", ";", "SET", "DATEFORMAT", "MDY", ";", "INSERT", "INTO"}) ||
      !IsTable(kHead + 2) || !Is(kHead + 3, "(") || tokens_.size() < kHead + kTail) {
    return false;
  }
  const std::size_t tail = tokens_.size() - kTail;
  if (!Follows(tail, {";", "SELECT", "SCOPE_IDENTITY", "(", ")", "AS"}) ||
      at(tail + 6).text != "[SCOPE_IDENTITY]" || !Follows(tail + 7, {";", "SET", "NOCOUNT", "OFF", ";"})) {
    return false;
  }
  std::vector<std::string_view> columns;
  std::size_t index = kHead + 4;
  for (; index < tail && !Is(index, ")"); ++index) {
    if (IsKind(index, Kind::kWord)) columns.push_back(at(index).text);
  }
  if (!Follows(index, {")", "VALUES", "("})) return false;
  index += 3;
  Skip(kHead);
  for (std::size_t column = 0; index < tail; ++column) {
    const std::size_t end = EndOfArgument(index);
    std::optional<DateTime> time;
    if (end == index + 1 && IsKind(index, Kind::kString) && column < columns.size() &&
        IsDateTimeColumn(columns[column])) {
      time = TimeAt(index);
    }
    if (time) {
      Replace(index, end, [&] { WriteTime(index, *time); });
    } else {
      WriteRange(index, end);
    }
    index = end + 1;
    if (!Is(end, ",")) break;
  }
  WriteRange(index, tail);
  CopyUpTo(tail);
  out_.text += " RETURNING " + KeyColumnOf(at(kHead + 2).text);
  return true;
}

// "First row" means the row with the lowest key: a row query on one table gets that order where it has none.
void Writer::WriteMissingOrder() {
  if (!Is(0, "select")) return;
  std::size_t from = 1;
  for (; from < tokens_.size() && !Is(from, "from"); ++from) {
    if (Is(from, "(")) return;
  }
  const std::size_t table = from + 1;
  if (!IsTable(table)) return;
  const std::size_t behind = table + (Follows(table + 1, {"with", "(", "NOLOCK", ")"}) ? 5 : 1);
  if (behind < tokens_.size() && !Is(behind, "where")) return;
  if (std::ranges::any_of(tokens_, [](const SqlToken& token) { return token.Is("order"); })) return;
  out_.text += " order by " + KeyColumnOf(at(table).text);
}

}  // namespace

const Statement& StatementTranslator::Translate(std::string_view sql, SqlTarget target) {
  // Elsewhere literals stay in the text, which then differs each time.
  const bool has_shape = target == SqlTarget::kSqlite;
  if (has_shape && shapes_.Find(sql, statement_)) return statement_;
  statement_.text.clear();
  statement_.parameters.clear();
  uses_.parameters.clear();
  uses_.deciding.clear();
  SplitSql(sql, tokens_);
  Writer(sql, tokens_, target, statement_, uses_).WriteStatement();
  if (has_shape) shapes_.Learn(tokens_, uses_, statement_);
  return statement_;
}

}  // namespace kx
