// The floor on SQLite: recorded statements, each prepared once, with bound values. Links SQLite alone.
//   sqlite_floor FILE FULL|NORMAL

#include <sqlite3.h>

#include <unordered_map>

#include "benchmarks/replay.h"

namespace floor_program {
namespace {

class Sqlite {
 public:
  explicit Sqlite(const std::vector<std::string>& arguments) {
    Check(sqlite3_open_v2(arguments.at(0).c_str(), &handle_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX,
                          nullptr));
    for (const std::string& pragma :
         {std::string("journal_mode = WAL"), "synchronous = " + arguments.at(1)}) {
      SetPragma(pragma);
    }
    begin_ = Statement("BEGIN IMMEDIATE");
    commit_ = Statement("COMMIT");
    rollback_ = Statement("ROLLBACK");
  }

  void Prepare(const Step& step) {
    sqlite3_stmt* statement = nullptr;
    switch (step.action) {
      case Action::kDeferred:
      case Action::kStatement: statement = Statement(step.sql); break;
      case Action::kBegin: statement = begin_; break;
      case Action::kCommit: statement = commit_; break;
      case Action::kRollback: statement = rollback_; break;
    }
    planned_.push_back(statement);
  }

  // Steps come in the order in which they were prepared.
  void Run(const Step& step) {
    sqlite3_stmt* const statement = planned_[next_++];
    if (step.action == Action::kDeferred) SetPragma("synchronous = NORMAL");
    int index = 0;
    for (const Parameter& parameter : step.parameters) {
      ++index;
      if (const auto* number = std::get_if<std::int64_t>(&parameter)) {
        sqlite3_bind_int64(statement, index, *number);
      } else if (const auto* real = std::get_if<double>(&parameter)) {
        sqlite3_bind_double(statement, index, *real);
      } else if (const auto* text = std::get_if<std::string>(&parameter)) {
        BindText(statement, index, *text);
      } else if (const auto* moment = std::get_if<Moment>(&parameter)) {
        BindText(statement, index, moment->text);
      } else {
        sqlite3_bind_null(statement, index);
      }
    }
    int result = sqlite3_step(statement);
    for (; result == SQLITE_ROW; result = sqlite3_step(statement)) ReadRow(statement);
    if (result != SQLITE_DONE) Check(result);
    sqlite3_reset(statement);
    if (step.action == Action::kDeferred) SetPragma("synchronous = FULL");
  }

  void Forget() {
    planned_.clear();
    next_ = 0;
  }

 private:
  void SetPragma(const std::string& pragma) {
    Check(sqlite3_exec(handle_, ("PRAGMA " + pragma).c_str(), nullptr, nullptr, nullptr));
  }
  void Check(int result) {
    if (result != SQLITE_OK) throw std::runtime_error(sqlite3_errmsg(handle_));
  }
  static void BindText(sqlite3_stmt* statement, int index, const std::string& text) {
    sqlite3_bind_text64(statement, index, text.data(), text.size(), SQLITE_STATIC, SQLITE_UTF8);
  }
  sqlite3_stmt* Statement(const std::string& sql) {
    sqlite3_stmt*& statement = statements_[sql];
    if (statement == nullptr) {
      Check(sqlite3_prepare_v3(handle_, sql.c_str(), -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr));
    }
    return statement;
  }
  void ReadRow(sqlite3_stmt* statement) {
    const int columns = sqlite3_column_count(statement);
    for (int column = 0; column < columns; ++column) {
      switch (sqlite3_column_type(statement, column)) {
        case SQLITE_NULL: break;
        case SQLITE_INTEGER: read_ += sqlite3_column_int64(statement, column); break;
        case SQLITE_FLOAT:
          read_ += static_cast<std::int64_t>(sqlite3_column_double(statement, column));
          break;
        default: read_ += *sqlite3_column_text(statement, column); break;
      }
    }
  }

  sqlite3* handle_ = nullptr;
  std::unordered_map<std::string, sqlite3_stmt*> statements_;
  sqlite3_stmt* begin_ = nullptr;
  sqlite3_stmt* commit_ = nullptr;
  sqlite3_stmt* rollback_ = nullptr;
  std::vector<sqlite3_stmt*> planned_;
  std::size_t next_ = 0;
  std::int64_t read_ = 0;  // so that every value is read
};

}  // namespace
}  // namespace floor_program

int main(int argc, char** argv) { return floor_program::Main<floor_program::Sqlite>(argc, argv); }
