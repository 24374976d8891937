#include "database/odbc_handles.h"

#include <new>
#include <optional>

#include "kxdata7/text.h"

namespace kx {
namespace {

// `text` with every run of blanks and line ends made one blank.
std::string InOneLine(const std::string& text) {
  std::string line;
  for (const char c : text) {
    if (c != ' ' && c != '\t' && c != '\r' && c != '\n') {
      line += c;
    } else if (!line.empty() && line.back() != ' ') {
      line += ' ';
    }
  }
  if (line.ends_with(' ')) line.pop_back();
  return line;
}

std::optional<OdbcFailure> ReadRecord(SQLSMALLINT type, SQLHANDLE handle, SQLSMALLINT number) {
  std::u16string state(SQL_SQLSTATE_SIZE + 1, u'\0');
  std::u16string text(512, u'\0');
  SQLINTEGER native_code = 0;
  SQLSMALLINT length = 0;
  const auto read = [&] {
    return SQLGetDiagRecW(type, handle, number, ToSqlText(state), &native_code, ToSqlText(text),
                          static_cast<SQLSMALLINT>(text.size()), &length);
  };
  if (!SQL_SUCCEEDED(read())) return std::nullopt;
  if (static_cast<std::size_t>(length) >= text.size()) {
    text.resize(static_cast<std::size_t>(length) + 1);
    if (!SQL_SUCCEEDED(read())) return std::nullopt;
  }
  state.resize(SQL_SQLSTATE_SIZE);
  text.resize(std::min(text.find(u'\0'), text.size()));
  return OdbcFailure{kxdata7::ToUtf8(state), native_code, InOneLine(kxdata7::ToUtf8(text))};
}

}  // namespace

OdbcHandle::OdbcHandle(SQLSMALLINT type, SQLHANDLE parent) : type_(type) {
  if (!SQL_SUCCEEDED(SQLAllocHandle(type, parent, &handle_))) throw std::bad_alloc();
}

void OdbcHandle::Check(SQLRETURN result) const {
  if (!SQL_SUCCEEDED(result) && result != SQL_NO_DATA) throw Reason();
}

OdbcFailure OdbcHandle::Reason() const {
  std::optional<OdbcFailure> failure;
  for (SQLSMALLINT number = 1; auto record = ReadRecord(type_, handle_, number); ++number) {
    const bool warning = record->sqlstate.starts_with("00") || record->sqlstate.starts_with("01");
    if (!failure || !warning) failure = record;
    if (!warning) break;
  }
  return failure ? *std::move(failure) : OdbcFailure{"HY000", 0, "The driver gave no reason."};
}

}  // namespace kx
