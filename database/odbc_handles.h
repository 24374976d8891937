#pragma once

#ifdef _WIN32
#include <windows.h>
#endif
#include <sql.h>
#include <sqlext.h>
#include <sqlucode.h>

#include <cstdint>
#include <string>

namespace kx {

static_assert(sizeof(SQLWCHAR) == sizeof(char16_t), "ODBC's wide characters are UTF-16 here");

// What a handle says of the call on it that failed. The engine turns it into a DatabaseError.
struct OdbcFailure {
  std::string sqlstate;
  std::int32_t native_code = 0;
  std::string text;  // in one line
};

// An environment, connection or statement handle, freed when it goes out of scope.
class OdbcHandle {
 public:
  OdbcHandle(SQLSMALLINT type, SQLHANDLE parent);
  OdbcHandle(const OdbcHandle&) = delete;
  OdbcHandle& operator=(const OdbcHandle&) = delete;
  ~OdbcHandle() { SQLFreeHandle(type_, handle_); }

  SQLHANDLE get() const { return handle_; }
  // Raises the handle's OdbcFailure when `result`, which a call on it returned, is a failure. SQL_NO_DATA is
  // none.
  void Check(SQLRETURN result) const;
  // What the handle says of the last call on it: the first record that is no mere warning, or the first one
  // when all are.
  OdbcFailure Reason() const;

 private:
  SQLSMALLINT type_;
  SQLHANDLE handle_ = SQL_NULL_HANDLE;
};

inline SQLWCHAR* ToSqlText(std::u16string& text) { return reinterpret_cast<SQLWCHAR*>(text.data()); }

}  // namespace kx
