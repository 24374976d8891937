// The floor on a server: recorded statements, sent through the driver by plain ODBC on one statement handle.
//   odbc_floor CONNECTION_STRING

#include <sql.h>
#include <sqlext.h>

#include "benchmarks/replay.h"

namespace floor_program {
namespace {

class Odbc {
 public:
  explicit Odbc(const std::vector<std::string>& arguments) {
    std::string text = arguments.at(0);
    SQLAllocHandle(SQL_HANDLE_ENV, SQL_NULL_HANDLE, &environment_);
    SQLSetEnvAttr(environment_, SQL_ATTR_ODBC_VERSION, reinterpret_cast<SQLPOINTER>(SQL_OV_ODBC3), 0);
    SQLAllocHandle(SQL_HANDLE_DBC, environment_, &link_);
    const SQLRETURN result =
        SQLDriverConnect(link_, nullptr, Text(text), SQL_NTS, nullptr, 0, nullptr, SQL_DRIVER_NOPROMPT);
    Check(result, SQL_HANDLE_DBC, link_);
    SQLAllocHandle(SQL_HANDLE_STMT, link_, &statement_);
  }

  void Prepare(const Step& step) {
    planned_.push_back({step.sql, std::vector<Bound>(step.parameters.size())});
  }

  // Steps come in the order in which they were prepared.
  void Run(const Step& step) {
    Planned& planned = planned_[next_++];
    switch (step.action) {
      case Action::kDeferred:
      case Action::kStatement: Execute(step, planned); break;
      case Action::kBegin: SetManualCommit(true); break;
      case Action::kCommit:
      case Action::kRollback:
        Check(SQLEndTran(SQL_HANDLE_DBC, link_, step.action == Action::kCommit ? SQL_COMMIT : SQL_ROLLBACK),
              SQL_HANDLE_DBC, link_);
        in_transaction_ = false;
        break;
    }
    if (step.action == Action::kBegin) in_transaction_ = true;
  }

  void Forget() {
    planned_.clear();
    next_ = 0;
  }

 private:
  struct Bound {
    SQL_TIMESTAMP_STRUCT time{};
    SQLLEN indicator = 0;
  };
  struct Planned {
    std::string sql;
    std::vector<Bound> bound;
  };

  static SQLCHAR* Text(std::string& text) { return reinterpret_cast<SQLCHAR*>(text.data()); }

  static void Check(SQLRETURN result, SQLSMALLINT type, SQLHANDLE handle) {
    if (SQL_SUCCEEDED(result) || result == SQL_NO_DATA) return;
    SQLCHAR state[6] = {}, message[512] = {};
    SQLGetDiagRec(type, handle, 1, state, nullptr, message, sizeof message, nullptr);
    throw std::runtime_error(reinterpret_cast<const char*>(message));
  }
  void Check(SQLRETURN result) { Check(result, SQL_HANDLE_STMT, statement_); }

  void SetManualCommit(bool manual) {
    if (manual == manual_) return;
    SQLSetConnectAttr(link_, SQL_ATTR_AUTOCOMMIT,
                      reinterpret_cast<SQLPOINTER>(SQLULEN{manual ? SQL_AUTOCOMMIT_OFF : SQL_AUTOCOMMIT_ON}),
                      0);
    manual_ = manual;
  }

  void BindParameter(SQLUSMALLINT number, const Parameter& parameter, Bound& bound) {
    const auto bind = [&](SQLSMALLINT c_type, SQLSMALLINT type, SQLULEN size, const void* data) {
      Check(SQLBindParameter(statement_, number, SQL_PARAM_INPUT, c_type, type, size, 0,
                             const_cast<SQLPOINTER>(data), 0, &bound.indicator));
    };
    if (const auto* whole = std::get_if<std::int64_t>(&parameter)) {
      bind(SQL_C_SBIGINT, SQL_BIGINT, 19, whole);
    } else if (const auto* real = std::get_if<double>(&parameter)) {
      bind(SQL_C_DOUBLE, SQL_DOUBLE, 15, real);
    } else if (const auto* text = std::get_if<std::string>(&parameter)) {
      bound.indicator = static_cast<SQLLEN>(text->size());
      bind(SQL_C_CHAR, SQL_VARCHAR, text->size() + 1, text->data());
    } else if (const auto* moment = std::get_if<Moment>(&parameter)) {
      auto& time = bound.time;
      sscanf(moment->text.c_str(), "%hd-%hu-%hu %hu:%hu:%hu", &time.year, &time.month, &time.day, &time.hour,
             &time.minute, &time.second);
      bind(SQL_C_TYPE_TIMESTAMP, SQL_TYPE_TIMESTAMP, 19, &time);
    } else {
      bound.indicator = SQL_NULL_DATA;
      bind(SQL_C_CHAR, SQL_VARCHAR, 1, nullptr);
    }
  }

  void Execute(const Step& step, Planned& planned) {
    if (!in_transaction_) SetManualCommit(false);
    for (std::size_t i = 0; i < step.parameters.size(); ++i) {
      BindParameter(static_cast<SQLUSMALLINT>(i + 1), step.parameters[i], planned.bound[i]);
    }
    Check(SQLExecDirect(statement_, Text(planned.sql), static_cast<SQLINTEGER>(planned.sql.size())));
    SQLSMALLINT columns = 0;
    Check(SQLNumResultCols(statement_, &columns));
    while (columns > 0) {
      const SQLRETURN result = SQLFetch(statement_);
      Check(result);
      if (result == SQL_NO_DATA) break;
      for (SQLSMALLINT column = 1; column <= columns; ++column) {
        SQLLEN indicator = 0;
        Check(SQLGetData(statement_, static_cast<SQLUSMALLINT>(column), SQL_C_CHAR, buffer_.data(),
                         static_cast<SQLLEN>(buffer_.size()), &indicator));
      }
    }
    SQLFreeStmt(statement_, SQL_CLOSE);
    if (!step.parameters.empty()) SQLFreeStmt(statement_, SQL_RESET_PARAMS);
  }

  SQLHANDLE environment_ = SQL_NULL_HANDLE;
  SQLHANDLE link_ = SQL_NULL_HANDLE;
  SQLHANDLE statement_ = SQL_NULL_HANDLE;
  bool manual_ = false;
  bool in_transaction_ = false;
  std::vector<Planned> planned_;
  std::size_t next_ = 0;
  std::array<char, 4096> buffer_{};
};

}  // namespace
}  // namespace floor_program

int main(int argc, char** argv) { return floor_program::Main<floor_program::Odbc>(argc, argv); }
