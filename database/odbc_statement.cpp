#include "database/odbc_statement.h"

#include <array>
#include <charconv>
#include <cmath>
#include <limits>

#include "database/ascii.h"
#include "database/numeric_text.h"
#include "kxdata7/text.h"

namespace kx {
namespace {

// The most digits of a decimal number that always fit 64 bits.
constexpr SQLULEN kMostDigits = 18;

SQL_TIMESTAMP_STRUCT ToTimestamp(DateTime time) {
  const auto date = time.calendar();
  const auto clock = time.clock();
  return {.year = static_cast<SQLSMALLINT>(static_cast<int>(date.year())),
          .month = static_cast<SQLUSMALLINT>(static_cast<unsigned>(date.month())),
          .day = static_cast<SQLUSMALLINT>(static_cast<unsigned>(date.day())),
          .hour = static_cast<SQLUSMALLINT>(clock.hours().count()),
          .minute = static_cast<SQLUSMALLINT>(clock.minutes().count()),
          .second = static_cast<SQLUSMALLINT>(clock.seconds().count()),
          .fraction = 0};
}

}  // namespace

void OdbcStatement::BindData(Parameter& parameter, SQLSMALLINT c_type, SQLSMALLINT sql_type, SQLULEN size,
                             SQLPOINTER data, SQLLEN bytes) {
  handle_.Check(SQLBindParameter(handle_.get(), static_cast<SQLUSMALLINT>(parameters_.size()),
                                 SQL_PARAM_INPUT, c_type, sql_type, size, 0, data, bytes,
                                 &parameter.indicator));
}

void OdbcStatement::BindText(Parameter& parameter, std::string_view text, const Dbms& dbms) {
  parameter.text = kxdata7::ToUtf16(text);
  const std::size_t length = parameter.text.size();
  const auto bytes = static_cast<SQLLEN>(length * sizeof(char16_t));
  parameter.indicator = bytes;
  BindData(parameter, SQL_C_WCHAR, length <= dbms.longest_short_text ? SQL_WVARCHAR : SQL_WLONGVARCHAR,
           std::max<std::size_t>(length, 1), parameter.text.data(), bytes);
}

void OdbcStatement::Bind(const Value& value, const Dbms& dbms) {
  Parameter& parameter = parameters_.emplace_back();
  if (const auto* number = std::get_if<std::int64_t>(&value.data())) {
    // Some drivers know 32 bits alone.
    if (*number >= std::numeric_limits<SQLINTEGER>::min() &&
        *number <= std::numeric_limits<SQLINTEGER>::max()) {
      parameter.number = static_cast<SQLINTEGER>(*number);
      BindData(parameter, SQL_C_SLONG, SQL_INTEGER, 10, &parameter.number, sizeof parameter.number);
    } else {
      parameter.big_number = *number;
      BindData(parameter, SQL_C_SBIGINT, SQL_BIGINT, 19, &parameter.big_number, sizeof parameter.big_number);
    }
  } else if (const auto* real = std::get_if<double>(&value.data())) {
    parameter.real = *real;
    BindData(parameter, SQL_C_DOUBLE, SQL_DOUBLE, 15, &parameter.real, sizeof parameter.real);
  } else if (const auto* text = std::get_if<std::string>(&value.data())) {
    BindText(parameter, *text, dbms);
  } else if (const auto* time = std::get_if<DateTime>(&value.data())) {
    // Where they are stored as texts a driver would add a fraction to them.
    if (dbms.time_as_text) return BindText(parameter, time->ToText(), dbms);
    parameter.time = ToTimestamp(*time);
    BindData(parameter, SQL_C_TYPE_TIMESTAMP, SQL_TYPE_TIMESTAMP, 19, &parameter.time, sizeof parameter.time);
  } else {
    parameter.indicator = SQL_NULL_DATA;
    BindData(parameter, SQL_C_CHAR, SQL_VARCHAR, 1, nullptr, 0);
  }
}

// Every result is asked for: a batch shows its later errors only then. There are as many as it has
// statements.
Rows OdbcStatement::Run(std::string_view sql) {
  std::u16string text = kxdata7::ToUtf16(sql);
  Rows rows;
  SQLRETURN result = SQLExecDirectW(handle_.get(), ToSqlText(text), static_cast<SQLINTEGER>(text.size()));
  if (result == SQL_SUCCESS_WITH_INFO) warning_ = handle_.Reason();
  do {
    handle_.Check(result);
    SQLSMALLINT columns = 0;
    SQLLEN affected = 0;
    if (result != SQL_NO_DATA) {
      handle_.Check(SQLNumResultCols(handle_.get(), &columns));
      if (columns == 0) handle_.Check(SQLRowCount(handle_.get(), &affected));
    }
    if (columns > 0 && rows.columns.empty()) FetchRows(rows, columns);
    if (affected > 0) rows.affected += affected;
    result = SQLMoreResults(handle_.get());
  } while (result != SQL_NO_DATA);
  return rows;
}

void OdbcStatement::FetchRows(Rows& rows, SQLSMALLINT column_count) {
  std::vector<Column> columns;
  std::vector<std::string> names;
  for (SQLUSMALLINT number = 1; number <= static_cast<SQLUSMALLINT>(column_count); ++number) {
    columns.push_back(Describe(number, names.emplace_back()));
  }
  rows.columns = std::move(names);
  for (;;) {  // to the last row
    const SQLRETURN result = SQLFetch(handle_.get());
    handle_.Check(result);
    if (result == SQL_NO_DATA) return;
    for (const Column& column : columns) rows.values.push_back(Fetch(column));
  }
}

OdbcStatement::Column OdbcStatement::Describe(SQLUSMALLINT number, std::string& name) const {
  std::u16string text(256, u'\0');
  SQLSMALLINT length = 0, type = 0, decimals = 0, nullable = 0;
  SQLULEN size = 0;
  handle_.Check(SQLDescribeColW(handle_.get(), number, ToSqlText(text), static_cast<SQLSMALLINT>(text.size()),
                                &length, &type, &size, &decimals, &nullable));
  text.resize(std::min(text.find(u'\0'), text.size()));
  name = kxdata7::ToUtf8(text);

  const bool is_key = ToLowerAscii(name).ends_with("_id");
  switch (type) {
    case SQL_BIT:
    case SQL_TINYINT:
    case SQL_SMALLINT:
    case SQL_INTEGER:
    case SQL_BIGINT: return {number, SQL_C_CHAR, true};
    case SQL_DECIMAL:
    case SQL_NUMERIC:
      if (decimals == 0 && (is_key || size <= kMostDigits)) return {number, SQL_C_CHAR, true};
      return {number, SQL_C_DOUBLE, false, is_key};
    case SQL_FLOAT:
    case SQL_DOUBLE: return {number, SQL_C_DOUBLE, false, is_key};
    case SQL_REAL: return {number, SQL_C_FLOAT, false};
    case SQL_TYPE_DATE:
    case SQL_TYPE_TIMESTAMP: return {number, SQL_C_TYPE_TIMESTAMP, false};
    case SQL_TYPE_TIME: return {number, SQL_C_TYPE_TIME, false};
    default: return {number, SQL_C_WCHAR, false};
  }
}

// False for NULL, which leaves `data` as it was.
template <class Data>
bool OdbcStatement::GetData(const Column& column, Data& data) const {
  SQLLEN indicator = 0;
  handle_.Check(SQLGetData(handle_.get(), column.number, column.c_type, &data,
                           static_cast<SQLLEN>(sizeof data), &indicator));
  return indicator != SQL_NULL_DATA;
}

Value OdbcStatement::Fetch(const Column& column) const {
  if (column.whole_number) return FetchWholeNumber(column);
  switch (column.c_type) {
    case SQL_C_DOUBLE: {
      SQLDOUBLE number = 0;
      if (!GetData(column, number)) return {};
      const bool fits = std::abs(number) <= std::numeric_limits<SQLINTEGER>::max();
      if (column.key && fits && std::trunc(number) == number) return static_cast<std::int64_t>(number);
      return number;
    }
    case SQL_C_FLOAT: {
      SQLREAL number = 0;
      return GetData(column, number) ? Value(number) : Value();
    }
    case SQL_C_TYPE_TIMESTAMP: {
      SQL_TIMESTAMP_STRUCT time{};
      if (!GetData(column, time)) return {};
      return DateTime(time.year, time.month, time.day, time.hour, time.minute, time.second);
    }
    case SQL_C_TYPE_TIME: {
      SQL_TIME_STRUCT time{};
      if (!GetData(column, time)) return {};
      return DateTime(1970, 1, 1, time.hour, time.minute, time.second);
    }
    default: return FetchText(column);
  }
}

Value OdbcStatement::FetchWholeNumber(const Column& column) const {
  std::array<char, 64> digits{};
  if (!GetData(column, digits)) return {};
  const std::string_view text(digits.data());
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error == std::errc() && end == text.data() + text.size()) return number;
  const auto real = ParseNumericText(text);
  return real ? Value(*real) : Value(text);
}

// A text comes in pieces, each but the last filling the buffer up to its end mark.
Value OdbcStatement::FetchText(const Column& column) const {
  std::u16string text;
  std::array<char16_t, 1024> piece{};
  for (;;) {  // until a piece does not fill the buffer
    SQLLEN bytes = 0;
    const SQLRETURN result = SQLGetData(handle_.get(), column.number, SQL_C_WCHAR, piece.data(),
                                        static_cast<SQLLEN>(sizeof piece), &bytes);
    handle_.Check(result);
    if (result == SQL_NO_DATA) break;
    if (bytes == SQL_NULL_DATA) return {};
    const bool filled = bytes == SQL_NO_TOTAL || static_cast<std::size_t>(bytes) >= sizeof piece;
    text.append(piece.data(), filled ? piece.size() - 1 : static_cast<std::size_t>(bytes) / sizeof(char16_t));
    if (!filled) break;
  }
  return kxdata7::ToUtf8(text);
}

}  // namespace kx
