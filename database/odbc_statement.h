#pragma once

#include <deque>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "database/engine.h"
#include "database/odbc_dbms.h"
#include "database/odbc_handles.h"

namespace kx {

// One statement, run directly on a statement handle that is free for it. Raises OdbcFailure.
class OdbcStatement {
 public:
  explicit OdbcStatement(const OdbcHandle& handle) : handle_(handle) {}
  OdbcStatement(const OdbcStatement&) = delete;
  OdbcStatement& operator=(const OdbcStatement&) = delete;
  ~OdbcStatement() {
    SQLFreeStmt(handle_.get(), SQL_CLOSE);
    if (!parameters_.empty()) SQLFreeStmt(handle_.get(), SQL_RESET_PARAMS);
  }

  // Gives the next `?` its value, in a form that the system's driver takes.
  void Bind(const Value& value, const Dbms& dbms);

  // Runs `sql` to the end of its last statement. The rows are those of the first one that has columns.
  Rows Run(std::string_view sql);
  // With what the first of them was done all the same.
  const std::optional<OdbcFailure>& warning() const { return warning_; }

 private:
  // A parameter's data, which the driver reads while the statement runs.
  struct Parameter {
    SQLINTEGER number = 0;
    SQLBIGINT big_number = 0;
    SQLDOUBLE real = 0;
    SQL_TIMESTAMP_STRUCT time{};
    std::u16string text;
    SQLLEN indicator = 0;
  };
  struct Column {
    SQLUSMALLINT number;
    SQLSMALLINT c_type;  // what it is fetched as
    bool whole_number;   // fetched as a text of digits: drivers know no other form for every size
    bool key = false;    // a whole number also where it comes as a floating-point one
  };

  void BindData(Parameter& parameter, SQLSMALLINT c_type, SQLSMALLINT sql_type, SQLULEN size, SQLPOINTER data,
                SQLLEN bytes);
  void BindText(Parameter& parameter, std::string_view text, const Dbms& dbms);
  void FetchRows(Rows& rows, SQLSMALLINT column_count);
  Column Describe(SQLUSMALLINT number, std::string& name) const;
  Value Fetch(const Column& column) const;
  template <class Data>
  bool GetData(const Column& column, Data& data) const;
  Value FetchText(const Column& column) const;
  Value FetchWholeNumber(const Column& column) const;

  const OdbcHandle& handle_;
  std::deque<Parameter> parameters_;  // addresses stay
  std::optional<OdbcFailure> warning_;
};

}  // namespace kx
