#pragma once

#include <cstdint>
#include <exception>
#include <string>

namespace kx {

enum class ErrorCategory {
  kGeneral,
  kBusy,              // another session holds what was needed; the same work can succeed later
  kTransactionEnded,  // the engine gave up the transaction by itself; only a roll back helps
  kUnknownOutcome,    // a commit that may or may not last; while the link is there, it is done on this server
  kNoStatement,       // a text that can never be a statement, however often it is tried
};

// The one exception for database and run-time errors. `description` is the clear text that reaches a client.
class DatabaseError : public std::exception {
 public:
  explicit DatabaseError(std::string description, ErrorCategory category = ErrorCategory::kGeneral,
                         std::int64_t native_code = 0, std::string sqlstate = {});

  const char* what() const noexcept override { return description_.c_str(); }
  const std::string& description() const { return description_; }
  ErrorCategory category() const { return category_; }
  bool busy() const { return category_ == ErrorCategory::kBusy; }
  std::int64_t native_code() const { return native_code_; }
  const std::string& sqlstate() const { return sqlstate_; }
  // The statement that failed, empty when none was involved.
  const std::string& statement() const { return statement_; }
  void set_statement(std::string statement) { statement_ = std::move(statement); }

 private:
  std::string description_;
  ErrorCategory category_;
  std::int64_t native_code_;
  std::string sqlstate_;
  std::string statement_;
};

// The errors with a fixed description.
DatabaseError NoCurrentRowError();
DatabaseError InvalidUseOfNullError();
DatabaseError OverflowError();
DatabaseError TypeMismatchError();
DatabaseError ClosedError();
DatabaseError RowGoneError();
DatabaseError UnknownProviderError();
DatabaseError TransactionEndedError();
DatabaseError UnknownOutcomeError();
DatabaseError NulInStatementError();
DatabaseError NulInTextError();
DatabaseError OpenApostropheError();
DatabaseError NotOneStatementError();

}  // namespace kx
